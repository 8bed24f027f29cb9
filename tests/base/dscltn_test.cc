// The collections: the linked list's ends, the ordered collection's
// positions and releases, the hash set's chains through removals and growth
// and the dictionary built on it, and tables read back from a stream.
#include "dscltn.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "dsdict.h"
#include "dslist.h"
#include "dsordcltn.h"
#include "dsset.h"
#include "dstestkey.h"

namespace {

unsigned idAt(const DSDictionary& d, unsigned key) {
    DSTestKey* v = TB_CAST(DSTestKey, d.atKey(DSTestKey(key)));
    return v ? v->id : ~0u;
}

TEST(DSDictionary, AddAssocKeepsTheFirstValueAndRemovalsGoByKey) {
    int before = DSTestKey::alive();
    {
        DSDictionary dict;
        ASSERT_NE(dict.addAssoc(*new DSTestKey(1), *new DSTestKey(10)), nullptr);
        // The refused pair was referenced by nobody else: both go at once.
        EXPECT_EQ(dict.addAssoc(*new DSTestKey(1), *new DSTestKey(11)), nullptr);
        EXPECT_EQ(DSTestKey::alive(), before + 2);
        EXPECT_EQ(idAt(dict, 1), 10u);
        DSTestKey* shared = new DSTestKey(50);
        for (unsigned i = 2; i < 6; ++i) dict.addAssoc(*new DSTestKey(i), *shared);
        EXPECT_EQ(dict.occurrencesOf(DSTestKey(50)), 4u);  // counts values
        EXPECT_EQ(dict.occurrencesOf(DSTestKey(2)), 0u);   // not keys
        DSTestKey bare(1);
        EXPECT_EQ(dict.add(bare), nullptr);
        EXPECT_EQ(dict.remove(bare), 0);  // a key is not an association
        EXPECT_EQ(dict.removeKey(DSTestKey(2)), 1);
        EXPECT_EQ(dict.removeKey(DSTestKey(2)), 0);
        DSAssoc probe(*new DSTestKey(3), *new DSTestKey(0));
        EXPECT_EQ(dict.remove(probe), 1);  // equal by key, whatever the value
        EXPECT_EQ(dict.removeAssoc(*dict.assocAt(DSTestKey(4))), 1);
        EXPECT_EQ(shared->refCount(), 1u);
        EXPECT_EQ(dict.size(), 2u);
    }
    EXPECT_EQ(DSTestKey::alive(), before);
}

TEST(DSLinkedList, InsertionsAndRemovalsKeepBothEnds) {
    int before = DSTestKey::alive();
    DSLinkedList l;
    l.addFirst(*new DSTestKey(2));  // on an empty list: the last as well
    EXPECT_EQ(l.first(), l.last());
    l.addFirst(*new DSTestKey(0));
    EXPECT_NE(l.addAfter(DSTestKey(0), *new DSTestKey(1)), nullptr);
    EXPECT_NE(l.addAfter(DSTestKey(2), *new DSTestKey(3)), nullptr);  // new last
    DSTestKey stray(7);
    EXPECT_EQ(l.addAfter(DSTestKey(42), stray), nullptr);
    EXPECT_EQ(TB_CAST(DSTestKey, l.at(3))->id, 3u);
    EXPECT_EQ(l.at(4), nullptr);
    DSTestKey* same = new DSTestKey(1);
    l.add(*same);
    EXPECT_EQ(dsIds(l), (DSIds{0, 1, 2, 3, 1}));
    EXPECT_EQ(TB_CAST(DSTestKey, l.find(DSTestKey(1))), l.at(1));
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
    EXPECT_EQ(DSTestKey::alive(), before + 1);  // stray
    l.add(*new DSTestKey(8));
    EXPECT_EQ(l.first(), l.last());
}

TEST(DSOrderedCltn, InsertionsByPositionAndNeighbourGrowByDoubling) {
    DSOrderedCltn c(3), empty(0);
    empty.addFirst(*new DSTestKey(0));
    EXPECT_EQ(dsIds(empty), (DSIds{0}));
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
    EXPECT_EQ(c.capacity(), 6u);
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
// 2^16. (A count the elements do not back is the object-stream fuzz
// target's: its allocation limit fails any table sized by the lie.)
TEST(DSOrderedCltn, StreamKeepsTheWritersCapacityAsFarAsElementsBackIt) {
    DSOrderedCltn written(100000);
    for (unsigned i = 0; i < 70000; ++i) written.add(*new DSTestKey(i));
    const std::string text = dsText(&written);
    DSOrderedCltn* read = dynamic_cast<DSOrderedCltn*>(dsRead(text));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->capacity(), 100000u);
    EXPECT_TRUE(dsText(read) == text);
    TBResource::unref(read);

}

// Then adds and removals of keys that share a handful of hashes, so that
// chains are long, mix equal and unequal hashes, wrap around and get closed
// up and regrown many times: after every step each key is found, or not, as
// it should be. (Where the slots are is the large-table test's business.)
TEST(DSSet, EqualElementsAddOnceAndChainsSurviveRemovalsAndGrowth) {
    int before = DSTestKey::alive();
    {
        DSSet set(20), chains(4);
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
        set.add(*new DSTestKey(4));  // the destructor releases it

        std::mt19937 random(7);
        auto hashOf = [](unsigned id) { return dsHashHomedAt(id % 5, 3) + (id % 3 == 0 ? 0 : 1u); };
        std::vector<bool> in(200, false);
        for (int step = 0; step < 3000; ++step) {
            unsigned id = random() % 200;
            if (random() % 3) {
                DSTestKey* key = new DSTestKey(id, hashOf(id));
                if (chains.add(*key) != key) TBResource::unref(key);  // held already
                in[id] = true;
            } else {
                EXPECT_EQ(chains.remove(DSTestKey(id, hashOf(id))), in[id] ? 1 : 0);
                in[id] = false;
            }
            for (unsigned k = 0; k < 200; ++k)
                ASSERT_EQ(chains.findObjectWithKey(DSTestKey(k, hashOf(k))) != nullptr, in[k])
                    << "step " << step << ", key " << k;
        }
    }
    EXPECT_EQ(DSTestKey::alive(), before);
}

// A table larger than 2^16 slots is sized for its count and filled in the
// order written. Homes 3i in the 2^18 slots of 70,020 entries are distinct;
// the keys with homes 6k + 1 would share a slot with home 6k in a table half
// that size, and come out in another order there.
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

}  // namespace
