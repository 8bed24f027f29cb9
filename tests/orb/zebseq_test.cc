// Sequences of numbers move as one array: the bytes of element by element,
// both byte orders, and a lying count that is MARSHAL, not one allocation.
#include "zebseq.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "except.h"
#include "zebstrm.h"

namespace {

std::string written(const ZEBIIOPstream& s) { return std::string(s.outData(), s.outLength()); }

template <class T>
ZEBSequence<T> counting(CORBA::ULong n) {
    ZEBSequence<T> seq;
    seq.length(n);
    for (CORBA::ULong i = 0; i < n; ++i) seq[i] = static_cast<T>(i * 3 + 1);
    return seq;
}

TEST(ZEBSequenceNumbers, SameBytesAsOneByOneAtEveryOffset) {
    for (int lead = 0; lead < 8; ++lead) {
        ZEBIIOPstream bulk;
        ZEBIIOPstream single;
        bulk.put("1234567", unsigned(lead));
        single.put("1234567", unsigned(lead));
        ZEBSequence<double> d = counting<double>(5);
        ZEBSequence<CORBA::Short> h = counting<CORBA::Short>(3);
        d.write(bulk);
        ZEBSequence<double>().write(bulk);  // no padding for no elements
        h.write(bulk);
        single << 5ul;
        for (CORBA::ULong i = 0; i < 5; ++i) single << d[i];
        single << 0ul;
        single << 3ul;
        for (CORBA::ULong i = 0; i < 3; ++i) single << h[i];
        EXPECT_EQ(written(single), written(bulk)) << lead;
    }
}

TEST(ZEBSequenceNumbers, OtherByteOrderDecodesIntoOldAndNewStorage) {
    // Big-endian count 3 and shorts 1, 0x0203, -1; then count 2, pad to 8,
    // and the doubles 1.0 and -2.0, big-endian.
    std::string data("\0\0\0\3" "\0\1" "\2\3" "\xff\xff" "\0\0" "\0\0\0\2"
                     "\x3f\xf0\0\0\0\0\0\0" "\xc0\0\0\0\0\0\0\0", 32);
    for (bool roomy : {false, true}) {
        ZEBIIOPstream r;
        r.set_read_buffer(&data[0], data.size(), 0);
        r.byteOrder(0);
        ZEBSequence<CORBA::Short> h(roomy ? 10 : 0);  // in place, or fresh
        ZEBSequence<double> d(roomy ? 10 : 0);
        h.read(r);
        d.read(r);
        ASSERT_EQ(3u, h.length());
        EXPECT_EQ(1, h[0]);
        EXPECT_EQ(0x0203, h[1]);
        EXPECT_EQ(-1, h[2]);
        ASSERT_EQ(2u, d.length());
        EXPECT_EQ(1.0, d[0]);
        EXPECT_EQ(-2.0, d[1]);
    }
}

TEST(ZEBSequenceNumbers, LargeSequenceGrowsAsItArrives) {
    // 40,000 longs: past what is read into a new buffer at once.
    ZEBSequence<CORBA::Long> big = counting<CORBA::Long>(40000);
    ZEBIIOPstream w;
    big.write(w);
    std::string data = written(w);
    ZEBIIOPstream r;
    r.set_read_buffer(&data[0], data.size(), 0);
    ZEBSequence<CORBA::Long> back;
    back.read(r);
    ASSERT_EQ(40000u, back.length());
    EXPECT_EQ(0, std::memcmp(big.get_buffer(), back.get_buffer(), 40000 * 4));

    // A count of a billion with eight bytes behind it.
    std::string lie = data.substr(0, 12);
    const CORBA::ULong huge = 1000000000;
    std::memcpy(&lie[0], &huge, 4);
    ZEBIIOPstream l;
    l.set_read_buffer(&lie[0], lie.size(), 0);
    ZEBSequence<double> keep = counting<double>(2);
    EXPECT_THROW(keep.read(l), CORBA_MARSHAL);
    ASSERT_EQ(2u, keep.length());  // the old buffer stays
    EXPECT_EQ(4.0, keep[1]);
}

}  // namespace
