// Object keys: each kind round-trips, keys of the other byte order decode to
// the same id, foreign and short keys are refused, cut keys throw, and the
// holder's checks end the process with their text.
#include "zeboid.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "except.h"
#include "giop.h"

namespace {

using Bytes = std::vector<unsigned char>;

CORBA_OctetSequence keyOf(const Bytes& b) {
    CORBA_OctetSequence k;
    k.length(static_cast<CORBA::ULong>(b.size()));
    if (!b.empty()) std::memcpy(k.get_buffer(), b.data(), b.size());
    return k;
}

// The key of an id, which the test then owns.
Bytes encode(const ZEBObjectId& id) {
    CORBA_OctetSequence_var k = id.convert();
    return Bytes(k->get_buffer(), k->get_buffer() + k->length());
}

std::vector<ZEBObjectId*> everyKind() {
    return {new ZEBPersistentId("Activation::VEX", "VEX"),
            new ZEBTransientId("IDL:A/B:1.0", 42, 0x5f000001), new ZEBKeyId(0xdeadbeef),
            new ZEBServiceId("NameService", keyOf({0, 'r', 'e', 'f'}))};
}

// Decoding and encoding again gives the same octets: no field is lost, and
// the exact-byte tests below pin the wire order.
TEST(ZEBObjectId, EveryKindRoundTrips) {
    for (ZEBObjectId* raw : everyKind()) {
        ZEBObjectId_var id = raw;
        const Bytes key = encode(*id);
        EXPECT_EQ(std::string(key.begin() + 1, key.begin() + 4), "ZEB");
        EXPECT_TRUE(ZEBObjectId::isZEBKey(keyOf(key)));
        ZEBObjectId_var back = ZEBObjectId::convert(keyOf(key));
        ASSERT_TRUE(back);
        EXPECT_EQ(back->type(), id->type());
        EXPECT_EQ(encode(*back), key);
    }
    EXPECT_EQ(encode(ZEBKeyId(1)).size(), 12u);
}

TEST(ZEBObjectId, EmptyObjectNameIsCountOneAndANul) {
    const Bytes key = encode(ZEBPersistentId("I", ""));
    const Bytes want = {IIOP::BYTE_ORDER, 'Z', 'E', 'B', 0, 0, 0, 0, 2, 0, 0, 0, 'I', 0};
    ASSERT_EQ(key.size(), want.size() + 2 + 5);
    EXPECT_EQ(Bytes(key.begin(), key.begin() + want.size()), want);
    EXPECT_EQ(Bytes(key.begin() + 16, key.end()), (Bytes{1, 0, 0, 0, 0}));
    ZEBObjectId_var back = ZEBObjectId::convert(keyOf(key));
    ZEBPersistentId* p = back;
    EXPECT_STREQ(p->object_name().string(), "");
    EXPECT_STREQ(p->interface_name().string(), "I");
}

TEST(ZEBObjectId, BigEndianKeyDecodesToTheSameId) {
    const Bytes be = {0, 'Z', 'E', 'B', 0, 0, 0, 1,  // tag 1
                      0, 0, 0, 2, 'I', 0, ' ', ' ',  // interface "I"
                      0, 0, 0, 42, 0x5f, 0, 0, 1};   // unique id, time
    ZEBObjectId_var id = ZEBObjectId::convert(keyOf(be));
    ASSERT_TRUE(id);
    // Encoding again writes our own order: other octets, same id.
    EXPECT_NE(encode(*id), be);
    EXPECT_EQ(encode(*id), encode(ZEBTransientId("I", 42, 0x5f000001)));
}

TEST(ZEBObjectId, ShortForeignAndUnassignedKeysAreNotOurs) {
    Bytes twelve = {1, 'Z', 'E', 'B', 3, 0, 0, 0, 9, 0, 0, 0};
    const Bytes eleven(twelve.begin(), twelve.end() - 1);
    EXPECT_FALSE(ZEBObjectId::isZEBKey(keyOf(eleven)));
    EXPECT_EQ(ZEBObjectId::convert(keyOf(eleven)), nullptr);
    EXPECT_FALSE(ZEBObjectId::isZEBKey(CORBA_OctetSequence()));

    Bytes foreign = twelve;
    foreign[3] = 'X';
    foreign.resize(40, 0xff);  // long and full of large counts: never read
    EXPECT_FALSE(ZEBObjectId::isZEBKey(keyOf(foreign)));
    EXPECT_EQ(ZEBObjectId::convert(keyOf(foreign)), nullptr);

    for (unsigned char tag : {2, 5, 255}) {
        twelve[4] = tag;
        EXPECT_TRUE(ZEBObjectId::isZEBKey(keyOf(twelve))) << int(tag);
        EXPECT_EQ(ZEBObjectId::convert(keyOf(twelve)), nullptr) << int(tag);
    }
}

TEST(ZEBObjectId, CutKeysThrowMarshal) {
    for (ZEBObjectId* raw : everyKind()) {
        ZEBObjectId_var id = raw;
        const Bytes full = encode(*id);
        for (size_t n = 12; n < full.size(); ++n) {
            const CORBA_OctetSequence cut = keyOf(Bytes(full.begin(), full.begin() + n));
            EXPECT_THROW(delete ZEBObjectId::convert(cut), CORBA_MARSHAL)
                << "tag " << id->type() << " cut to " << n;
        }
    }
    // A string count far beyond the key.
    const Bytes lying = {1, 'Z', 'E', 'B', 0, 0, 0, 0, 0xf0, 0xff, 0xff, 0xff, 'a'};
    EXPECT_THROW(delete ZEBObjectId::convert(keyOf(lying)), CORBA_MARSHAL);
}

TEST(ZEBObjectIdVarDeathTest, ChecksEndTheProcessWithTheirText) {
    ZEBObjectId_var key = new ZEBKeyId(1);
    ZEBObjectId_var none;
    EXPECT_DEATH({ ZEBPersistentId* p = key; (void)p; },
                 "\\(_ptr == NULL \\|\\| _ptr->type\\(\\) == ZEBObjectId::ID_PERSISTENT\\)");
    EXPECT_DEATH({ ZEBServiceId* p = key; (void)p; },
                 "\\(_ptr == NULL \\|\\| _ptr->type\\(\\) == ZEBObjectId::ID_SERVICE\\)");
    EXPECT_DEATH({ none->type(); }, "_ptr != NULL");
    ZEBServiceId* nullService = none;
    EXPECT_EQ(nullService, nullptr);
}

}  // namespace
