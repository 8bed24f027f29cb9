// The datagram transport of the agent's protocol. Every failure is a status
// number; texts appear only when the owner asks for them.
#include "tbudpstr.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "tbipcstr.h"
#include "tbsock.h"
#include "tbtinfo.h"

namespace {

sockaddr_in inetAddress(in_addr_t address, int port) {
    sockaddr_in sin;
    std::memset(&sin, 0, sizeof sin);
    sin.sin_family = AF_INET;
    sin.sin_addr.s_addr = address;
    sin.sin_port = htons(static_cast<uint16_t>(port));
    return sin;
}

}  // namespace

TBudpstream::TBudpstream()
    : _in(new TBipcstream), _out(new TBipcstream), _inBuf(new TBipcbuf(0, kPacketSize)),
      _outBuf(new TBipcbuf(kPacketSize, 0)) {
    _in->attach(_inBuf);
    _out->attach(_outBuf);
}

TBudpstream::TBudpstream(TBipcstream& in, TBipcstream& out)
    : _in(&in), _out(&out), _inBuf(new TBipcbuf(0, kPacketSize)),
      _outBuf(new TBipcbuf(kPacketSize, 0)) {
    _in->attach(_inBuf);
    _out->attach(_outBuf);
}

TBudpstream::~TBudpstream() {
    if (_open) ::close(_fd);  // the result changes nothing here
    delete _in;
    delete _out;
    delete _inBuf;
    delete _outBuf;
}

int TBudpstream::overflow(int) {
    _status = TOO_LARGE;
    std::cerr << "UDPstrm::overflow: Object does not fit in UDP packet." << std::endl;
    return -1;
}

int TBudpstream::underflow() {
    std::cerr << "TBudpstream::underflow: Inconsistent class definitions" << std::endl;
    return -1;
}

void TBudpstream::useStream(TBipcstream& in, TBipcstream& out) {
    tbsock::adopt(_in, in, _inBuf);
    tbsock::adopt(_out, out, _outBuf);
}

int TBudpstream::fail(int status, const char* text, bool sys) {
    tbsock::report(_report, text, sys);
    _status = status;
    return status;
}

int TBudpstream::bind(int port, const char* host) {
    if (_open) return fail(ALREADY_OPEN, "TBudpstream::bind: File already open", false);
    in_addr_t address = INADDR_ANY;
    if (host) {
        address = inet_addr(host);
        if (address == INADDR_NONE) address = INADDR_ANY;  // not dotted: every interface
    }
    sockaddr_in sin = inetAddress(address, port);
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) return fail(SYSCALL_FAILED, "TBudpstream: socket", true);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&sin), sizeof sin) < 0) {
        fail(SYSCALL_FAILED, "TBudpstream::listen: bind", true);
        ::close(fd);
        return _status;
    }
    int on = 1;
    (void)setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);  // unused on purpose
    if (port == 0) {
        socklen_t len = sizeof sin;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&sin), &len) == 0) port = ntohs(sin.sin_port);
    }
    _port = port;
    _fd = fd;
    _open = 1;
    if (!_blocking && tbsock::setNonBlocking(fd, true) < 0)
        return fail(SYSCALL_FAILED, "TBudpstream::listen: fcntl", true);
    _status = OK;
    return OK;
}

int TBudpstream::close() {
    if (!_open) return fail(NOT_OPEN, "TBudpstream::close: File not open", false);
    if (::close(_fd) < 0) return fail(SYSCALL_FAILED, "TBudpstream::close: close", true);
    _open = _connected = 0;
    _fd = -1;
    _status = OK;
    return OK;
}

int TBudpstream::connect(const char* host, int port) {
    unsigned address;
    if (!tbsock::resolve(host, address))
        return fail(NO_HOST, tbsock::noHost("TBudpstream::connect", host).c_str(), false);
    sockaddr_in sin = inetAddress(address, port);
    return connect(&sin);
}

int TBudpstream::connect(const sockaddr_in* addr) {
    if (!_open) return fail(NOT_OPEN, "TBudpstream::connect: File not open", false);
    if (::connect(_fd, reinterpret_cast<const sockaddr*>(addr), sizeof *addr) < 0) {
        if (errno == ECONNREFUSED) return fail(REFUSED, "TBudpstream::connect: Connection broken", true);
        return fail(SYSCALL_FAILED, "TBudpstream::connect: connect", true);
    }
    _connected = 1;
    _status = OK;
    return OK;
}

int TBudpstream::_writeIntoBuffer(const TBTransObject& obj) {
    _out->clearClassTables();
    _out->clearObjectTables();
    _out->attach(_outBuf);
    char* start = _outBuf->write_base;
    _outBuf->write_ptr = start;
    *_out << 0;
    _out->writeTransObj(&obj);
    if (_status != OK) return _status;
    if (_crypt.encrypt(_outBuf)) {
        _out->attach(_outBuf);
        return _status = CRYPT_FAILED;
    }
    _out->attach(_outBuf);
    start = _outBuf->write_base;
    tbsock::putLength(start, _outBuf->writeCount());
    return OK;
}

// After a successful send the buffer and the tables start afresh.
void TBudpstream::sent() {
    _outBuf->write_ptr = _outBuf->write_base;
    _out->clearClassTables();
    _out->clearObjectTables();
}

int TBudpstream::send(const TBTransObject& obj) {
    if (!_open) return fail(NOT_OPEN, "TBudpstream::send: File not open", false);
    if (!_connected) return fail(NOT_CONNECTED, "TBudpstream::send: Stream is not connected", false);
    _status = OK;
    if (int rc = _writeIntoBuffer(obj)) return rc;
    int n = _outBuf->writeCount();
    ssize_t r;
    do {
        r = ::send(_fd, _outBuf->write_base, n, MSG_NOSIGNAL);
    } while (r < 0 && errno == EINTR);
    if (r < 0) {
        if (errno == ECONNREFUSED) return fail(REFUSED, "TBudpstream::send: Connection broken", true);
        return fail(SYSCALL_FAILED, "TBudpstream::send: write", true);
    }
    if (r != n) return fail(BAD_MESSAGE, "TBudpstream::send: Unable to write out the Object", false);
    sent();
    return OK;
}

int TBudpstream::send(const sockaddr_in* addr, const TBTransObject& obj) {
    if (!_open) return fail(NOT_OPEN, "TBudpstream::send: File not open", false);
    if (_connected) return fail(CONNECTED, "TBudpstream::send: Stream is connected", false);
    _status = OK;
    if (int rc = _writeIntoBuffer(obj)) return rc;
    int n = _outBuf->writeCount();
    ssize_t r;
    do {
        r = ::sendto(_fd, _outBuf->write_base, n, MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr*>(addr), sizeof *addr);
    } while (r < 0 && errno == EINTR);
    if (r < 0) return fail(SYSCALL_FAILED, "TBudpstream::send: write", true);
    if (r != n) return fail(BAD_MESSAGE, "TBudpstream::send: Unable to write out the Object", false);
    sent();
    return OK;
}

int TBudpstream::send(const char* host, int port, const TBTransObject& obj) {
    if (!_open) return fail(NOT_OPEN, "TBudpstream::send: File not open", false);
    _status = OK;
    unsigned address;
    if (!tbsock::resolve(host, address))
        return fail(NO_HOST, tbsock::noHost("TBudpstream::connect", host).c_str(), false);
    sockaddr_in sin = inetAddress(address, port);
    return send(&sin, obj);
}

int TBudpstream::broadcast(const TBTransObject& obj, int port) {
    _status = OK;
    if (int rc = _writeIntoBuffer(obj)) return rc;
    return _broadcast(port);
}

int TBudpstream::_broadcast(int port) {
    _status = OK;
    // The interface list needs a socket to ask through; an unbound stream
    // borrows one for the walk.
    int fd = _open ? _fd : socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) return fail(SYSCALL_FAILED, "TBudpstream::broadcast: ioctl", true);
    if (!_open) {
        int on = 1;
        (void)setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);  // sendto reports it
    }
    char area[4096];
    std::memset(area, 0, sizeof area);
    ifconf conf;
    conf.ifc_len = sizeof area;
    conf.ifc_buf = area;
    if (ioctl(fd, SIOCGIFCONF, &conf) < 0) {
        if (!_open) ::close(fd);
        return fail(SYSCALL_FAILED, "TBudpstream::broadcast: ioctl", true);
    }
    // Records lie sizeof(ifreq) apart on this platform (40 bytes on LP64).
    const int records = conf.ifc_len / static_cast<int>(sizeof(ifreq));
    for (int i = 0; i < records; ++i) {
        ifreq rec;
        std::memcpy(&rec, area + i * sizeof(ifreq), sizeof rec);
        if (rec.ifr_addr.sa_family != AF_INET) continue;
        ifreq req = rec;
        if (ioctl(fd, SIOCGIFFLAGS, &req) < 0) {
            tbsock::report(_report, "TBudpstream::broadcast: ioctl error", false);
            continue;
        }
        const short flags = req.ifr_flags;
        if (!(flags & IFF_UP) || (flags & IFF_LOOPBACK) || !(flags & (IFF_BROADCAST | IFF_POINTOPOINT)))
            continue;
        req = rec;
        const unsigned long which = (flags & IFF_POINTOPOINT) ? SIOCGIFDSTADDR : SIOCGIFBRDADDR;
        if (ioctl(fd, which, &req) < 0) {
            tbsock::report(_report, "TBudpstream::broadcast: ioctl", true);
            continue;
        }
        sockaddr_in to;
        std::memcpy(&to, which == SIOCGIFDSTADDR ? &req.ifr_dstaddr : &req.ifr_broadaddr, sizeof to);
        to.sin_port = htons(static_cast<uint16_t>(port));
        int n = _outBuf->writeCount();
        ssize_t r = ::sendto(fd, _outBuf->write_base, n, MSG_NOSIGNAL,
                             reinterpret_cast<sockaddr*>(&to), sizeof to);
        if (r < 0) {
            fail(SYSCALL_FAILED, "TBudpstream::send: write", true);
            break;
        }
    }
    if (!_open) ::close(fd);
    return _status;
}

int TBudpstream::_readIntoBuffer(sockaddr_in* from) {
    _in->clearClassTables();
    _in->clearObjectTables();
    _in->attach(_inBuf);
    _inBuf->read_ptr = _inBuf->read_end = _inBuf->read_base;
    socklen_t len = sizeof(sockaddr_in);
    ssize_t r;
    do {
        r = ::recvfrom(_fd, _inBuf->read_base, kPacketSize, 0, reinterpret_cast<sockaddr*>(from), &len);
    } while (r < 0 && errno == EINTR);
    if (r < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return fail(NOTHING_TO_READ, "TBudpstream::receive No data available to read", false);
        if (errno == ECONNREFUSED) return fail(REFUSED, "TBudpstream::receive: Connection broken", true);
        return fail(SYSCALL_FAILED, "TBudpstream::receive: recvfrom", true);
    }
    _inBuf->read_end += r;
    // A datagram longer than the buffer arrives cut, and its length word then
    // no longer matches.
    if (r < 4 || tbsock::getLength(_inBuf->read_base) != r)
        return fail(BAD_MESSAGE, "TBudpstream::receive: Object length mismatch", false);
    // The scrambler sees the whole body: the read position still stands on
    // the length word, so its data length is not 4 bytes short.
    const int rc = _crypt.decrypt(_inBuf);
    _in->attach(_inBuf);
    if (rc) return _status = (rc == 1 ? CRYPT_FAILED : DECRYPT_COPY_FAILED);
    _inBuf->read_ptr += 4;
    return OK;
}

TBTransObject* TBudpstream::receive(int& status, sockaddr_in* from) {
    TBTransObject* obj = receive(from);
    status = _status;
    return obj;
}

TBTransObject* TBudpstream::receive(sockaddr_in* from) {
    if (!_open) {
        fail(NOT_OPEN, "TBudpstream::receive: File not open", false);
        return nullptr;
    }
    sockaddr_in local;
    if (!from) from = &local;
    _status = OK;
    if (_readIntoBuffer(from) != OK) return nullptr;
    TBTransObject* obj = _in->readTransObj();
    _status = obj ? OK : BAD_MESSAGE;
    _in->clearClassTables();
    _in->clearObjectTables();
    return obj;
}

void TBudpstream::blocking(int on) {
    _blocking = on;
    if (_open && tbsock::setNonBlocking(_fd, !on) < 0) fail(SYSCALL_FAILED, "TBudpstream::blocking", true);
}
