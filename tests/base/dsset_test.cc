// Reference counting, the hash set's table (sizing, downward probing,
// deletion across the wrap-around, doubling), set algebra and the stream
// form of a set.
#include "dsset.h"

#include <gtest/gtest.h>

#include <memory>
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

TEST(DSSet, SlotCountFromRequestedCapacity) {
    const unsigned cases[][2] = {{0, 1}, {1, 2}, {2, 4}, {5, 16}, {15, 32}, {16, 32}, {17, 64}};
    for (const auto& c : cases) EXPECT_EQ(DSSet(c[0]).capacity(), c[1]) << "n=" << c[0];
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

TEST(DSSet, AlgebraAndCopiesShareElements) {
    DSSet a, b;
    for (unsigned i = 0; i < 6; ++i) a.add(*new DSTestKey(i));
    for (unsigned i = 4; i < 9; ++i) b.add(*new DSTestKey(i));
    std::unique_ptr<DSSet> both(a.intersectionOf(b)), any(a.unionOf(b)), only(a.differenceOf(b));
    EXPECT_EQ(both->size(), 2u);
    EXPECT_EQ(any->size(), 9u);
    EXPECT_EQ(only->size(), 4u);
    EXPECT_EQ(only->occurrencesOf(DSTestKey(4)), 0u);
    EXPECT_EQ(a.findObjectWithKey(DSTestKey(5))->refCount(), 3u);  // a, both, any

    DSSet copy(a), assigned;
    assigned.add(*new DSTestKey(100));
    assigned = a;
    EXPECT_EQ(assigned.occurrencesOf(DSTestKey(100)), 0u);
    EXPECT_TRUE(assigned.isEqual(a) && copy.isEqual(a));
    copy.remove(DSTestKey(0));
    EXPECT_EQ(a.size(), 6u);
    EXPECT_NE(copy.compare(a), 0);
}

TEST(DSSet, StreamRoundTripSizesByCount) {
    DSSet set(100);
    for (unsigned i = 0; i < 3; ++i) set.add(*new DSTestKey(i, i * 977));
    std::unique_ptr<TBTransObject> obj(dsRoundTrip(&set));
    DSSet* back = TB_CAST(DSSet, obj.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->size(), 3u);
    EXPECT_EQ(back->capacity(), 8u);  // from the count 3, not the 128 written
    for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(back->occurrencesOf(DSTestKey(i, i * 977)), 1u);
}

TEST(DSSet, TruncatedOrBoastfulStreamEndsTheRead) {
    DSSet set, none;
    for (unsigned i = 0; i < 5; ++i) set.add(*new DSTestKey(i));
    std::string full, head;
    delete dsRoundTrip(&set, &full);
    delete dsRoundTrip(&none, &head);
    ASSERT_EQ(head.substr(head.size() - 5), "32 0 ");
    // Half of a set, and a count of four thousand million with nothing behind.
    const std::string cases[] = {full.substr(0, full.size() / 2),
                                 head.substr(0, head.size() - 2) + "4000000000 "};
    for (const std::string& text : cases) {
        std::stringstream ss(text);
        testing::internal::CaptureStderr();
        std::unique_ptr<TBTransObject> obj(TBistream(ss).readTransObj());
        EXPECT_NE(testing::internal::GetCapturedStderr(), "");
        ASSERT_NE(obj, nullptr);
        EXPECT_LT(TB_CAST(DSSet, obj.get())->size(), 5u);
    }
}

}  // namespace
