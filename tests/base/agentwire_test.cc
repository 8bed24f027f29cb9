// The agent's messages on the wire, and the datagram and framed TCP
// transports that carry them, over 127.0.0.1.
#include "dsmsg.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "dsaddr.h"
#include "dsname.h"
#include "sockets.h"
#include "tbtcpstr.h"
#include "tbudpstr.h"

namespace {

using Bytes = std::string;

Bytes be32(unsigned v) {
    return Bytes{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}
Bytes tag(char c) { return Bytes{c, 0, 0, 0}; }
Bytes cstr(const std::string& s) {
    unsigned size = (s.size() + 1 + 3) & ~3u;
    return be32(size) + s + Bytes(size - s.size(), '\0');
}
Bytes tbstr(const std::string& s) { return be32(s.size()) + cstr(s); }
Bytes null() { return tag(':') + cstr("::"); }
Bytes framed(const Bytes& body) { return be32(body.size() + 4) + body; }
Bytes header(const std::string& cls) { return tag(':') + cstr(cls) + tbstr("Kelvanor 2.0"); }

using ktest::loopbackAddr;
using RawUdp = ktest::Udp;

// Padding is not cleared on writing, so each message gets a fresh stream
// whose buffer is all zeros.
Bytes sentBy(RawUdp& raw, const TBTransObject& obj) {
    TBudpstream s;
    EXPECT_EQ(s.bind(0, "127.0.0.1"), 0);
    sockaddr_in to = loopbackAddr(raw.port);
    EXPECT_EQ(s.send(&to, obj), 0);
    return raw.take();
}

}  // namespace

TEST(DSMessage, DatagramsHaveTheHandWrittenBytes) {
    RawUdp raw;
    DSAMessage probe(DSAMessage::LOCATE, nullptr, nullptr, 0);
    EXPECT_EQ(sentBy(raw, probe), framed(header("DSAMessage") + be32(6) + be32(probe.msgNum()) +
                                            null() + be32(4) + Bytes(4, '\0')));

    DSRequest req(DSRequest::ARE_YOU_ALIVE, nullptr, nullptr);
    EXPECT_EQ(sentBy(raw, req), framed(header("DSRequest") + be32(1) + be32(req.msgNum()) +
                                          be32(4) + Bytes(4, '\0') + be32(2) + null()));
    // A reply has its own number, its request's number and token.
    DSRequest tokened(DSRequest::GET_PROVIDER, nullptr, reinterpret_cast<void*>(0x11223344));
    DSReply rep(DSReply::ALIVE, tokened, -98, nullptr);
    EXPECT_EQ(rep.msgNum(), tokened.msgNum() + 1);
    unsigned token = 0x11223344;
    EXPECT_EQ(sentBy(raw, rep),
              framed(header("DSReply") + be32(2) + be32(rep.msgNum()) + be32(4) +
                     Bytes(reinterpret_cast<char*>(&token), 4) + be32(4) +
                     be32(tokened.msgNum()) + be32(unsigned(-98)) + null()));
    // The two families count separately.
    DSAMessage next(DSAMessage::LOCATE, nullptr, nullptr, 0);
    EXPECT_EQ(next.msgNum(), probe.msgNum() + 1);
}

TEST(TBudpstream, RefusesWhatDoesNotFit) {
    TBudpstream s;
    ASSERT_EQ(s.bind(0, "not-dotted"), 0);  // every interface
    RawUdp raw;
    int st = 0;
    EXPECT_EQ(s.receive(st, nullptr), nullptr);
    EXPECT_EQ(st, TBudpstream::NOTHING_TO_READ);
    DSRequest req(DSRequest::ARE_YOU_ALIVE, nullptr, nullptr);
    EXPECT_EQ(s.send(req), TBudpstream::NOT_CONNECTED);

    auto receive = [&](const Bytes& b) {
        raw.give(s.port(), b);
        usleep(20000);
        return std::unique_ptr<TBTransObject>(s.receive(st, nullptr));
    };
    const Bytes good = header("DSRequest") + be32(1) + be32(7) + be32(4) + Bytes(4, 'x') + be32(2) + null();
    EXPECT_TRUE(receive(framed(good)) && st == 0);
    // A datagram cut by the receive size (its length word disagrees), and a
    // data length beyond the datagram (no object).
    for (const Bytes& bad : {framed(good + Bytes(9000, '\0')),
                             framed(header("DSRequest") + be32(1) + be32(7) + be32(1000) + Bytes(8, 'x'))}) {
        EXPECT_FALSE(receive(bad));
        EXPECT_EQ(st, TBudpstream::BAD_MESSAGE);
    }
    // Another version reads with empty data.
    Bytes other = good;
    other[other.find("Kelvanor") + 1] = 'E';
    auto odd = receive(framed(other));
    ASSERT_NE(dynamic_cast<DSMessage*>(odd.get()), nullptr);
    EXPECT_EQ(static_cast<DSMessage*>(odd.get())->data().length(), 0);

    sockaddr_in to = loopbackAddr(raw.port);
    ASSERT_EQ(s.connect(&to), 0);
    EXPECT_EQ(s.send(&to, req), TBudpstream::CONNECTED);
}

TEST(TBudpstream, ScramblerThroughASecondBufferLeavesTheMessage) {
    TBudpstream a, b;
    ASSERT_EQ(a.bind(0, "127.0.0.1"), 0);
    ASSERT_EQ(b.bind(0, "127.0.0.1"), 0);
    TBCrypt* copy = new TBCrypt(0);
    a.crypt(copy);
    b.crypt(copy);
    DSAddr sent(4242, inet_addr("10.1.2.3"));
    sockaddr_in to = loopbackAddr(b.port());
    ASSERT_EQ(a.send(&to, sent), 0);
    ASSERT_EQ(a.send(&to, sent), 0);  // the buffers changed places once
    for (int i = 0; i < 2; ++i) {
        int st = -1;
        std::unique_ptr<TBTransObject> got;
        for (int t = 0; t < 100 && !got; ++t, usleep(10000)) got.reset(b.receive(st, nullptr));
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(static_cast<DSAddr*>(got.get())->compare(sent), 0);
    }
}

namespace {
// A connected pair: a non-blocking stream and the raw other end.
struct TcpPair {
    TBtcpstream listener, stream;
    int peer = -1;
    TcpPair() {
        listener.listen(0, "127.0.0.1");
        stream.blocking(0);
        stream.connect(inet_addr("127.0.0.1"), listener.port());
        listener.Accept(peer);
    }
    ~TcpPair() { close(peer); }
    void give(const Bytes& b) { (void)!write(peer, b.data(), b.size()); }
};
}  // namespace

TEST(TBtcpstream, ReadsResumeAndBadLengthsAreRefused) {
    TcpPair p;
    ASSERT_GE(p.peer, 0);
    EXPECT_GT(p.listener.port(), 0);
    int st = 0;
    EXPECT_EQ(p.stream.receive(st), nullptr);
    EXPECT_EQ(st, TBtcpstream::NOTHING_TO_READ);

    // A message bigger than the 1024-byte buffer, fed in three pieces.
    DSName big(std::string(3000, 'n').c_str(), DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr);
    const Bytes msg = framed(tag(':') + cstr("DSName") + tbstr(std::string(3000, 'n')) + be32(1) +
                             be32(2) + null());
    for (size_t from : {0, 2}) {  // within the length word, then within the body
        p.give(msg.substr(from, from ? 100 : 2));
        usleep(20000);
        EXPECT_EQ(p.stream.receive(st), nullptr);
        EXPECT_EQ(st, TBtcpstream::PARTIAL_READ);
    }
    p.give(msg.substr(102));
    std::unique_ptr<TBTransObject> got(p.stream.waitForObject(st, 2));
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(static_cast<DSName*>(got.get())->compare(big), 0);

    // A data length beyond the message, then a length word above the limit:
    // refused before anything is allocated.
    p.give(framed(header("DSRequest") + be32(1) + be32(7) + be32(1000) + Bytes(8, 'x')));
    EXPECT_EQ(p.stream.waitForObject(st, 2), nullptr);
    EXPECT_EQ(st, TBtcpstream::NO_OBJECT);
    p.give(be32(0x7fffffff));
    EXPECT_EQ(p.stream.waitForObject(st, 2), nullptr);
    EXPECT_EQ(st, TBtcpstream::SYSCALL_FAILED);
}

// (What a framed send writes, the test agent reads in the listing tests.)
TEST(TBtcpstream, APeerGoneMidMessage) {
    TcpPair p;
    p.give(be32(64));
    close(p.peer);
    p.peer = -1;
    int st = 0;
    EXPECT_EQ(p.stream.waitForObject(st, 2), nullptr);
    EXPECT_EQ(st, TBtcpstream::BROKEN);
    EXPECT_EQ(p.stream.close(), 0);
    EXPECT_EQ(p.stream.close(), TBtcpstream::NOT_OPEN);
}

TEST(TBtcpstream, AFullSocketQueuesInOrderAndBlockingFlushes) {
    TcpPair p;
    DSName name(std::string(60000, 'q').c_str(), DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr);
    int rc = 0, sent = 0;
    while ((rc = p.stream.send(name, 10)) == 0 && ++sent < 1000) {}
    EXPECT_EQ(rc, TBtcpstream::WOULD_BLOCK);
    p.stream.maxQueueSize(2);
    EXPECT_EQ(p.stream.send(name, 10), TBtcpstream::QUEUED);
    // The kernel may take a little more meanwhile; the queue fills anyway.
    for (int i = 0; i < 200 && (rc = p.stream.send(name, 10)) != TBtcpstream::QUEUE_FULL; ++i) {}
    EXPECT_EQ(rc, TBtcpstream::QUEUE_FULL);
    EXPECT_EQ(p.stream.queued(), 50);
    // A reader drains; going blocking writes the rest.
    std::thread reader([fd = p.peer] {
        char buf[65536];
        while (read(fd, buf, sizeof buf) > 0) {}
    });
    p.stream.blocking(1);
    EXPECT_EQ(p.stream.queued(), 0);
    p.stream.close();
    reader.join();
}
