#include "common.h"

#include <iostream>
#include <streambuf>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "orb_loopback.h"

namespace kfuzz {

Input::Input(const uint8_t* data, size_t size, size_t maxScript)
    : _data(data), _size(size), _op(1), _scriptEnd(0) {
    if (size == 0) return;
    size_t script = data[0] % (maxScript + 1);
    _scriptEnd = 1 + script < size ? 1 + script : size;
}

uint8_t Input::op() { return _op < _scriptEnd ? _data[_op++] : 0; }

CORBA_ORB* orb() {
    static CORBA_ORB* made = ktest::loopbackOrb();
    return made;
}

int init() {
    quiet();
    orb();
    return 0;
}

namespace {
class NullBuf : public std::streambuf {
protected:
    int overflow(int c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};
}  // namespace

void quiet() {
    static NullBuf sink;
    std::cout.rdbuf(&sink);
    std::cerr.rdbuf(&sink);
    std::clog.rdbuf(&sink);
}

bool socketPairWith(const uint8_t* data, size_t size, int* mine, int* peer) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) return false;
    // Room for the whole input whatever the system's default.
    int room = 1 << 20;
    (void)setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    (void)setsockopt(fds[0], SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    size_t sent = 0;
    while (sent < size) {
        ssize_t n = ::send(fds[1], data + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n <= 0) {
            ::close(fds[0]);
            ::close(fds[1]);
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    ::shutdown(fds[1], SHUT_WR);
    *mine = fds[0];
    *peer = fds[1];
    return true;
}

}  // namespace kfuzz
