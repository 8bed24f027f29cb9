// The linked list: both ends kept right by every insertion and removal.
#include "dslist.h"

#include <gtest/gtest.h>


#include "dstestkey.h"

namespace {

TEST(DSLinkedList, InsertionsKeepBothEnds) {
    DSLinkedList l;
    l.addFirst(*new DSTestKey(2));  // on an empty list: the last as well
    EXPECT_EQ(l.first(), l.last());
    l.addFirst(*new DSTestKey(0));
    EXPECT_NE(l.addAfter(DSTestKey(0), *new DSTestKey(1)), nullptr);
    EXPECT_NE(l.addAfter(DSTestKey(2), *new DSTestKey(3)), nullptr);  // new last
    l.add(*new DSTestKey(4));
    DSTestKey stray(7);
    EXPECT_EQ(l.addAfter(DSTestKey(42), stray), nullptr);
    EXPECT_EQ(dsIds(l), (DSIds{0, 1, 2, 3, 4}));
    EXPECT_EQ(TB_CAST(DSTestKey, l.at(3))->id, 3u);
    EXPECT_EQ(l.at(5), nullptr);
    EXPECT_EQ(TB_CAST(DSTestKey, l.find(DSTestKey(4)))->id, 4u);
}

TEST(DSLinkedList, RemovalsReleaseValuesAndFixTheEnds) {
    int before = DSTestKey::alive();
    DSLinkedList l;
    DSTestKey* same = new DSTestKey(1);
    for (unsigned i : {0u, 1u, 2u, 3u}) l.add(*new DSTestKey(i));
    l.add(*same);
    EXPECT_EQ(l.removeSame(*same), 1);  // the last link, not the first equal one
    EXPECT_EQ(TB_CAST(DSTestKey, l.last())->id, 3u);
    EXPECT_EQ(l.removeLast(), 1);
    l.add(*new DSTestKey(5));  // appends behind the new last
    EXPECT_EQ(l.remove(DSTestKey(1)), 1);
    EXPECT_EQ(l.remove(DSTestKey(1)), 0);
    EXPECT_EQ(l.removeFirst(), 1);
    EXPECT_EQ(dsIds(l), (DSIds{2, 5}));
    l.removeAll();
    EXPECT_EQ(l.first(), nullptr);
    EXPECT_EQ(l.removeLast(), 0);
    EXPECT_EQ(DSTestKey::alive(), before);
    l.add(*new DSTestKey(8));
    EXPECT_EQ(l.first(), l.last());
}

}  // namespace
