// Object keys: keys of the other byte order decode to the same id, foreign
// and short keys are refused. Every kind's round trip shows in iordump_test.
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

}  // namespace
