// The IIOP stream: its CDR core in memory, and its framing over loopback.
#include "zebstrm.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <sys/socket.h>

#include "dispatch.h"
#include "except.h"
#include "giop.h"
#include "handcdr.h"
#include "sockets.h"
#include "zebglob.h"
#include "zebidl.h"

namespace {

std::string le32(uint32_t v) { return {char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }

using handcdr::giop;

std::string written(const ZEBIIOPstream& s) { return std::string(s.outData(), s.outLength()); }

TEST(ZEBIIOPstreamCore, AlignmentCountsFromTheOrigin) {
    // An empty array still aligns: one pad byte at an odd position.
    ZEBIIOPstream a;
    a << char(1);
    a.put(static_cast<const short*>(nullptr), 0);
    EXPECT_EQ(2u, a.outLength());

    // "" and a null string stay different; C++ longs take 4 bytes each.
    ZEBIIOPstream z;
    const long longs[] = {1, -2147483647L - 1};
    z << "" << static_cast<const char*>(nullptr);
    z.put(longs, 2);
    ASSERT_EQ(20u, z.outLength());
    EXPECT_EQ(le32(1) + '\0', written(z).substr(0, 5));
    EXPECT_EQ(le32(0) + le32(1) + le32(0x80000000u), written(z).substr(8));
    std::string data = written(z);
    ZEBIIOPstream r;
    r.set_read_buffer(&data[0], data.size(), 0);
    char *empty = nullptr, *null = nullptr;
    r >> empty >> null;
    EXPECT_STREQ("", empty);
    EXPECT_EQ(nullptr, null);
    CORBA::string_free(empty);
}

// Big copies take their own road (vectors, or backward just past the source
// modulo 4 KiB).
TEST(ZEBIIOPstreamCore, BigCopiesKeepEveryByteWhereverTheBlocksLie) {
    std::vector<char> buf(3 + 18 * 4096 + 4096 + 70000);
    const char* src = &buf[3];
    for (size_t i = 0; i < 70000; ++i) buf[3 + i] = char(i * 131 + 7);
    for (size_t n : {1024u, 1031u, 8192u, 65549u})
        for (size_t gap : {0u, 1u, 8u, 31u, 32u, 33u, 4095u}) {
            char* dst = &buf[3 + 18 * 4096 + gap];  // past src by gap modulo 4 KiB
            std::fill(dst - 1, dst + n + 1, '\xee');
            ZEBcdr::copy(dst, src, n);
            EXPECT_EQ(0, std::memcmp(dst, src, n)) << n << " " << gap;
            EXPECT_EQ('\xee', dst[-1]);
            EXPECT_EQ('\xee', dst[n]);
        }
}

// The message bound holds even when the next message is already buffered.
TEST(ZEBIIOPstreamCore, MessageBoundStopsAValueInsideTheBuffer) {
    std::string data = le32(7) + le32(8);
    ZEBIIOPstream r;
    r.set_read_buffer(&data[0], 6, 0);  // two bytes of the second long
    CORBA::ULong v = 0;
    r >> v;
    EXPECT_EQ(7u, v);
    EXPECT_THROW(r >> v, CORBA_MARSHAL);
    EXPECT_EQ(2u, r.messageBytesLeft());
    CORBA::UShort u = 0;
    r >> u;  // what is left can still be read
    EXPECT_EQ(8u, u);
}

// Sends its bytes to the peer from a timer, i.e. while the stream waits.
struct LateWriter : dpIOHandler {
    int fd = -1;
    std::string bytes;
    int fired = 0;
    ~LateWriter() override { dpDispatcher::instance()->stopTimer(this); }
    void timerExpired(long, long) override {
        ++fired;
        if (!bytes.empty()) {
            ASSERT_EQ(ssize_t(bytes.size()), ::send(fd, bytes.data(), bytes.size(), 0));
        }
    }
};

class ZEBIIOPstreamLoopback : public ::testing::Test {
protected:
    void SetUp() override {
        _callback = ZEBGlobalTable::has_callback;
        _listener.reset(ktest::loopbackSocket(_port, 4));
        ASSERT_GE(_listener.fd, 0);
    }
    void TearDown() override { ZEBGlobalTable::has_callback = _callback; }
    std::unique_ptr<ZEBIIOPstream> connectClient() {
        std::unique_ptr<ZEBIIOPstream> s(new ZEBIIOPstream);
        s->connect("127.0.0.1", _port, 5);
        peer.reset(::accept(_listener.fd, nullptr, nullptr));
        EXPECT_GE(peer.fd, 0);
        return s;
    }
    void send(const std::string& bytes) { ASSERT_TRUE(ktest::sendAll(peer.fd, bytes)); }

    ktest::Fd peer;

private:
    ktest::Fd _listener;
    unsigned short _port = 0;
    CORBA::Boolean _callback = 0;
};

TEST_F(ZEBIIOPstreamLoopback, TwoMessagesInOneReadNeedOneSystemCall) {
    auto s = connectClient();
    send(giop(IIOP::Reply, le32(11)) + giop(IIOP::Reply, le32(22) + le32(33)));
    CORBA::ULong a, b, c;
    s->receiveMessage(5);
    *s >> a;
    EXPECT_EQ(20u, s->bufferedBytes());
    // With the peer gone, only the block can give the second message.
    peer.reset();
    s->receiveMessage(5);
    *s >> b >> c;
    EXPECT_EQ(8u, s->msgHeader().message_size);
    EXPECT_EQ(11u + 22 + 33, a + b + c);
    EXPECT_THROW(s->receiveMessage(5), CORBA_COMM_FAILURE);
}

TEST_F(ZEBIIOPstreamLoopback, HeaderSplitAtEveryPointIsAssembled) {
    ZEBGlobalTable::has_callback = 1;  // waits run the dispatcher
    auto s = connectClient();
    for (size_t k = 1; k < 12; ++k) {
        std::string msg = giop(IIOP::Reply, le32(uint32_t(k)));
        send(msg.substr(0, k));
        LateWriter late;
        late.fd = peer.fd;
        late.bytes = msg.substr(k);
        dpDispatcher::instance()->startTimer(0, 0, &late);
        s->receiveMessage(5);
        CORBA::ULong v;
        *s >> v;
        EXPECT_EQ(1, late.fired);
        EXPECT_EQ(k, v);
    }
}

// Raw bytes past the block, and a string whose count covers no NUL.
TEST_F(ZEBIIOPstreamLoopback, BodiesLargerThanTheBlockKeepEveryByte) {
    auto s = connectClient();
    std::string big(10000, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = char(i * 7);
    const std::string text(140000, 's');
    send(giop(IIOP::Reply, big) +
         giop(IIOP::Reply, le32(uint32_t(text.size())) + text + le32(77)));
    std::string got(big.size(), '\0');
    s->receiveMessage(5);
    s->get(&got[0], unsigned(got.size()));
    EXPECT_EQ(big, got);
    s->receiveMessage(5);
    char* str = nullptr;
    CORBA::ULong after = 0;
    *s >> str >> after;
    ASSERT_NE(nullptr, str);
    EXPECT_EQ(text.size(), std::strlen(str));
    EXPECT_EQ(77u, after);
    CORBA::string_free(str);
}

// Block growth and refills land inside values and padding alike.
TEST_F(ZEBIIOPstreamLoopback, ValuesAcrossBlocksAlignFromTheMessageStart) {
    auto s = connectClient();
    ZEBIIOPstream w;
    std::string expect = "HEADER-BYTES";  // the reader's origin is the header's start
    w.put(expect.data(), 12);
    auto add = [&](const void* v, size_t n) {  // padded with blanks, as keys need
        expect.append((n - expect.size() % n) % n, ' ');
        expect.append(static_cast<const char*>(v), n);
    };
    for (int i = 0; i < 400; ++i) {
        const char c = char(i);
        const double d = i;
        const CORBA::Short h = CORBA::Short(-i);
        const CORBA::Long l = i;
        w << c << d << h << l;
        add(&c, 1), add(&d, 8), add(&h, 2), add(&l, 4);
    }
    ASSERT_EQ(expect, written(w));
    const std::string body = expect.substr(12);
    ASSERT_GT(body.size(), 3 * ZEBGlobalTable::tcp_read_size);
    send(giop(IIOP::Reply, body, IIOP::BYTE_ORDER != 0));
    s->receiveMessage(5);
    for (int i = 0; i < 400; ++i) {
        char c;
        double d;
        CORBA::Short h;
        CORBA::Long l;
        *s >> c >> d >> h >> l;
        ASSERT_EQ(char(i), c);
        ASSERT_EQ(double(i), d);
        ASSERT_EQ(-i, h);
        ASSERT_EQ(i, l);
    }
    EXPECT_EQ(0u, s->messageBytesLeft());
}

// A send the socket cannot take waits in the dispatcher, serving others.
TEST_F(ZEBIIOPstreamLoopback, SendTheSocketCannotTakeServesOthersMeanwhile) {
    ZEBGlobalTable::has_callback = 1;
    auto s = connectClient();
    const std::string body(16 << 20, 'q');
    struct Reader : dpIOHandler {
        int fd = -1;
        size_t got = 0;
        int inputReady(int) override {
            static char buf[1 << 16];
            ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
            got += n > 0 ? size_t(n) : 0;
            return n > 0 ? 0 : -1;
        }
    } reader;
    reader.fd = peer.fd;
    dpDispatcher::instance()->link(peer.fd, dpDispatcher::ReadMask, &reader);
    s->beginWrite(0);
    s->writeMessageHeader(IIOP::Request);
    s->put(body.data(), unsigned(body.size()));
    s->sendMessage(0);
    long sec = 10, usec = 0;
    while (reader.got < body.size() + 12 && dpDispatcher::instance()->dispatch(sec, usec)) {
    }
    dpDispatcher::instance()->unlink(peer.fd);
    EXPECT_EQ(body.size() + 12, reader.got);
    send(giop(IIOP::Reply, le32(7)));
    s->receiveMessage(0);
    CORBA::ULong v = 0;
    *s >> v;
    EXPECT_EQ(7u, v);
    EXPECT_FALSE(s->isBlocking());
}

// A long lent string goes out gathered, aligned as if copied; an abandoned
// message leaves nothing behind.
TEST_F(ZEBIIOPstreamLoopback, LongStringOfARequestGoesOutAsIfCopied) {
    auto s = connectClient();
    const std::string text(20000, 't');
    s->beginWrite(0);
    s->writeMessageHeader(IIOP::Request);
    *s << "abandoned" << ZEBlentString(text.c_str());
    ZEBIIOPstream w;
    for (ZEBIIOPstream* out : {s.get(), &w}) {
        out->beginWrite(0);
        out->writeMessageHeader(IIOP::Request);
        *out << CORBA::Octet(1) << ZEBlentString(text.c_str()) << ZEBlentString(text.c_str())
             << 2.5;
    }
    s->sendMessage(0);
    std::string expect = written(w);
    const uint32_t size = uint32_t(expect.size() - 12);
    std::memcpy(&expect[8], &size, 4);
    std::string got(expect.size(), '\0');
    ASSERT_EQ(ssize_t(got.size()), ::recv(peer.fd, &got[0], got.size(), MSG_WAITALL));
    EXPECT_EQ(expect, got);
}

}  // namespace
