#include "tbfstrm.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "except.h"
#include "process.h"
#include "repofile.h"
#include "tbtinfo.h"

namespace {

using repofile::u32;

class TBfstreamTest : public ::testing::Test {
protected:
    ktest::TempDir dir{"tbfstrm"};
    std::string path = dir.file("f");
};

TEST_F(TBfstreamTest, ValuesHaveFixedWidthsAndRoundTrip) {
    {
        TBfstream out(path.c_str(), O_RDWR | O_CREAT);
        out << 'x' << static_cast<short>(-2) << -7 << -5L << 0xffffffffUL << -2.25;
        const long longs[2] = {-1, 0x7fffffff};
        out.put(longs, 2);
        out << "abc" << "" << static_cast<const char*>(nullptr);
        out << static_cast<const TBTransObject*>(nullptr);
    }
    // 1 + 2 + 4 + 4 + 4 + 8 + 8, the strings 7 + 4 + 4, the null object 7
    std::string bytes = ktest::readFile(path);
    EXPECT_EQ(bytes.size(), 53u);
    EXPECT_EQ(bytes.substr(31, 7), u32(3) + "abc");
    EXPECT_EQ(bytes.substr(46), ":" + u32(2) + "::");

    TBfstream in(path.c_str(), O_RDONLY);
    char c;
    short s;
    int i;
    long l, longs[2];
    unsigned long ul;
    double d;
    char* a = nullptr;
    char* e = CORBA::string_alloc(0);  // a non-null target is replaced
    in >> c >> s >> i >> l >> ul >> d;
    in.get(longs, 2);
    in >> a >> e >> e;
    EXPECT_EQ(in.readTransObj(), nullptr);
    EXPECT_EQ(std::string(1, c) + std::to_string(s) + std::to_string(i) + std::to_string(d),
              "x-2-7-2.250000");
    EXPECT_EQ(l, -5L);            // the sign comes back from 32 bits
    EXPECT_EQ(ul, 0xffffffffUL);  // and is not invented for unsigned
    EXPECT_EQ(longs[0], -1);
    EXPECT_EQ(std::string(a) + "|" + e, "abc|");
    delete[] a;
    delete[] e;
}

TEST_F(TBfstreamTest, WhatTheFileLacksReadsAsZeroes) {
    ASSERT_TRUE(ktest::writeFile(path, std::string("\x01\x02", 2)));
    TBfstream in(path.c_str(), O_RDONLY);
    unsigned int v = 0xdeadbeef;
    in >> v;
    const unsigned char expect[4] = {1, 2, 0, 0};
    EXPECT_EQ(std::memcmp(&v, expect, 4), 0);
    char p[4] = {'a', 'b', 'c', 'd'};
    in.get(p, 4);
    EXPECT_EQ(std::string(p, 4) + char(in.get()), std::string(5, '\0'));
}

TEST_F(TBfstreamTest, LengthsTheFileCannotBackThrowInsteadOfAllocating) {
    for (uint32_t len : {0xfffffff0u, 0x7fffffffu, 3u << 20}) {
        ASSERT_TRUE(ktest::writeFile(path, u32(len) + std::string(100, 'q')));
        TBfstream in(path.c_str(), O_RDONLY);
        char* s = nullptr;
        EXPECT_THROW(in >> s, CORBA_MARSHAL) << len;
        EXPECT_EQ(s, nullptr);
    }
    std::string big(200 * 1024, 'z');  // long, but really there: read whole
    ASSERT_TRUE(ktest::writeFile(path, u32(big.size()) + big));
    TBfstream in(path.c_str(), O_RDONLY);
    char* s = nullptr;
    in >> s;
    EXPECT_EQ(std::string(s), big);
    delete[] s;
}

TEST_F(TBfstreamTest, GetCStringCutsAtMaxAndSkipsTheRest) {
    ASSERT_TRUE(ktest::writeFile(path, u32(5) + "abcde" + u32(2) + "xy" + u32(77)));
    TBfstream in(path.c_str(), O_RDONLY);
    char buf[8], buf2[8];
    unsigned int next = 0;
    in.getCString(buf, 3);
    in.getCString(buf2, 3);
    in >> next;
    EXPECT_EQ(std::string(buf) + "|" + buf2 + "|" + std::to_string(next), "abc|xy|77");
}

TEST_F(TBfstreamTest, BufferingIsInvisibleOnTheDescriptor) {
    ASSERT_TRUE(ktest::writeFile(path, "0123456789"));
    int fd = open(path.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    {
        TBfstream strm(fd);
        char two[2];
        strm.get(two, 2);
        strm << 'x';  // right behind what was read, not behind the read-ahead
        ASSERT_TRUE(strm.flush());
        EXPECT_EQ(ktest::readFile(path), "01x3456789");
        strm << 'y';
        strm.get(two, 2);  // a read hands pending output over first
        EXPECT_EQ(std::string(two, 2), "45");
        std::string big(100 * 1024, 'b');  // larger than the buffer
        strm.put(big.data(), big.size());
        strm << 'z';
    }
    EXPECT_EQ(ktest::readFile(path).size(), 6 + 100 * 1024 + 1u);
    EXPECT_EQ(write(fd, "!", 1), 1);  // not owned: still open
    close(fd);
}

}  // namespace
