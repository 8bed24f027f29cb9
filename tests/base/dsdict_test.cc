// Dictionaries: lookup by key, the first of two equal keys winning, removals
// and doubling.
#include "dsdict.h"

#include <gtest/gtest.h>


#include "dstestkey.h"

namespace {

unsigned idAt(const DSDictionary& d, unsigned key) {
    DSTestKey* v = TB_CAST(DSTestKey, d.atKey(DSTestKey(key)));
    return v ? v->id : ~0u;
}

TEST(DSDictionary, SixteenGivesThirtyTwoSlotsAndTheThirtySecondEntryDoubles) {
    DSDictionary dict(16);
    EXPECT_EQ(dict.capacity(), 32u);
    for (unsigned i = 0; i < 31; ++i) dict.addAssoc(*new DSTestKey(i), *new DSTestKey(1000 + i));
    EXPECT_EQ(dict.capacity(), 32u);
    dict.addAssoc(*new DSTestKey(31), *new DSTestKey(1031));
    EXPECT_EQ(dict.capacity(), 64u);
    for (unsigned i = 0; i < 32; ++i) EXPECT_EQ(idAt(dict, i), 1000 + i);
}

TEST(DSDictionary, SecondAddAssocOfAKeyKeepsTheFirstValue) {
    int before = DSTestKey::alive();
    {
        DSDictionary dict;
        ASSERT_NE(dict.addAssoc(*new DSTestKey(1), *new DSTestKey(10)), nullptr);
        // The refused pair was referenced by nobody else: both go at once.
        EXPECT_EQ(dict.addAssoc(*new DSTestKey(1), *new DSTestKey(11)), nullptr);
        EXPECT_EQ(DSTestKey::alive(), before + 2);
        EXPECT_EQ(idAt(dict, 1), 10u);
        EXPECT_EQ(dict.size(), 1u);
    }
    EXPECT_EQ(DSTestKey::alive(), before);
}

TEST(DSDictionary, RemovalsByKeyAndAssociationOnly) {
    DSDictionary dict;
    DSTestKey* shared = new DSTestKey(50);
    for (unsigned i = 0; i < 4; ++i) dict.addAssoc(*new DSTestKey(i), *shared);
    EXPECT_EQ(dict.occurrencesOf(DSTestKey(50)), 4u);  // counts values
    EXPECT_EQ(dict.occurrencesOf(DSTestKey(0)), 0u);   // not keys
    DSTestKey bare(1);
    EXPECT_EQ(dict.add(bare), nullptr);
    EXPECT_EQ(dict.remove(bare), 0);  // a key is not an association
    EXPECT_EQ(dict.removeKey(DSTestKey(2)), 1);
    EXPECT_EQ(dict.removeKey(DSTestKey(2)), 0);
    DSAssoc probe(*new DSTestKey(3), *new DSTestKey(0));
    EXPECT_EQ(dict.remove(probe), 1);  // equal by key, whatever the value
    EXPECT_EQ(dict.removeAssoc(*dict.assocAt(DSTestKey(0))), 1);
    EXPECT_EQ(shared->refCount(), 1u);
    EXPECT_EQ(dict.size(), 1u);
}

}  // namespace
