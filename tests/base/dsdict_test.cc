// Dictionaries: lookup by key, the first of two equal keys winning, values
// that are not owned (DSWrapper), doubling, the declared class tree of the
// collections and the stream form of a dictionary with shared values.
#include "dsdict.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "dslist.h"
#include "dsordcltn.h"
#include "dstestkey.h"
#include "tbstring.h"

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

TEST(DSDictionary, WrapperNeitherOwnsNorFollowsItsTarget) {
    DSDictionary dict;
    auto target = std::make_unique<std::string>("kept");
    dict.addAssoc(*new DSTestKey(1), *new DSWrapper(target.get()));
    EXPECT_EQ(dict.removeKey(DSTestKey(1)), 1);  // the wrapper dies, the target not
    EXPECT_EQ(*target, "kept");

    volatile uintptr_t address = reinterpret_cast<uintptr_t>(target.get());
    dict.addAssoc(*new DSWrapper(target.get()), *new DSTestKey(2));
    target.reset();  // the wrapper outlives its target and is still found
    DSWrapper probe(reinterpret_cast<void*>(address));
    EXPECT_EQ(TB_CAST(DSTestKey, dict.atKey(probe))->id, 2u);
}

TEST(DSDictionary, StreamRoundTripKeepsSharedValuesShared) {
    DSDictionary dict, again(3);
    DSTestKey* shared = new DSTestKey(99);
    for (DSDictionary* d : {&dict, &again}) {
        d->addAssoc(*new DSTestKey(1), *shared);
        d->addAssoc(*new DSTestKey(2), *shared);
        d->addAssoc(*new DSTestKey(3), *new DSTestKey(33));
    }
    std::unique_ptr<TBTransObject> obj(dsRoundTrip(&dict));
    DSDictionary* back = TB_CAST(DSDictionary, obj.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->size(), 3u);
    DSResource* one = back->atKey(DSTestKey(1));
    EXPECT_EQ(one, back->atKey(DSTestKey(2)));
    EXPECT_EQ(one->refCount(), 2u);
    EXPECT_EQ(idAt(*back, 3), 33u);
    // compare walks the slots, so it needs a table of the read-back size.
    EXPECT_EQ(back->compare(again), 0);
    again.removeKey(DSTestKey(3));
    again.addAssoc(*new DSTestKey(3), *new DSTestKey(34));
    EXPECT_NE(back->compare(again), 0);
}

// The class names on streams and the bases the descriptors declare, which
// differ from the language's tree: the concrete collections name DSResource
// (so a dictionary is no DSSet to the checked cast). DSResource and
// DSCollection are abstract: no factory.
TEST(DSCollection, RegisteredNamesAndDeclaredBases) {
    const std::pair<const TBTypeInfo*, const char*> rows[] = {
        {TBString::desc(), "TBString"},         {DSResource::desc(), "DSResource"},
        {DSAssoc::desc(), "DSAssoc"},           {DSCollection::desc(), "DSCollection"},
        {DSLink::desc(), "DSLink"},             {DSLinkedList::desc(), "DSLinkedList"},
        {DSOrderedCltn::desc(), "DSOrderedCltn"}, {DSSet::desc(), "DSSet"},
        {DSDictionary::desc(), "DSDictionary"}, {DSWrapper::desc(), "DSWrapper"}};
    for (const auto& [info, name] : rows) {
        std::string n = name;
        EXPECT_EQ(TBTypeInfo::typeInfo(name), info) << n;
        ASSERT_EQ(info->baseCount(), 1) << n;
        bool root = n == "TBString" || n == "DSResource";
        EXPECT_EQ(info->base(0), root ? TBObject::desc() : DSResource::desc()) << n;
        EXPECT_EQ(info->readFunction() == nullptr, n == "DSResource" || n == "DSCollection") << n;
    }
    EXPECT_FALSE(tbCastAllowed(DSDictionary::desc(), DSSet::desc()));
}

}  // namespace
