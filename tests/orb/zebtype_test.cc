// Type records: base search, method tables, construction orders, set removal.
#include "zebtype.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

const CORBA_TypeInfo* const kEnd = nullptr;

// Distinct methods: each leaves its number in `reply`.
template <int N>
void m(void*, CORBA_MarshalStream&, CORBA_OctetSequence*, const char*, void* reply) {
    *static_cast<int*>(reply) = N;
}

CORBA_Object* makeNothing() { return nullptr; }

// D derives from B1 and B2, both from A. A's skeleton side is built before
// its stub side, the others after, as static order may have it either way.
CORBA_MethodDescription aRows[] = {{"a_op", m<1>}, {"shared", m<2>}};
CORBA_TypeInfo aSkel("ZT::A", 2, aRows);
CORBA_TypeInfo aStub("ZT::A", "IDL:ZT/A:1.0", makeNothing, kEnd);
CORBA_TypeInfo b1Stub("ZT::B1", "IDL:ZT/B1:1.0", makeNothing, &aStub, kEnd);
CORBA_TypeInfo b2Stub("ZT::B2", "IDL:ZT/B2:1.0", makeNothing, &aStub, kEnd);
CORBA_TypeInfo dStub("ZT::D", "IDL:ZT/D:1.0", makeNothing, &b1Stub, &b2Stub, kEnd);
CORBA_MethodDescription b1Rows[] = {{"b1_op", m<3>}};
CORBA_TypeInfo b1Skel("ZT::B1", 1, b1Rows);
CORBA_MethodDescription b2Rows[] = {{"a_op", m<5>}, {"b2_op", m<4>}};
CORBA_TypeInfo b2Skel("ZT::B2", 2, b2Rows);
CORBA_MethodDescription dRows[] = {{"shared", m<6>}};
CORBA_TypeInfo dSkel("ZT::D", 1, dRows);

struct Hit {
    const CORBA_TypeInfo& from;
    const char* op;
    ZEBMethod method;
    const CORBA_TypeInfo* owner;
};

void expectHits(const std::vector<Hit>& hits) {
    for (const Hit& h : hits) {
        const CORBA_TypeInfo* owner = &dSkel;  // must be overwritten
        EXPECT_EQ(h.from.impl()->skeleton(h.op, owner, 0), h.method) << h.op;
        EXPECT_EQ(owner, h.owner) << h.op;
    }
}

// "a_op" is in A and in B2: depth first through B1 reaches A's before B2's.
// A derived method hides its base's; a miss clears an owner left from before.
TEST(ZEBTypeInfo, OperationsFoundDepthFirstAndDerivedHidesBase) {
    expectHits({{dSkel, "a_op", m<1>, &aStub},
                {dStub, "b1_op", m<3>, &b1Stub},
                {dStub, "b2_op", m<4>, &b2Stub},
                {dStub, "shared", m<6>, &dStub},
                {b2Stub, "a_op", m<5>, &b2Stub},
                {dStub, "nothing", nullptr, nullptr}});
    EXPECT_TRUE(dStub.impl()->is_a("IDL:ZT/A:1.0"));
    EXPECT_FALSE(b1Stub.impl()->is_a("IDL:ZT/B2:1.0"));
    EXPECT_FALSE(dStub.impl()->is_a(nullptr));
    EXPECT_TRUE(dStub.has_base(b1Skel, 1));  // a skeleton-side record is the same interface
    EXPECT_FALSE(dStub.has_base(b2Stub, 1));  // direct: the first base only
    EXPECT_EQ(CORBA_TypeInfo::type_info(nullptr), nullptr);
}

// Names that hash alike land one probe apart and are both found.
TEST(ZEBTypeInfo, CollidingOperationsAndEmptyTables) {
    ASSERT_EQ(_string_hash("op_aaa"), _string_hash("op_abg"));
    CORBA_MethodDescription rows[] = {{"op_aaa", m<1>}, {"op_abg", m<2>}, {"other", m<3>}};
    CORBA_TypeInfo t("ZT::Colliding", 3, rows);
    EXPECT_EQ(t.impl()->skeleton("op_aaa", 0), m<1>);
    EXPECT_EQ(t.impl()->skeleton("op_abg", 0), m<2>);
    EXPECT_EQ(t.impl()->skeleton("op_abe", 0), nullptr);

    CORBA_TypeInfo empty("ZT::Empty", 0ul, nullptr);  // a plain 0 would also fit the stub side
    EXPECT_EQ(empty.impl()->skeleton("x", 0), nullptr);
    CORBA_TypeInfo stubOnly("ZT::StubOnly", nullptr, nullptr, kEnd);
    const CORBA_TypeInfo* owner = nullptr;
    EXPECT_EQ(stubOnly.impl()->skeleton("x", owner, 0), nullptr);
}

TEST(ZEBTypeInfo, DuplicateRowsAbort) {
    CORBA_MethodDescription rows[] = {{"twice", m<1>}, {"twice", m<2>}};
    EXPECT_DEATH(CORBA_TypeInfo("ZT::Duplicate", 2, rows), "");
}

TEST(ZEBTypeInfo, DynamicTakesAllButBinding) {
    CORBA_MethodDescription rows[] = {{"__dynamic", m<7>}, {"__bind", m<8>}};
    CORBA_TypeInfo t("ZT::Dynamic", 2, rows);
    t.impl()->dynamic(1);
    EXPECT_EQ(t.impl()->skeleton("anything", _string_hash("anything")), m<7>);
    EXPECT_EQ(t.impl()->skeleton("__bind", 0), nullptr);
    EXPECT_EQ(t.impl()->skeleton("__unbind", 0), nullptr);
}

// Either side may be built first and either may go first; they share one
// body, and the stub side is the one found and the owner of the methods.
TEST(CORBA_TypeInfo, StaticOrderDoesNotMatter) {
    CORBA_MethodDescription rows[] = {{"op", m<1>}};
    for (int order = 0; order < 4; ++order) {
        const bool stubFirst = order & 1, stubDiesFirst = order & 2;
        SCOPED_TRACE(order);
        std::unique_ptr<CORBA_TypeInfo> stub, skel;
        if (!stubFirst) skel.reset(new CORBA_TypeInfo("ZT::Order", 1, rows));
        stub.reset(new CORBA_TypeInfo("ZT::Order", "IDL:ZT/Order:1.0", makeNothing, &aStub, kEnd));
        if (stubFirst) skel.reset(new CORBA_TypeInfo("ZT::Order", 1, rows));

        EXPECT_TRUE(*stub == *skel);
        EXPECT_EQ(skel->factory(), makeNothing);
        EXPECT_EQ(CORBA_TypeInfo::type_info("ZT::Order"), stub.get());
        EXPECT_EQ(CORBA_TypeInfo::type_info("IDL:ZT/Order:1.0"), stub.get());
        expectHits({{*skel, "op", m<1>, stub.get()}, {*skel, "a_op", m<1>, &aStub}});

        if (stubDiesFirst) {
            stub.reset();
            EXPECT_EQ(CORBA_TypeInfo::type_info("IDL:ZT/Order:1.0"), nullptr);
        } else {
            skel.reset();
            EXPECT_EQ(CORBA_TypeInfo::type_info("ZT::Order"), stub.get());
        }
        EXPECT_EQ((stub ? stub : skel)->impl()->skeleton("op", 0), m<1>);
        stub.reset();
        skel.reset();
        EXPECT_EQ(CORBA_TypeInfo::type_info("ZT::Order"), nullptr);
    }
}

// Names whose home slots are 0 and the top slot make chains that run down
// past slot 0 to the table's end. Removing any one leaves the rest findable;
// a name already there is not added again.
TEST(_ZEBCORBATypeSet, RemoveRepairsChainAcrossWrapAround) {
    _ZEBCORBATypeSet homes(8, false);  // empty: findIndexOf gives the home slot
    const unsigned long top = homes.slots() - 1;
    std::vector<std::string> chosen;
    int atZero = 0, atTop = 0, atOne = 0;
    for (int i = 0; chosen.size() < 6 && i < 100000; ++i) {
        std::string name = "ZW::" + std::to_string(i);
        unsigned long h = homes.findIndexOf(name.c_str());
        if ((h == 0 && atZero < 3 && ++atZero) || (h == top && atTop < 2 && ++atTop) ||
            (h == 1 && atOne < 1 && ++atOne))
            chosen.push_back(name);
    }
    ASSERT_EQ(chosen.size(), 6u);
    std::vector<std::unique_ptr<CORBA_TypeInfo>> records;  // gone before the names
    for (const std::string& n : chosen)
        records.emplace_back(new CORBA_TypeInfo(n.c_str(), nullptr, nullptr, kEnd));

    for (size_t gone = 0; gone < chosen.size(); ++gone) {
        _ZEBCORBATypeSet set(8, false);
        for (size_t i = 0; i < chosen.size(); ++i) set.add(chosen[i].c_str(), records[i].get());
        ASSERT_EQ(set.slots(), homes.slots());  // no growth hid the chains
        ASSERT_NE(set.at(top), nullptr);
        EXPECT_FALSE(set.add(chosen[gone].c_str(), records[0].get()));
        ASSERT_TRUE(set.remove(chosen[gone].c_str()));
        EXPECT_FALSE(set.replace(chosen[gone].c_str(), records[0].get()));
        EXPECT_EQ(set.count(), chosen.size() - 1);
        for (size_t i = 0; i < chosen.size(); ++i)
            EXPECT_EQ(set.find(chosen[i].c_str()), i == gone ? nullptr : records[i].get())
                << "removed " << chosen[gone] << ", looked for " << chosen[i];
    }
}

}  // namespace
