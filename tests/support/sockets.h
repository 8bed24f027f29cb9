// Raw TCP and UDP on 127.0.0.1 for tests that play the other side of a
// connection.
#ifndef KELVANOR_TEST_SOCKETS_H
#define KELVANOR_TEST_SOCKETS_H

#include <cerrno>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ktest {

// A descriptor, closed with its holder.
class Fd {
public:
    explicit Fd(int fd = -1) : fd(fd) {}
    ~Fd() { reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    void reset(int next = -1) {
        if (fd >= 0) ::close(fd);
        fd = next;
    }
    int fd;
};

inline sockaddr_in loopbackAddr(unsigned short port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

// Bound to 127.0.0.1 at a free port, which `port` receives; listening
// unless backlog is 0, when connections to it are refused. -1 on failure.
inline int loopbackSocket(unsigned short& port, int backlog = 16) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a = loopbackAddr(0);
    socklen_t len = sizeof a;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        (backlog > 0 && ::listen(fd, backlog) != 0) ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        if (fd >= 0) ::close(fd);
        return -1;
    }
    port = ntohs(a.sin_port);
    return fd;
}

// A port on 127.0.0.1 that nobody listens on right now; 0 if none found.
inline unsigned short freeLoopbackPort() {
    unsigned short port = 0;
    Fd probe(loopbackSocket(port, 0));
    return probe.fd >= 0 ? port : 0;
}

// A connected client socket, or -1.
inline int connectLoopback(unsigned short port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a = loopbackAddr(port);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) return fd;
    if (fd >= 0) ::close(fd);
    return -1;
}

// A datagram socket bound to addr at `port` (0: a free one, which `port`
// then holds); a receive waits a second at most.
struct Udp {
    explicit Udp(unsigned short at = 0, const char* addr = "127.0.0.1")
        : fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in a = loopbackAddr(at);
        a.sin_addr.s_addr = inet_addr(addr);
        socklen_t len = sizeof a;
        timeval limit{1, 0};
        ::setsockopt(fd.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        if (::bind(fd.fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
            getsockname(fd.fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
            port = ntohs(a.sin_port);
    }
    // One datagram, or empty.
    std::string take(int flags = 0) {
        char buf[9000];
        ssize_t n = ::recv(fd.fd, buf, sizeof buf, flags);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
    }
    void give(unsigned short to, const std::string& b) {
        sockaddr_in a = loopbackAddr(to);
        ::sendto(fd.fd, b.data(), b.size(), 0, reinterpret_cast<sockaddr*>(&a), sizeof a);
    }
    Fd fd;
    unsigned short port = 0;
};

// Every byte, or false. No SIGPIPE: the broker's first stream may have put
// that signal back at its default action in the test process.
inline bool sendAll(int fd, const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
        ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace ktest

#endif
