#include "tbfstrm.h"

#include <fcntl.h>
#include <sys/socket.h>
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
    EXPECT_EQ(ktest::readFile(path).size(), 53u);

    TBfstream in(path.c_str(), O_RDONLY);
    char c;
    short s;
    int i;
    long l, longs[2];
    unsigned long ul;
    double d;
    char* a = nullptr;
    char* e = nullptr;  // allocated by the first read, filled by the second
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

TEST_F(TBfstreamTest, ALongStringThatIsThereIsReadWhole) {
    std::string big(200 * 1024, 'z');
    ASSERT_TRUE(ktest::writeFile(path, u32(big.size()) + big));
    TBfstream in(path.c_str(), O_RDONLY);
    char* s = nullptr;
    in >> s;
    EXPECT_EQ(std::string(s), big);
    delete[] s;
}

TEST_F(TBfstreamTest, ACallersBufferIsFilledInPlace) {
    // "abc", "", then a length of 6 over a file that holds only "xy".
    ASSERT_TRUE(ktest::writeFile(path, u32(3) + "abc" + u32(0) + u32(6) + "xy"));
    TBfstream in(path.c_str(), O_RDONLY);
    char buf[32];
    std::memset(buf, '#', sizeof buf);
    char* p = buf;
    in >> p;
    ASSERT_EQ(p, buf);
    EXPECT_EQ(std::string(buf, 4), std::string("abc\0", 4));
    in >> p;
    EXPECT_EQ(p, buf);
    EXPECT_EQ(buf[0], '\0');
    in >> p;  // the missing tail reads as zeroes, up to the terminator at [6]
    EXPECT_EQ(p, buf);
    EXPECT_EQ(std::string(buf, 8), std::string("xy\0\0\0\0\0#", 8));
    EXPECT_EQ(in.madeUpBytes(), 4u);

    // A length the file cannot back throws before touching more than the
    // bytes that are there, and leaves the buffer terminated.
    ASSERT_TRUE(ktest::writeFile(path, u32(0x7fffffff) + "pq"));
    TBfstream bad(path.c_str(), O_RDONLY);
    p = buf;
    EXPECT_THROW(bad >> p, CORBA_MARSHAL);
    EXPECT_EQ(p, buf);
    EXPECT_EQ(std::string(buf, 4), std::string("pq\0\0", 4));

    // getCString cuts at its maximum and skips the rest of the string.
    ASSERT_TRUE(ktest::writeFile(path, u32(5) + "abcde" + u32(2) + "xy" + u32(77)));
    TBfstream cut(path.c_str(), O_RDONLY);
    unsigned int next = 0;
    cut.getCString(buf, 3);
    cut.getCString(buf + 4, 3);
    cut >> next;
    EXPECT_EQ(std::string(buf) + "|" + (buf + 4) + "|" + std::to_string(next), "abc|xy|77");
}

// What goes to a pipe or a socket is there for the peer after each <<, with
// no flush; a regular file still holds its output back (see below).
TEST_F(TBfstreamTest, PipesAndSocketsGetEachWriteAtOnce) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    ASSERT_EQ(fcntl(fds[0], F_SETFL, O_NONBLOCK), 0);
    {
        TBfstream out(fds[1]);
        out << 7 << "hi";
        char got[16];
        ASSERT_EQ(read(fds[0], got, sizeof got), 10);
        EXPECT_EQ(std::string(got, 10), u32(7) + u32(2) + "hi");
        out << 'z';
        EXPECT_EQ(read(fds[0], got, sizeof got), 1);
    }
    for (int fd : fds) close(fd);

    TBfstream file(path.c_str(), O_RDWR | O_CREAT);
    file << 7;
    EXPECT_EQ(ktest::readFile(path).size(), 0u);  // kept back on purpose
    ASSERT_TRUE(file.flush());
    EXPECT_EQ(ktest::readFile(path), u32(7));
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
