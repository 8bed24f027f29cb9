// Class descriptors: registration and lookup (the table has grown past its
// first slots by the time any test runs), the declared-base walk, the
// checked cast, what TBinit() and DSinit() link in; TBString.
#include "tbtinfo.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include <unistd.h>

#include "dsaddr.h"
#include "dsassoc.h"
#include "dsdict.h"
#include "dslist.h"
#include "dsname.h"
#include "dsordcltn.h"
#include "dsprovider.h"
#include "process.h"
#include "tbiostrm.h"
#include "tbstring.h"

namespace {

class TTBase : public TBObject {
public:
    explicit TTBase(int k = 0) : key(k) {}
    explicit TTBase(TBistream& s) : TBObject(s) {}
    unsigned hash() const override { return static_cast<unsigned>(key); }
    int compare(const TBObject& o) const override {
        return key - static_cast<const TTBase&>(o).key;
    }
    void write(TBostream&) const override {}
    int key = 0;
    TB_DECLARE_CLASS(TTBase);
};

#define TT_CLASS(Name, Parent)  \
    class Name : public Parent { \
    public:                      \
        using Parent::Parent;    \
        TB_DECLARE_CLASS(Name);  \
    }
TT_CLASS(TTMid, TTBase);
TT_CLASS(TTLeaf, TTMid);
TT_CLASS(TTOther, TTBase);  // declares TBObject as its only base
TT_CLASS(TTMulti, TTMid);   // declares TTOther as well
#undef TT_CLASS

TBTransObject* otherRead(TBistream&) { return nullptr; }

}  // namespace

TB_DEFINE_CLASS(TTBase, "TTBase", TBObject::desc());
TB_DEFINE_CLASS(TTMid, "TTMid", TTBase::desc());
TB_DEFINE_CLASS(TTLeaf, "TTLeaf", TTMid::desc());
TB_DEFINE_CLASS(TTOther, "TTOther", TBObject::desc());
TB_DEFINE_CLASS(TTMulti, "TTMulti", TTOther::desc(), TTMid::desc());

TEST(TBTypeInfo, DeclaredBasesLookupEqualityAndCheckedCast) {
    EXPECT_TRUE(TTLeaf::desc()->hasBase(*TTMid::desc()));
    EXPECT_TRUE(TTLeaf::desc()->hasBase(*TBObject::desc()));
    EXPECT_FALSE(TTLeaf::desc()->hasBase(*TTLeaf::desc()));
    EXPECT_FALSE(TTMid::desc()->hasBase(*TTLeaf::desc()));
    EXPECT_FALSE(TTOther::desc()->hasBase(*TTBase::desc()));  // only what is declared
    EXPECT_TRUE(TTMulti::desc()->hasBase(*TTBase::desc()));    // through the second base

    EXPECT_EQ(TTLeaf::desc(), TBTypeInfo::typeInfo("TTLeaf"));
    EXPECT_EQ(nullptr, TBTypeInfo::readFunc("TBObject"));
    EXPECT_EQ(nullptr, TBTypeInfo::typeInfo("TTNoSuchClass"));
    TBTypeInfo second("TTLeaf", &otherRead, nullptr);  // the first of a name stays
    EXPECT_EQ(TTLeaf::desc(), TBTypeInfo::typeInfo("TTLeaf"));
    EXPECT_EQ(&TTLeaf::readFrom, TBTypeInfo::readFunc("TTLeaf"));

    TTMid a(3), b(3);
    TTLeaf d(3);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a.isEqual(d));  // compare gives 0, but the class differs

    TTBase* p = &d;
    EXPECT_EQ(&d, TB_CAST(TTLeaf, p));
    EXPECT_EQ(&d, TB_CAST(TTMid, p));
    p = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(nullptr, TB_CAST(TTOther, p));
    EXPECT_EQ("", testing::internal::GetCapturedStdout());

    // A wrong class is a program fault: the message names both classes and
    // the place of the cast, then the process aborts.
    p = &d;
    // The message goes to standard output; the death test reads stderr.
    EXPECT_DEATH((dup2(2, 1), TB_CAST(TTOther, p)),
                 "Invalid cast: Cannot cast 'TTLeaf' to 'TTOther'\nFile: .*tbtinfo_test.cc, Line: [0-9]+");
}

// Only a program of its own shows what an initialiser links in: this suite
// links every unit anyway. A probe reads the objects written here with
// nothing but its initialiser, and writes them back; each class is named on
// the way, and one that did not come in makes the read fail.
void probeEchoes(const char* probePath, const TBTransObject& a, const TBTransObject& b,
                 const TBTransObject* c = nullptr) {
    std::ostringstream text;
    {
        TBostream out(text);
        out << &a << &b;
        if (c) out << c;
    }
    ktest::TempDir dir("tbinit");
    ktest::Process::Options opts;
    opts.argv = {probePath};
    opts.stdinPath = dir.file("in");
    ASSERT_TRUE(ktest::writeFile(opts.stdinPath, text.str()));
    const ktest::Outcome probe = ktest::run(opts);
    EXPECT_EQ(probe.status, 0);
    EXPECT_EQ(probe.err, "");
    EXPECT_EQ(probe.out, text.str());
}

TEST(TBinit, LinksInEveryClassTheBaseLibraryRegisters) {
    // Tables sized as a reader sizes them (for their count), so that the
    // text written back is the text read.
    DSOrderedCltn top(4);
    DSSet* set = new DSSet(1);
    set->add(*new DSOrderedCltn(2));
    DSDictionary* dict = new DSDictionary(1);
    dict->addAssoc(*new DSLinkedList, *new DSSet(0));
    DSLinkedList* list = new DSLinkedList;
    list->add(*new DSAssoc(*new DSOrderedCltn(1), *new DSDictionary(0)));
    top.add(*set);
    top.add(*dict);
    top.add(*list);
    probeEchoes(KELVANOR_TBINIT_PROBE, TBString("text"), top);
}

// DSinit() in a program of the base library, _CORBA_init() in one of the broker.
TEST(DSinit, LinksInTheAgentClientClassesAsCorbaInitDoes) {
    DSAddr addr(4711, 0x7f000001u);
    // A service type unknown here is kept, and so is the name's argument.
    DSName name("Demo::Echo", DS_ARG_DEFAULT, static_cast<DSServiceType>(99), new DSAddr(9000, 7u));
    DSProvider prov(name, addr, DS_PROTOCOL_DEFAULT, 17);
    probeEchoes(KELVANOR_DSINIT_PROBE, addr, name, &prov);
    probeEchoes(KELVANOR_CINIT_PROBE, addr, name, &prov);
}

TEST(TBString, AssignmentFromItselfAndConcatenation) {
    TBString s("a string that is longer than before");
    s = s.string() + 2;  // from inside its own buffer
    EXPECT_STREQ(s.string(), "string that is longer than before");
    TBString a("ab");
    a &= a & "cd" & TBString("ef");
    EXPECT_STREQ(a.string(), "ababcdef");
}
