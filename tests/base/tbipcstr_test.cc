// Memory buffers, their list, and the binary object stream: wire bytes,
// slot padding, C strings, growth, and reads past the end.
#include "tbipcstr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> written(const TBipcbuf& b) {
    return std::vector<unsigned char>(b.write_base, b.write_ptr);
}

// Makes what was written readable by a second buffer over the same bytes.
struct Loopback {
    TBipcbuf out{64, 0};
    TBipcbuf in{nullptr, 0, nullptr, 0, 0};
    TBipcstream w{&out};
    TBipcstream r{&in};
    void flip() {
        in.set_buffer(nullptr, 0, out.write_base, out.writeCount(), 0);
        in.read_end += out.writeCount();
    }
};

}  // namespace

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
    EXPECT_EQ(written(buf), expect);

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
    EXPECT_EQ(i, 0x01020304);
    EXPECT_EQ(sh, -2);
    EXPECT_EQ(c, 'A');
    EXPECT_EQ(uc, 200);
    EXPECT_EQ(l, -5L);  // sign-extended from 32 bits
    EXPECT_EQ(f, 1.5f);
    EXPECT_EQ(d, 1.0);
    EXPECT_EQ(ul, 0x80000001UL);
    EXPECT_EQ(in.readAvail(), 0);
}

TEST(TBipcstream, ArraysUseWholeSlots) {
    Loopback lb;
    const short shorts[2] = {1, -1};
    lb.w.put("hello", 5);
    lb.w.put("", 0);
    lb.w.put(shorts, 2);
    const std::vector<unsigned char> expect = {'h', 'e', 'l', 'l', 'o', 0, 0, 0,
                                               0, 1, 0, 0, 0xFF, 0xFF, 0, 0};
    EXPECT_EQ(written(lb.out), expect);

    lb.flip();
    char text[6] = {};
    short back[2] = {};
    lb.r.get(text, 5);
    EXPECT_EQ(lb.in.readAvail(), 8);  // 5 bytes read, 8 consumed
    lb.r.get(back, 2);
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(back[1], -1);
}

TEST(TBipcstream, CStringsRoundTheirSize) {
    struct Case {
        const char* text;
        int size;  // size word on the wire
    } cases[] = {{"", 4}, {"abc", 4}, {"abcd", 8}, {"abcdefg", 8}};
    for (const Case& c : cases) {
        Loopback lb;
        lb.w << c.text;
        ASSERT_EQ(lb.out.writeCount(), 4 + c.size) << c.text;
        lb.flip();
        int size = 0;
        lb.r >> size;
        EXPECT_EQ(size, c.size);
        EXPECT_STREQ(lb.in.read_ptr, c.text);
    }

    // A short max copies without a terminator and still skips the whole text.
    Loopback lb;
    lb.w.putCString("abcdefgh");
    lb.w << 42;
    lb.flip();
    char small[4];
    std::memset(small, 'z', sizeof small);
    lb.r.getCString(small, 3);
    EXPECT_EQ(std::string(small, 4), "abcz");
    int after = 0;
    lb.r >> after;
    EXPECT_EQ(after, 42);
}

TEST(TBipcstream, StringIntoNullPointerIsAllocated) {
    Loopback lb;
    lb.w << "kelvanor";
    lb.flip();
    char* s = nullptr;
    lb.r >> s;
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "kelvanor");
    delete[] s;
}

TEST(TBipcstream, WriteAreaGrowsAndKeepsData) {
    TBipcbuf buf(16, 0);
    TBipcstream s(&buf);
    for (int i = 0; i < 5; ++i) s << i;
    EXPECT_EQ(buf.write_size, 32);  // 4 < 16: doubled
    EXPECT_EQ(buf.writeCount(), 20);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(buf.write_base[4 * i + 3], i);

    TBipcbuf small(4, 0);
    TBipcstream t(&small);
    t << 1.0;  // 8 >= 4: old size + 2 * 8
    EXPECT_EQ(small.write_size, 20);
    EXPECT_EQ(small.writeCount(), 8);
}

TEST(TBipcstream, ReadPastEndLeavesTargetAndPosition) {
    char area[6] = {0, 0, 0, 7, 1, 2};
    TBipcbuf in(nullptr, 0, area, sizeof area, 0);
    in.read_end += sizeof area;
    TBipcstream r(&in);
    int a = 0, b = -1;
    double d = 3.0;
    testing::internal::CaptureStdout();
    r >> a >> b >> d;
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(a, 7);
    EXPECT_EQ(b, -1);
    EXPECT_EQ(d, 3.0);
    EXPECT_EQ(in.readAvail(), 2);
    EXPECT_EQ(out, "TBipcbuf::underflow: Underflow occured\n"
                   "TBipcbuf::underflow: Underflow occured\n");

    // A string whose size word promises more than is there.
    char lying[8] = {0, 0, 0x10, 0, 'a', 'b', 'c', 0};
    TBipcbuf in2(nullptr, 0, lying, sizeof lying, 0);
    in2.read_end += sizeof lying;
    TBipcstream r2(&in2);
    char* s = nullptr;
    testing::internal::CaptureStdout();
    r2 >> s;
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(s, nullptr);
}

TEST(TBipcstream, NullObjectTakesTagSlotAndName) {
    Loopback lb;
    lb.w << static_cast<const TBTransObject*>(nullptr);
    const std::vector<unsigned char> expect = {':', 0, 0, 0, 0, 0, 0, 4, ':', ':', 0, 0};
    EXPECT_EQ(written(lb.out), expect);
    lb.flip();
    EXPECT_EQ(lb.r.readTransObj(), nullptr);
    EXPECT_EQ(lb.in.readAvail(), 0);
}

TEST(TBipcbuf, ExpandReadCopiesFromStart) {
    TBipcbuf b(0, 8);
    std::memcpy(b.read_base, "abcdefgh", 8);
    b.read_end = b.read_base + 8;
    b.read_ptr = b.read_base + 5;  // 3 unread, but the copy takes the start
    ASSERT_EQ(b.expand_read(16), 1);
    EXPECT_EQ(b.read_size, 16);
    EXPECT_EQ(b.readAvail(), 3);
    EXPECT_EQ(std::string(b.read_ptr, 3), "abc");
    EXPECT_EQ(b.read_base[3], 0);
}

TEST(TBipcbufList, OddAtAndRemoveLastAreKept) {
    TBipcbufList list;
    TBipcbuf* a = new TBipcbuf(0, 0);
    TBipcbuf* b = new TBipcbuf(0, 0);
    TBipcbuf* c = new TBipcbuf(0, 0);
    list.add(b);
    list.add(c);
    list.addFirst(a);
    EXPECT_EQ(list.at(0), a);
    EXPECT_EQ(list.at(1), a);
    EXPECT_EQ(list.at(2), b);
    EXPECT_EQ(list.at(3), nullptr);
    EXPECT_EQ(list.at(-1), nullptr);

    EXPECT_EQ(list.removeLast(), c);
    EXPECT_EQ(list.count(), 2);
    EXPECT_EQ(list.last(), c);  // the walk ends on the removed buffer
    EXPECT_EQ(b->next, c);      // and the chain is not cut
    EXPECT_EQ(list.removeLast(), c);  // so the next call hands it out again
    EXPECT_EQ(list.last(), b);
    EXPECT_EQ(list.removeFirst(), a);
    EXPECT_EQ(list.count(), 0);
    EXPECT_EQ(list.first(), nullptr);
    EXPECT_EQ(list.removeLast(), nullptr);
    EXPECT_EQ(list.removeFirst(), nullptr);
    delete a;
    delete b;
    delete c;

    for (int i = 0; i < 3; ++i) list.add(new TBipcbuf(8, 8));
    list.removeAndFreeAll();
    EXPECT_EQ(list.count(), 0);
    EXPECT_EQ(list.at(0), nullptr);
}
