// The binary object stream over memory buffers: wire bytes, C strings and
// reads past the end (lying counts are the fuzz target's).
#include "tbipcstr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

TEST(TBipcstream, ValuesHaveFixedWireBytes) {
    // Foreign memory full of 0xEE shows which slot bytes are left alone.
    char area[48];
    std::memset(area, 0xEE, sizeof area);
    TBipcbuf buf(area, sizeof area, nullptr, 0, 0);
    TBipcstream s(&buf);
    s << 0x01020304 << short(-2) << 'A' << (unsigned char)200 << -5L << 1.5f << 1.0;
    s << 0x80000001UL;
    const std::vector<unsigned char> expect = {
        0x01, 0x02, 0x03, 0x04,  // int, big-endian
        0xFF, 0xFE, 0xEE, 0xEE,  // short at the start of its slot
        'A',  0xEE, 0xEE, 0xEE,  // char in the first byte
        200,  0xEE, 0xEE, 0xEE,  //
        0xFF, 0xFF, 0xFF, 0xFB,  // long in 4 bytes
        0x00, 0x00, 0xC0, 0x3F,  // float 1.5, least significant byte first
        0, 0, 0, 0, 0, 0, 0xF0, 0x3F,  // double 1.0, no extra alignment
        0x80, 0x00, 0x00, 0x01};
    EXPECT_EQ(std::vector<unsigned char>(buf.write_base, buf.write_ptr), expect);

    TBipcbuf in(nullptr, 0, area, sizeof area, 0);
    in.read_end += buf.writeCount();
    TBipcstream r(&in);
    int i = 0;
    short sh = 0;
    char c = 0;
    unsigned char uc = 0;
    long l = 0;
    unsigned long ul = 0;
    float f = 0;
    double d = 0;
    r >> i >> sh >> c >> uc >> l >> f >> d >> ul;
    EXPECT_TRUE(i == 0x01020304 && sh == -2 && c == 'A' && uc == 200 && f == 1.5f && d == 1.0);
    EXPECT_EQ(l, -5L);  // sign-extended from 32 bits
    EXPECT_EQ(ul, 0x80000001UL);
    EXPECT_EQ(in.readAvail(), 0);
}

// The padded size of C strings is checked in the agent's wire bytes.
TEST(TBipcstream, AShortLimitSkipsTheWholeStringAndReadsPastTheEndLeaveAll) {
    TBipcbuf out(64, 0);
    TBipcstream(&out).putCString("abcdefgh") << 42 << '\x07';
    TBipcbuf in(nullptr, 0, out.write_base, out.writeCount() - 2, 0);  // the last word cut short
    in.read_end += out.writeCount() - 2;
    TBipcstream r(&in);
    char small[4];
    std::memset(small, 'z', sizeof small);
    r.getCString(small, 3);
    EXPECT_EQ(std::string(small, 4), "abcz");
    int after = 0, b = -1;
    double d = 3.0;
    testing::internal::CaptureStdout();
    r >> after >> b >> d;
    std::string said = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(after == 42 && b == -1 && d == 3.0);
    EXPECT_EQ(in.readAvail(), 2);
    EXPECT_EQ(said, "TBipcbuf::underflow: Underflow occured\n"
                    "TBipcbuf::underflow: Underflow occured\n");
}
