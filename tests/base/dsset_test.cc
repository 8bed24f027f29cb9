// Reference counting and the hash set's table: downward probing, deletion
// across the wrap-around, equal elements and release on removal.
#include "dsset.h"

#include <gtest/gtest.h>

#include <vector>

#include "dstestkey.h"

namespace {

TEST(TBResource, FirstUnrefOfAnUnreferencedObjectDeletes) {
    int before = DSTestKey::alive();
    TBResource::unref(new DSTestKey(1));
    EXPECT_EQ(DSTestKey::alive(), before);
    DSTestKey* k = new DSTestKey(2);
    TBResource::ref(k);
    TBResource::ref(k);
    k->unref();
    EXPECT_EQ(DSTestKey::alive(), before + 1);
    k->unref();
    EXPECT_EQ(DSTestKey::alive(), before);
}

// Eight slots (bits 3). Keys 0, 1, 2 all have home 1: they sit in 1, 0 and,
// wrapping below 0, in 7; key 3 (home 7) is pushed down to 6, key 4 (home 6)
// to 5, key 5 (home 1) to 4. Removing any one key must leave the others
// findable.
TEST(DSSet, RemoveAcrossWrapAroundKeepsChainsWhole) {
    const unsigned homes[] = {1, 1, 1, 7, 6, 1};
    const unsigned n = sizeof homes / sizeof homes[0];
    for (unsigned victim = 0; victim < n; ++victim) {
        DSSet set(4);
        std::vector<DSTestKey*> keys;
        for (unsigned i = 0; i < n; ++i) {
            keys.push_back(new DSTestKey(i, dsHashHomedAt(homes[i], 3)));
            set.add(*keys.back());
        }
        if (victim == 0) {  // placed downward with wrap-around; iterated in slot order
            const unsigned slots[] = {1, 0, 7, 6, 5, 4};
            for (unsigned i = 0; i < n; ++i) EXPECT_EQ(set.slot(slots[i]), keys[i]);
            EXPECT_EQ(dsIds(set), (DSIds{1, 0, 5, 4, 3, 2}));
        }
        DSTestKey probe(victim, keys[victim]->h);
        EXPECT_EQ(set.remove(probe), 1);
        EXPECT_EQ(set.remove(probe), 0);
        EXPECT_EQ(set.size(), n - 1);
        for (unsigned i = 0; i < n; ++i) {
            if (i == victim) continue;
            EXPECT_EQ(set.findObjectWithKey(DSTestKey(i, keys[i]->h)), keys[i])
                << "victim " << victim << " key " << i;
        }
    }
}

TEST(DSSet, EqualElementsAddOnceAndRemovalsRelease) {
    int before = DSTestKey::alive();
    {
        DSSet set(20);
        DSTestKey* first = new DSTestKey(3);
        EXPECT_EQ(set.add(*first), first);
        DSTestKey second(3);
        EXPECT_EQ(set.add(second), first);  // the first stays, second unreferenced
        EXPECT_EQ(second.refCount(), 0u);
        EXPECT_EQ(set.remove(second), 1);  // releases (here: deletes) the held one
        EXPECT_EQ(DSTestKey::alive(), before + 1);
        for (unsigned i = 0; i < 20; ++i) set.add(*new DSTestKey(i));
        set.removeAll();
        EXPECT_EQ(DSTestKey::alive(), before + 1);
        EXPECT_TRUE(set.isEmpty());
        EXPECT_EQ(set.capacity(), 64u);
        set.add(*new DSTestKey(4));
    }
    EXPECT_EQ(DSTestKey::alive(), before);  // the destructor released the rest
}

// A table larger than 2^16 slots: the reader sizes it for the count, as for
// any other size, and enters the elements in the order written. Homes 3i in
// the 2^18 slots that 70,020 entries get are all distinct, so the layout is
// the writer's; the twenty keys with homes 6k + 1 would share a slot with
// the key of home 6k in a table half that size, and come out in another
// order there.
TEST(DSSet, LargeTablesReadBackWithTheWritersLayout) {
    int before = DSTestKey::alive();
    DSSet written(70020);
    ASSERT_EQ(written.capacity(), 1u << 18);
    for (unsigned i = 0; i < 70000; ++i) written.add(*new DSTestKey(i, dsHashHomedAt(3 * i, 18)));
    for (unsigned k = 0; k < 20; ++k)
        written.add(*new DSTestKey(100000 + k, dsHashHomedAt(6 * 1700 * k + 1, 18)));
    const std::string text = dsText(&written);

    DSSet* read = dynamic_cast<DSSet*>(dsRead(text));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->capacity(), written.capacity());
    EXPECT_TRUE(dsIds(*read) == dsIds(written));
    EXPECT_TRUE(dsText(read) == text);
    TBResource::unref(read);
    written.removeAll();
    EXPECT_EQ(DSTestKey::alive(), before);
}

// A count that the elements do not back sizes nothing: the table is made
// for the elements that came.
TEST(DSSet, AStatedCountAllocatesOnlyForElementsThatArrive) {
    DSSet two(2);
    two.add(*new DSTestKey(1));
    two.add(*new DSTestKey(2));
    std::string text = dsText(&two);
    const std::string::size_type counts = text.find("\n4 2 ");
    ASSERT_NE(counts, std::string::npos) << text;
    text.replace(counts, 5, "\n4 4294967295 ");
    testing::internal::CaptureStderr();  // the reader reports the missing rest
    DSSet* read = dynamic_cast<DSSet*>(dsRead(text));
    testing::internal::GetCapturedStderr();
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->size(), 2u);
    EXPECT_EQ(read->capacity(), 4u);  // setCapacity(2)
    TBResource::unref(read);
}

}  // namespace
