// CDR memory buffers: alignment relative to the count, both byte orders,
// strings and short data.
#include "mstrm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "except.h"

namespace {

using Bytes = std::vector<unsigned char>;

// One encoding of: octet 0xAA, short 0x1122, long 0x33445566, octet 0xBB,
// double with the bits 0x0102030405060708, float with the bits 0x0A0B0C0D.
// 'P' marks padding, whose value a reader must not care about.
Bytes encoded(bool bigEndian) {
    Bytes be = {0xAA, 'P',  0x11, 0x22, 0x33, 0x44, 0x55, 0x66,  //
                0xBB, 'P',  'P',  'P',  'P',  'P',  'P',  'P',   //
                0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,  //
                0x0A, 0x0B, 0x0C, 0x0D};
    if (bigEndian) return be;
    Bytes le = be;
    auto reverse = [&](size_t at, size_t n) { std::reverse(le.begin() + at, le.begin() + at + n); };
    reverse(2, 2);
    reverse(4, 4);
    reverse(16, 8);
    reverse(24, 4);
    return le;
}

template <class T, class Bits>
T fromBits(Bits bits) {
    T v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

bool hostIsBigEndian() {
    const uint16_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 0;
}

void expectMarshal(const std::function<void()>& f) {
    try {
        f();
        ADD_FAILURE() << "no CORBA_MARSHAL";
    } catch (const CORBA_MARSHAL& e) {
        EXPECT_EQ(e.minor(), 0u);
        EXPECT_EQ(e.completed(), CORBA::COMPLETED_NO);
    }
}

}  // namespace

TEST(CORBA_MarshalInBuffer, ReadsBothByteOrdersWithPadding) {
    for (bool big : {false, true}) {
        Bytes data = encoded(big);
        // One byte in, so that alignment can only come from the count.
        std::vector<char> block(data.size() + 1);
        std::memcpy(block.data() + 1, data.data(), data.size());
        CORBA_MarshalInBuffer in(block.data() + 1, data.size());
        in.byte_order(big ? 1 : 0);  // the marker's sense: 1 is big-endian
        unsigned char o1 = 0, o2 = 0;
        short s = 0;
        long l = 0;
        double d = 0;
        float f = 0;
        in >> o1 >> s >> l >> o2 >> d >> f;
        EXPECT_EQ(o1, 0xAA);
        EXPECT_EQ(s, 0x1122);
        EXPECT_EQ(l, 0x33445566);
        EXPECT_EQ(o2, 0xBB);
        EXPECT_EQ(d, fromBits<double>(0x0102030405060708ULL)) << "big " << big;
        EXPECT_EQ(f, fromBits<float>(0x0A0B0C0DU));
        EXPECT_EQ(in.cursor(), data.size());
    }
}

TEST(CORBA_MarshalOutBuffer, WritesHostOrderWithPadding) {
    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    out << (unsigned char)0xAA << short(0x1122) << 0x33445566L << (unsigned char)0xBB
        << fromBits<double>(0x0102030405060708ULL) << fromBits<float>(0x0A0B0C0DU);
    Bytes expect = encoded(hostIsBigEndian());
    ASSERT_EQ(out.length(), expect.size());
    for (size_t i = 0; i < expect.size(); ++i) {
        if (expect[i] == 'P') continue;
        EXPECT_EQ((unsigned char)out.buffer()[i], expect[i]) << "at " << i;
    }

    // A double after a byte at position 5 gets 2 pad bytes.
    CORBA_MarshalOutBuffer mis;
    mis.owns_buffer(1);
    mis.put("12345", 5);
    mis << 'x' << 2.0;
    const double two = 2.0;
    EXPECT_EQ(mis.length(), 16u);
    EXPECT_EQ(std::memcmp(mis.buffer() + 8, &two, 8), 0);
}

TEST(CORBA_MarshalBuffers, NullAndEmptyStringsStayDifferent) {
    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    out << static_cast<const char*>(nullptr) << "" << "abc" << "skip me" << 'z';
    // 0 | 1 '\0' | pad 3 | 4 "abc\0" | 8 "skip me\0" | 'z'
    ASSERT_EQ(out.length(), 4u + 5 + 3 + 8 + 12 + 1);

    CORBA_MarshalInBuffer in(out.buffer(), out.length());
    char* null = reinterpret_cast<char*>(1);
    char* empty = nullptr;
    in >> null >> empty;
    EXPECT_EQ(null, nullptr);
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty, "");
    CORBA::string_free(empty);

    char* view = in.getString();
    EXPECT_EQ(view, out.buffer() + 16);  // no copy
    EXPECT_STREQ(view, "abc");

    char small[3] = {'q', 'q', 'q'};
    in.getCString(small, 3);  // max below the count: no NUL, rest skipped
    EXPECT_EQ(std::string(small, 3), "ski");
    char c = 0;
    in >> c;
    EXPECT_EQ(c, 'z');
}

TEST(CORBA_MarshalInBuffer, ShortDataThrowsMarshal) {
    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    out << 'a' << 7L << "text" << 1.25 << short(3);
    const CORBA::ULong full = out.length();

    // Every cut of a valid encoding fails cleanly, never past the block.
    for (CORBA::ULong cut = 0; cut < full; ++cut) {
        std::vector<char> copy(out.buffer(), out.buffer() + cut);
        CORBA_MarshalInBuffer in(copy.data(), cut);
        char c, *s = nullptr;
        long l;
        double d;
        short sh;
        expectMarshal([&] { in >> c >> l >> s >> d >> sh; });
        CORBA::string_free(s);
    }

    // A string count beyond the block is refused.
    CORBA_MarshalOutBuffer lie;
    lie.owns_buffer(1);
    lie << 0x7FFFFFF0UL << "abc";
    CORBA_MarshalInBuffer li(lie.buffer(), lie.length());
    expectMarshal([&] { li.getString(); });
}
