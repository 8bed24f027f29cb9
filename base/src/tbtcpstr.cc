// The framed object transport over TCP. Reads and writes resume where a
// non-blocking socket stopped them; the partial message always goes out
// before anything queued, and nothing overtakes the queue.
#include "tbtcpstr.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "dsaddr.h"
#include "tbipcstr.h"
#include "tbsock.h"
#include "tbtinfo.h"

namespace {

constexpr int kQueueStart = 16;

bool brokenErrno(int e) {
    return e == ENETDOWN || e == ENETRESET || e == ENOTCONN || e == ECONNABORTED || e == ECONNRESET;
}

}  // namespace

TBtcpstream::TBtcpstream(int bufferSize, int maxQueueSize)
    : _in(new TBipcstream), _out(new TBipcstream), _queue(maxQueueSize > 0 ? maxQueueSize : 0),
      _inBuf(new TBipcbuf(0, bufferSize)), _outBuf(new TBipcbuf(bufferSize, 0)),
      _maxQueue(maxQueueSize) {
    _host[0] = _host[100] = '\0';
    _in->attach(_inBuf);
    _out->attach(_outBuf);
}

TBtcpstream::TBtcpstream(TBipcstream& in, TBipcstream& out, int bufferSize, int maxQueueSize)
    : _in(&in), _out(&out), _queue(kQueueStart), _inBuf(new TBipcbuf(0, bufferSize)),
      _outBuf(new TBipcbuf(bufferSize, 0)), _maxQueue(maxQueueSize) {
    _host[0] = _host[100] = '\0';
    _in->attach(_inBuf);
    _out->attach(_outBuf);
}

TBtcpstream::~TBtcpstream() {
    if (_open) ::close(_fd);  // nothing to do about a failure here
    delete _in;
    delete _out;
    delete _inBuf;
    delete _outBuf;
    int st = 0;
    while (TBipcbuf* b = static_cast<TBipcbuf*>(_queue.remove(st))) delete b;
}

void TBtcpstream::useStream(TBipcstream& in, TBipcstream& out) {
    tbsock::adopt(_in, in, _inBuf);
    tbsock::adopt(_out, out, _outBuf);
}

int TBtcpstream::fail(int status, const char* text, bool sys) {
    tbsock::report(_report, text, sys);
    _status = status;
    return status;
}

void TBtcpstream::setOptions(bool keepAlive) {
    if (keepAlive) {
        int on = 1;
        if (setsockopt(_fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on) < 0)
            fail(SYSCALL_FAILED, "TBtcpstream::connect: setsockopt-keepalive", true);
    }
    linger l{0, 0};
    if (setsockopt(_fd, SOL_SOCKET, SO_LINGER, &l, sizeof l) < 0)
        tbsock::report(_report, "TBtcpstream: setsockopt-linger", true);  // changes nothing
}

int TBtcpstream::listen(int port, const char* host) {
    if (_open) return fail(IN_USE, "TBtcpstream::listen: File in use", false);
    sockaddr_in sin;
    std::memset(&sin, 0, sizeof sin);
    sin.sin_family = AF_INET;
    sin.sin_port = htons(static_cast<uint16_t>(port));
    sin.sin_addr.s_addr = host ? DSAddr(port, host).address() : INADDR_ANY;
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return fail(SYSCALL_FAILED, "TBtcpstream::listen: socket", true);
    int on = 1;
    (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);  // a restart may rebind at once
    if (::bind(fd, reinterpret_cast<sockaddr*>(&sin), sizeof sin) < 0) {
        fail(SYSCALL_FAILED, "TBtcpstream::listen: bind", true);
        ::close(fd);
        return _status;
    }
    if (::listen(fd, 1000) < 0) {
        fail(SYSCALL_FAILED, "TBtcpstream::listen: listen", true);
        ::close(fd);
        return _status;
    }
    _fd = fd;
    _open = 1;
    if (!_blocking && tbsock::setNonBlocking(fd, true) < 0)
        return fail(SYSCALL_FAILED, "TBtcpstream::listen: fcntl", true);
    if (port == 0) {
        socklen_t len = sizeof sin;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&sin), &len) == 0) port = ntohs(sin.sin_port);
    }
    _port = port;
    if (gethostname(_host, 100) < 0) tbsock::report(_report, "TBtcpstream::listen: Error gethostname", true);
    _host[100] = '\0';
    _status = OK;
    setOptions(false);
    return OK;
}

int TBtcpstream::connect(const char* host, int port) {
    if (_open) return fail(IN_USE, "TBtcpstream::connect: File in use", false);
    unsigned address;
    if (!tbsock::resolve(host, address))
        return fail(NO_HOST, tbsock::noHost("TBtcpstream::connect", host).c_str(), false);
    int rc = connect(address, port);
    if (rc == OK || _open) {
        std::strncpy(_host, host, 100);
        _host[100] = '\0';
    }
    return rc;
}

int TBtcpstream::connect(unsigned address, int port) {
    if (_open) return fail(IN_USE, "TBtcpstream::connect: File in use", false);
    sockaddr_in sin;
    std::memset(&sin, 0, sizeof sin);
    sin.sin_family = AF_INET;
    sin.sin_port = htons(static_cast<uint16_t>(port));
    sin.sin_addr.s_addr = address;
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return fail(SYSCALL_FAILED, "TBtcpstream::connect: socket", true);
    int r;
    do {
        r = ::connect(fd, reinterpret_cast<sockaddr*>(&sin), sizeof sin);
    } while (r < 0 && errno == EINTR);
    if (r < 0) {
        fail(SYSCALL_FAILED, "TBtcpstream::connect: connect", true);
        ::close(fd);
        return _status;
    }
    _fd = fd;
    _open = 1;
    _port = port;
    if (!_blocking && tbsock::setNonBlocking(fd, true) < 0)
        return fail(SYSCALL_FAILED, "TBtcpstream::connect: fcntl", true);
    _status = OK;
    setOptions(true);
    return _status;
}

int TBtcpstream::Accept(int& fd) {
    if (!_open) return fail(NOT_OPEN, "TBtcpstream::Accept: File not open", false);
    int r;
    do {
        r = ::accept(_fd, nullptr, nullptr);
    } while (r < 0 && errno == EINTR);
    if (r < 0) return fail(SYSCALL_FAILED, "TBtcpstream::Accept: accept", true);
    fd = r;
    _status = OK;
    return OK;
}

TBtcpstream* TBtcpstream::acceptConnection() {
    int fd = -1;
    if (Accept(fd) != OK) return nullptr;
    TBtcpstream* s = new TBtcpstream(1024, 50);
    if (s->attach(fd) != OK) {
        ::close(fd);
        delete s;
        return nullptr;
    }
    return s;
}

int TBtcpstream::attach(int fd) {
    if (_open) return fail(IN_USE, "TBtcpstream::attach: File in use", false);
    if (fd < 0) return fail(BAD_FD, "TBtcpstream::attach: Invalid file", false);
    if (!_blocking && tbsock::setNonBlocking(fd, true) < 0)
        return fail(SYSCALL_FAILED, "TBtcpstream::attach: fnctl", true);
    _host[0] = '\0';
    _port = 0;
    _fd = fd;
    _open = 1;
    _status = OK;
    setOptions(false);
    return OK;
}

int TBtcpstream::close() {
    if (!_open) return fail(NOT_OPEN, "TBtcpstream::close: File not open", false);
    _out->clearClassTables();
    _out->clearObjectTables();
    _in->clearClassTables();
    _in->clearObjectTables();
    int st = 0;
    while (TBipcbuf* b = static_cast<TBipcbuf*>(_queue.remove(st))) delete b;
    _reading = _writing = _written = _held = 0;
    _expected = -1;
    if (::close(_fd) < 0) return fail(SYSCALL_FAILED, "TBtcpstream::close: close", true);
    _open = 0;
    _fd = -1;
    _status = OK;
    return OK;
}

void TBtcpstream::blocking(int on) {
    const bool nowBlocking = on && !_blocking;
    _blocking = on;
    if (!_open) return;
    if (tbsock::setNonBlocking(_fd, !on) < 0) {
        fail(SYSCALL_FAILED, "TBtcpstream::blocking ", true);
        return;
    }
    _status = OK;
    if (nowBlocking && (_writing || _queue.count() > 0)) send();
}

void TBtcpstream::maxQueueSize(int n) {
    if (n <= _maxQueue) return;
    _maxQueue = n;
    _queue.capacity(static_cast<unsigned>(n));
}

// ---- Sending.

int TBtcpstream::encode(TBipcbuf*& buf, const TBTransObject& obj) {
    _out->attach(buf);
    buf->write_ptr = buf->write_base;
    *_out << 0;  // the length word's place
    _out->writeTransObj(&obj);
    // A scrambler that works through a second buffer hands back the copy in
    // buf; the hook keeps the old buffer for the next message.
    int rc = _crypt.encrypt(buf);
    if (rc == 0) tbsock::putLength(buf->write_base, buf->writeCount());
    _out->attach(_outBuf);
    return rc ? (_status = CRYPT_FAILED) : OK;
}

int TBtcpstream::send(const TBTransObject& obj, unsigned char priority) {
    if (!_open) return fail(NOT_OPEN, "TBtcpstream::send: File not open", false);
    if (!_writing && _queue.count() == 0) {
        if (int rc = encode(_outBuf, obj)) return rc;
        return _send();
    }
    if (_queue.count() >= _maxQueue)
        return fail(QUEUE_FULL, "Cannot queue any more messages. Queue Full.", false);
    if (int rc = addToQueue(obj, priority)) return rc;
    if (send() == WOULD_BLOCK) return fail(QUEUED, "Message is Queued.", false);
    return _status;
}

int TBtcpstream::addToQueue(const TBTransObject& obj, unsigned char priority) {
    TBipcbuf* buf = new TBipcbuf(1024, 0);
    if (int rc = encode(buf, obj)) {
        delete buf;
        return rc;
    }
    _queue.add(buf, priority);
    return OK;
}

int TBtcpstream::send() {
    if (!_open) return fail(NOT_OPEN, "TBtcpstream::Accept: File not open", false);
    if (!_writing && _queue.count() == 0) return fail(NOTHING_TO_FLUSH, "", false);
    for (;;) {
        if (_writing) {
            int rc = _send();
            if (rc != OK) return rc;
        }
        int st = 0;
        TBipcbuf* next = static_cast<TBipcbuf*>(_queue.remove(st));
        if (!next) return _status;
        delete _outBuf;
        _outBuf = next;
        _out->attach(_outBuf);
        if (_send() != OK) return _status;
    }
}

int TBtcpstream::_send() {
    const int size = _outBuf->writeCount();
    if (size <= 0) return _status = EMPTY_BUFFER;
    // Writes go through send with MSG_NOSIGNAL: a closed peer is an EPIPE
    // status, never a signal, so the process's SIGPIPE disposition stays as
    // its owner set it.
    int from = _writing ? _written : 0;
    if (!_writing) _written = 0;
    _status = OK;
    while (from < size) {
        ssize_t r = ::send(_fd, _outBuf->write_base + from, size - from, MSG_NOSIGNAL);
        if (r == 0) return fail(BROKEN, "TBtcpstream::send: Connection broken", false);
        if (r < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                _writing = 1;
                return _status = WOULD_BLOCK;
            }
            if (errno == EPIPE || brokenErrno(errno))
                return fail(BROKEN, "TBtcpstream::send: Connection broken", true);
            return fail(SYSCALL_FAILED, "TBtcpstream::send: write", true);
        }
        from += static_cast<int>(r);
        _written = from;
    }
    _outBuf->write_ptr = _outBuf->write_base;
    _writing = 0;
    _written = 0;
    return _status;
}

// ---- Receiving.

// Reads until `want` bytes of the present piece are held, counting in _held.
int TBtcpstream::readSome(int want, const char* brokenText, const char* readText) {
    char* base = _inBuf->read_base;
    while (_held < want) {
        ssize_t r = ::read(_fd, base + _held, want - _held);
        if (r == 0) return fail(BROKEN, brokenText, false);
        if (r < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                if (!_reading && _held == 0 && _expected < 0)
                    return fail(NOTHING_TO_READ, "TBtcpstream::receive: No data to read", false);
                _reading = 1;
                return _status = PARTIAL_READ;
            }
            if (brokenErrno(errno)) return fail(BROKEN, "TBtcpstream::recive: Connection broken", true);
            return fail(SYSCALL_FAILED, readText, true);
        }
        _held += static_cast<int>(r);
        _reading = 1;  // a piece has begun: a peer that goes now leaves it so
        if (_expected >= 0) _inBuf->read_end = _inBuf->read_base + _held;
    }
    return OK;
}

// The header is complete: believe its length within kMaxMessage, and make
// room for the body at the buffer's start.
int TBtcpstream::takeLength() {
    _in->attach(_inBuf);
    _expected = tbsock::getLength(_inBuf->read_base);
    if (_expected < 4) _expected = 4;  // no body: receive finds no object
    if (_expected > kMaxMessage) {
        _expected = -1;
        return fail(SYSCALL_FAILED, "TBtcpstream::receive: Memory alloc", false);
    }
    _inBuf->read_ptr = _inBuf->read_end = _inBuf->read_base;
    _held = 0;
    const int remaining = _expected - 4;
    if (remaining > _inBuf->read_size && !_inBuf->expand_read(remaining))
        return fail(SYSCALL_FAILED, "TBtcpstream::receive: Memory alloc", false);
    return OK;
}

int TBtcpstream::_decrypt() {
    TBipcbuf* buf = _inBuf;
    int rc = _crypt.decrypt(buf);
    _inBuf = buf;
    _in->attach(_inBuf);
    if (rc) return _status = (rc == 1 ? CRYPT_FAILED : DECRYPT_COPY_FAILED);
    return OK;
}

int TBtcpstream::_readIntoBuffer() {
    if (!_reading) {
        _expected = -1;
        _held = 0;
        _inBuf->read_ptr = _inBuf->read_end = _inBuf->read_base;
    }
    if (_expected < 0) {
        if (int rc = readSome(4, "TBtcpstream::receive: Connection broken", "TBtcpstream::receive: read"))
            return rc;
        if (int rc = takeLength()) return rc;
    }
    const int remaining = _expected - 4;
    if (remaining > 0) {
        if (int rc = readSome(remaining, "TBtcpstream::receive: Connection broken",
                              "TBtcpstream::receive: read "))
            return rc;
    }
    _reading = 0;
    _held = 0;
    _expected = -1;
    return _decrypt();
}

TBTransObject* TBtcpstream::receive() {
    if (!_open) {
        fail(NOT_OPEN, "TBtcpstream::Accept: File not open", false);
        return nullptr;
    }
    _status = OK;
    if (_readIntoBuffer() != OK) return nullptr;
    // A length word under 5 leaves no body: nothing to decode.
    TBTransObject* obj = _inBuf->readAvail() > 0 ? _in->readTransObj() : nullptr;
    _status = obj ? OK : NO_OBJECT;
    return obj;
}

TBTransObject* TBtcpstream::receive(int& status) {
    TBTransObject* obj = receive();
    status = _status;
    return obj;
}

TBTransObject* TBtcpstream::waitForObject(int& status, long seconds) {
    if (!_open) {
        status = _status = NOT_OPEN;
        return nullptr;
    }
    for (;;) {
        timeval start;
        if (gettimeofday(&start, nullptr) < 0) {
            std::perror("TBtcpstream::gettimeofday: ");
            start = timeval{0, 0};
        }
        pollfd p{_fd, POLLIN, 0};
        int r;
        do {
            r = poll(&p, 1, seconds < 0 ? -1 : static_cast<int>(seconds * 1000));
        } while (r < 0 && errno == EINTR);
        if (r == 0) {
            status = _status = TIMED_OUT;
            return nullptr;
        }
        if (r < 0) {
            status = _status = SYSCALL_FAILED;
            return nullptr;
        }
        TBTransObject* obj = receive(status);
        if (status != PARTIAL_READ) return status == OK ? obj : nullptr;
        if (seconds >= 0) {
            timeval now;
            if (gettimeofday(&now, nullptr) < 0) {
                std::perror("TBtcpstream::gettimeofday: ");
                status = _status = SYSCALL_FAILED;
                return nullptr;
            }
            // Whole seconds only; a wait that has run out polls once more
            // without waiting.
            seconds -= now.tv_sec - start.tv_sec;
            if (seconds < 0) seconds = 0;
        }
    }
}
