// CDR memory buffers: alignment relative to the count, both byte orders,
// strings, growth, short data and block ownership.
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

    // A new alignment origin: no padding before the long.
    mis.reset_alignment();
    mis << 7L;
    EXPECT_EQ(mis.length(), 20u);
}

TEST(CORBA_MarshalBuffers, ArraysAlignEachElementAndLongsKeep32Bits) {
    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    const short shorts[2] = {5, -2};
    const long longs[2] = {-2L, 0x7FFFFFFFL};
    out << 'c';
    out.put(shorts, 2);  // 1 pad, then 2 + 2
    out.put(longs, 2);   // 2 pad, then 4 + 4
    out << 0xFFFFFFFFUL;
    ASSERT_EQ(out.length(), 1u + 1 + 4 + 2 + 8 + 4);

    CORBA_MarshalInBuffer in(out.buffer(), out.length());
    char c;
    short s[2] = {};
    long l[2] = {};
    unsigned long ul = 0;
    in >> c;
    in.get(s, 2);
    in.get(l, 2);
    in >> ul;
    EXPECT_EQ(s[1], -2);
    EXPECT_EQ(l[0], -2L);  // sign-extended from the 4 bytes on the wire
    EXPECT_EQ(l[1], 0x7FFFFFFFL);
    EXPECT_EQ(ul, 0xFFFFFFFFUL);
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
    CORBA_MarshalInBuffer again(out.buffer() + 12, 8);
    char big[16];
    again.getCString(big, sizeof big);  // max above the count: terminated
    EXPECT_STREQ(big, "abc");

    char small[3] = {'q', 'q', 'q'};
    in.getCString(small, 3);  // max below the count: no NUL, rest skipped
    EXPECT_EQ(std::string(small, 3), "ski");
    char c = 0;
    in >> c;
    EXPECT_EQ(c, 'z');
}

TEST(CORBA_MarshalOutBuffer, GrowthRule) {
    CORBA_MarshalOutBuffer a;
    a.owns_buffer(1);
    EXPECT_EQ(a.capacity(), 255u);
    std::string text(255, 'k');
    a.put(text.data(), 255);
    EXPECT_EQ(a.capacity(), 255u);
    a << 'x';
    EXPECT_EQ(a.capacity(), 510u);
    EXPECT_EQ(std::string(a.buffer(), 255), text);
    EXPECT_EQ(a.buffer()[255], 'x');

    CORBA_MarshalOutBuffer b;  // one big put grows to what it needs
    b.owns_buffer(1);
    b.put(text.data(), 255);
    const std::string more(1000, 'm');
    b.put(more.data(), 1000);
    EXPECT_EQ(b.capacity(), 1255u);
    EXPECT_EQ(std::string(b.buffer() + 255, 1000), more);
}

TEST(CORBA_MarshalOutBuffer, CreatorTakesTheBlock) {
    char* block;
    CORBA::ULong length;
    {
        CORBA_MarshalOutBuffer out;
        out << 0x01020304L << "value";
        block = out.buffer();
        length = out.length();
    }
    // The destructor left the block alone: it decodes after the buffer died.
    CORBA_MarshalInBuffer in(block, length);
    in.owns_buffer(1);  // and this one frees it
    long l = 0;
    in >> l;
    EXPECT_EQ(l, 0x01020304L);
    EXPECT_STREQ(in.getString(), "value");
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

    // The target of a short read is zeroed.
    char three[3] = {1, 2, 3};
    CORBA_MarshalInBuffer in(three, 3);
    long l = 99;
    char bytes[5];
    std::memset(bytes, 'x', sizeof bytes);
    expectMarshal([&] { in >> l; });
    EXPECT_EQ(l, 0);
    expectMarshal([&] { in.get(bytes, 5); });
    for (char b : bytes) EXPECT_EQ(b, 0);

    // A string count beyond the block is refused; nothing lands past max.
    CORBA_MarshalOutBuffer lie;
    lie.owns_buffer(1);
    lie << 0x7FFFFFF0UL << "abc";
    for (int form = 0; form < 3; ++form) {
        CORBA_MarshalInBuffer li(lie.buffer(), lie.length());
        char target[4] = {'k', 'k', 'k', 'k'};
        char* p = target;
        if (form == 0) expectMarshal([&] { li >> p; });
        if (form == 1) expectMarshal([&] { li.getString(); });
        if (form == 2) expectMarshal([&] { li.getCString(target, 2); });
        EXPECT_EQ(target[2], 'k');
    }
}
