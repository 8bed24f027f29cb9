// A raw GIOP 1.0 client connection on loopback, for what no stub would send.
#ifndef KELVANOR_TEST_RAWCONN_H
#define KELVANOR_TEST_RAWCONN_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include <poll.h>
#include <sys/socket.h>

#include "handcdr.h"
#include "sockets.h"

namespace handcdr {

constexpr int kReplyMs = 5000;
constexpr int kQuietMs = 300;

struct Message {
    uint8_t type = 0xff;
    bool little = true;
    uint32_t size = 0;
    std::string bytes;  // header and body

    CdrIn body() const { return CdrIn(bytes, little, 12); }
};

class Conn {
public:
    bool open(uint16_t port) {
        _fd.reset(ktest::connectLoopback(port));
        timeval limit{kReplyMs / 1000, 0};
        return _fd.fd >= 0 &&
               ::setsockopt(_fd.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
    }
    bool send(const std::string& bytes) { return ktest::sendAll(_fd.fd, bytes); }

    bool receive(Message& m) {
        if (!fill(12)) return false;
        m.little = _in[6] != 0;
        m.type = static_cast<uint8_t>(_in[7]);
        m.size = CdrIn(_in.substr(0, 12), m.little, 8).ulong();
        if (_in.compare(0, 6, std::string("GIOP\1\0", 6)) != 0 || m.size > (64u << 20)) {
            _why = "not a GIOP 1.0 header";
            return false;
        }
        if (!fill(12 + m.size)) return false;
        m.bytes = _in.substr(0, 12 + m.size);
        _in.erase(0, 12 + m.size);
        return true;
    }

    // Nothing arrives for `ms`, and the connection stays open.
    bool quiet(int ms = kQuietMs) {
        pollfd p{_fd.fd, POLLIN, 0};
        return ::poll(&p, 1, ms) == 0 && _in.empty();
    }

    // The peer closes in time; `rest` gets what came before the close.
    bool closed(std::string* rest = nullptr) {
        while (fill(_in.size() + 1)) {
        }
        if (rest) *rest = _in;
        return _closed;
    }

    void abort() {
        linger l{1, 0};
        ::setsockopt(_fd.fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
        _fd.reset();
    }
    void close() { _fd.reset(); }
    const std::string& why() const { return _why; }

private:
    bool fill(size_t n) {
        char buf[65536];
        while (_in.size() < n) {
            ssize_t got = ::recv(_fd.fd, buf, sizeof buf, 0);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) {  // a time-out is the only failure that is no close
                _closed = got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
                _why = got == 0 ? "closed by the server" : std::string("recv: ") + strerror(errno);
                return false;
            }
            _in.append(buf, static_cast<size_t>(got));
        }
        return true;
    }

    ktest::Fd _fd;
    std::string _in;  // received and not yet taken as a message
    bool _closed = false;
    std::string _why;
};

inline ::testing::AssertionResult next(Conn& c, uint8_t type, Message& m) {
    if (!c.receive(m)) return ::testing::AssertionFailure() << "nothing came: " << c.why();
    if (m.type == type) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "message type " << int(m.type) << ", not " << int(type);
}

// The next reply, which must be to id, without contexts, with that status
// (0 NO_EXCEPTION, 2 SYSTEM_EXCEPTION); `body` is left at what follows.
inline ::testing::AssertionResult reply(Conn& c, uint32_t id, uint32_t status, CdrIn& body) {
    Message m;
    ::testing::AssertionResult got = next(c, kReply, m);
    if (!got) return got;
    body = m.body();
    const uint32_t contexts = body.ulong(), requestId = body.ulong(), result = body.ulong();
    if (body.ok() && contexts == 0 && requestId == id && result == status) return got;
    return ::testing::AssertionFailure() << "reply with " << contexts << " contexts to "
                                         << requestId << ", status " << result;
}

}  // namespace handcdr

#endif
