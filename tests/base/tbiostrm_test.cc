// Object streams: the text form of the primitives, string escapes and their
// faults, and the object encoding (numbers, back references, class tags). The
// binary stream only replaces the primitives: its bytes are agentwire_test's.
#include "tbiostrm.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>

#include "tbtinfo.h"

namespace {

class TSBase : public TBObject {
public:
    using TBObject::TBObject;
    unsigned hash() const override { return 0; }
    int compare(const TBObject&) const override { return 0; }
};

class TSNode : public TSBase {
public:
    explicit TSNode(int v, TBObject* n = nullptr) : value(v), next(n) {}
    explicit TSNode(TBistream& s) : TSBase(s) {
        s >> value;
        next = TB_CAST(TBObject, s.readTransObj());
    }
    void write(TBostream& s) const override { s << value << next; }
    void prettyPrint(TBostream& s) const override { s << "node"; }
    int value;
    TBObject* next;
    TB_DECLARE_CLASS(TSNode);
};

class TSPair : public TSBase {
public:
    TSPair(TBObject* l, TBObject* r) : left(l), right(r) {}
    explicit TSPair(TBistream& s) : TSBase(s) {
        left = TB_CAST(TBObject, s.readTransObj());
        right = TB_CAST(TBObject, s.readTransObj());
    }
    void write(TBostream& s) const override { s << left << right; }
    TBObject* left;
    TBObject* right;
    TB_DECLARE_CLASS(TSPair);
};

// One value of each kind; read back and written again, the text is the same.
struct Primitives {
    char c = 'A';
    unsigned char uc = 65;
    short sh = -3;
    unsigned short us = 7;
    int i = 42, arr[3] = {1, -2, 3};
    unsigned u = 4000000000u;
    long l = -5;
    unsigned long ul = 4294967295ul;
    float f = 1.5f;
    double d = 0.25;
    char* s[4] = {};
    char raw[3] = "xy";
    void write(TBostream& o) const {
        o << c << uc << sh << us << i << u << l << ul << f << d << s[0] << s[1] << s[2] << s[3];
        endl(o.put(arr, 3).put(raw, 2));
    }
    void read(TBistream& in) {
        in >> c >> uc >> sh >> us >> i >> u >> l >> ul >> f >> d >> s[0] >> s[1] >> s[2] >> s[3];
        in.get(arr, 3).get(raw, 2);
    }
};

}  // namespace

TB_DEFINE_CLASS(TSNode, "TSNode", TBObject::desc());
TB_DEFINE_CLASS(TSPair, "TSPair", TBObject::desc());

TEST(TBostreamText, PrimitivesWriteAndReadBack) {
    char empty[] = "", abc[] = "abc", escapes[] = "a\n\t\b\r\f\\\"{}\x01\xe9 b";
    Primitives w;
    w.s[0] = empty;  // s[1] stays null, which goes as the empty string
    w.s[2] = abc;
    w.s[3] = escapes;
    std::ostringstream os;
    TBostream out(os);
    w.write(out);
    EXPECT_EQ("A 65 -3 7 42 4000000000 -5 4294967295 1.5 0.25 0 0 3\"abc\"\n"
              R"(14"a\n\t\b\r\f\\\"\[\]\x01\xe9 b")"
              "\n1 -2 3 xy\n",
              os.str());

    std::istringstream is(os.str());
    TBistream in(is);
    Primitives r{0, 0, 0, 0, 0, {}, 0, 0, 0, 0, 0, {nullptr, new char[8]}, ""};
    r.read(in);
    EXPECT_EQ('\n', in.get());
    std::ostringstream again;
    TBostream out2(again);
    r.write(out2);
    EXPECT_EQ(os.str(), again.str());
    for (char* p : r.s) delete[] p;
}

TEST(TBistreamText, GetCStringFaults) {
    // input, the buffer's size, what it then holds, what is reported
    const std::tuple<const char*, unsigned, const char*, const char*> cases[] = {
        {"\"abc\"\nX", 4, "abc", ""},
        {"\"abcde\"\nX", 3, "ab", "TBistream::getCString: String Overflow\n"},
        {"\"abc\"\nX", 3, "ab", "TBistream::getCString: String overflow\n"},
        {"\"\\x41\\[\\65\n\\]\"\nX", 8, "A{A}", ""},
        {"  x", 8, "old",
         "TBistream::getCString: Error reading Object from  stream. Make sure your 'write' "
         "function and constructor from stream are correct\n"},
        {" \n ", 8, "old", "TBistream::getCString: Unexpected EOF\n"},
        {"\"ab", 8, "ab", "TBistream::getCString: Unexpected EOF\n"},
    };
    for (const auto& [input, max, buffer, report] : cases) {
        std::istringstream is(input);
        TBistream in(is);
        char buf[16] = "old";
        testing::internal::CaptureStderr();
        in.getCString(buf, max);
        EXPECT_EQ(report, testing::internal::GetCapturedStderr()) << input;
        EXPECT_STREQ(buffer, buf) << input;
        EXPECT_TRUE(*report || in.get() == 'X') << input;  // the newline was consumed
    }
}

TEST(TBObjectStream, SharedObjectsAndObjectsBuiltInPlaceAreReferencedBack) {
    TSNode a(5);
    TSPair pair(&a, &a);
    std::stringstream ss;
    TBostream out(ss);
    TBistream in(ss);
    out << &pair << &a;  // the second write starts its numbers again
    EXPECT_EQ(": \"TSPair\"\n: \"TSNode\"\n5 : \"::\"\n@ 1 # 1 5 : \"::\"\n", ss.str());
    auto* p = TB_CAST(TSPair, in.readTransObj());
    auto* second = TB_CAST(TSNode, in.readTransObj());
    ASSERT_TRUE(p && second);
    EXPECT_EQ(p->left, p->right);
    EXPECT_NE(p->left, second);
    EXPECT_EQ(5, second->value);
    for (TBObject* o : {p->left, static_cast<TBObject*>(p), static_cast<TBObject*>(second)})
        delete o;

    // Class numbers last until both sides forget them together.
    out.clearOutClassTbl();
    in.clearInClassTbl();
    out << &a;
    EXPECT_EQ(": \"TSNode\"\n5 : \"::\"\n", ss.str().substr(ss.tellg()));
    std::unique_ptr<TBTransObject> back(in.readTransObj());
    EXPECT_EQ(TSNode::desc(), back ? back->classInfo() : nullptr);

    // An object built in place can be referenced from inside. The back
    // reference ends the object numbers on both sides, so that the next
    // top-level object is number 0 again on both.
    TSNode self(7), other(8);
    self.next = &self;
    other.next = &other;
    out.clearOutClassTbl();
    in.clearInClassTbl();
    out << self << &other;
    EXPECT_EQ("7 @ 0 : \"TSNode\"\n8 @ 0 ", ss.str().substr(ss.tellg()));
    TSNode copy(in);
    EXPECT_EQ(&copy, copy.next);
    std::unique_ptr<TSNode> again(TB_CAST(TSNode, in.readTransObj()));
    ASSERT_NE(nullptr, again);
    EXPECT_EQ(again.get(), again->next);
}

TEST(TBObjectStream, ReaderFaultsGiveNull) {
    const std::string notLinked = "TBistream::readObject: Received Object of class '";
    std::pair<std::string, std::string> cases[] = {
        {": \"TSNoSuch\"\n", notLinked + "TSNoSuch', but this class is not linked in\n"},
        {"# 7 ", "TBistream::readObject. Internal Error reading class '7'\n"},
        {"@ 3 ", ""},
        {"? ",
         "TBistream::readObject: Error reading Object from  stream. Make sure your 'write' "
         "function and constructor from stream are correct\n"},
    };
    for (const auto& k : cases) {
        std::istringstream is(k.first);
        TBistream in(is);
        testing::internal::CaptureStderr();
        EXPECT_EQ(nullptr, in.readTransObj()) << k.first;
        EXPECT_EQ(k.second, testing::internal::GetCapturedStderr()) << k.first;
    }
}
