// The ordered collection: growth, positions of insertions, the different
// removals and the order in which a removed element is released.
#include "dsordcltn.h"

#include <gtest/gtest.h>

#include <string>

#include "dstestkey.h"

namespace {

TEST(DSOrderedCltn, GrowsByDoublingAndKeepsOrder) {
    DSOrderedCltn c(3), empty(0);
    EXPECT_EQ(c.capacity(), 3u);  // taken as it is
    for (unsigned i = 0; i < 4; ++i) c.add(*new DSTestKey(i));
    EXPECT_EQ(c.capacity(), 6u);
    EXPECT_EQ(dsIds(c), (DSIds{0, 1, 2, 3}));
    empty.add(*new DSTestKey(1));
    empty.addFirst(*new DSTestKey(0));
    EXPECT_EQ(dsIds(empty), (DSIds{0, 1}));
}

TEST(DSOrderedCltn, InsertionsByPositionAndNeighbour) {
    DSOrderedCltn c(2);
    c.add(*new DSTestKey(2));
    c.addFirst(*new DSTestKey(0));
    EXPECT_NE(c.addAfter(DSTestKey(0), *new DSTestKey(1)), nullptr);
    EXPECT_NE(c.addBefore(DSTestKey(0), *new DSTestKey(9)), nullptr);
    EXPECT_NE(c.addAtIndex(4, *new DSTestKey(3)), nullptr);
    DSTestKey stray(5);
    EXPECT_EQ(c.addAfter(DSTestKey(42), stray), nullptr);
    EXPECT_EQ(c.addAtIndex(6, stray), nullptr);
    EXPECT_EQ(c.addAtIndex(-1, stray), nullptr);
    EXPECT_EQ(stray.refCount(), 0u);
    EXPECT_EQ(dsIds(c), (DSIds{9, 0, 1, 2, 3}));
    EXPECT_EQ(c.at(5), nullptr);
    EXPECT_EQ(c.indexOf(DSTestKey(2)), 3);
}

// A removed element is released last: its destructor sees the gap closed.
TEST(DSOrderedCltn, RemovalsByEqualityAddressAndIndex) {
    DSOrderedCltn c;
    DSTestKey* a = new DSTestKey(1);
    DSTestKey b(1);       // equal to a, another object
    TBResource::ref(&b);  // on the stack: the collection must not delete it
    c.add(*a);
    c.add(b);
    c.add(*new DSTestKey(2));
    EXPECT_EQ(c.removeSame(b), 1);  // b, although a comes first
    EXPECT_EQ(c.removeSame(b), 0);
    EXPECT_EQ(c.removeAt(2), 0);
    DSIds seen;
    a->onDestroy = [&] { seen = dsIds(c); };
    EXPECT_EQ(c.remove(DSTestKey(1)), 1);
    EXPECT_EQ(seen, (DSIds{2}));
    EXPECT_EQ(c.removeLast(), 1);
    EXPECT_EQ(c.removeFirst(), 0);
}

// The capacity on a stream is kept once the elements back it, also beyond
// 2^16; unbacked, it is cut, and the elements still all come in order.
TEST(DSOrderedCltn, StreamKeepsTheWritersCapacityAsFarAsElementsBackIt) {
    DSOrderedCltn written(100000);
    for (unsigned i = 0; i < 70000; ++i) written.add(*new DSTestKey(i));
    const std::string text = dsText(&written);
    DSOrderedCltn* read = dynamic_cast<DSOrderedCltn*>(dsRead(text));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->capacity(), 100000u);
    EXPECT_TRUE(dsText(read) == text);
    TBResource::unref(read);

    DSOrderedCltn few(3);
    for (unsigned i = 0; i < 3; ++i) few.add(*new DSTestKey(i));
    std::string lie = dsText(&few);
    const std::string::size_type counts = lie.find("\n3 3 ");
    ASSERT_NE(counts, std::string::npos) << lie;
    lie.replace(counts, 5, "\n4294967295 3 ");
    read = dynamic_cast<DSOrderedCltn*>(dsRead(lie));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->capacity(), 1u << 16);
    EXPECT_EQ(dsIds(*read), (DSIds{0, 1, 2}));
    TBResource::unref(read);
}

}  // namespace
