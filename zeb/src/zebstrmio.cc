// The connection side of ZEBIIOPstream: sockets, message framing, and the
// reads and writes that wait, either in the kernel (blocking mode) or in a
// nested run of the dispatcher (non-blocking mode).
#include "zebstrm.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "dispatch.h"
#include "except.h"
#include "zebboa.h"
#include "zebglob.h"
#include "zebtctbl.h"

namespace {

// The header of a GIOP message, and so the least any input block must hold.
constexpr int kHeaderSize = 12;
// Batch of a gathering write: up to 15 pending blocks and the output block.
constexpr int kGatherBlocks = 15;
// Chunk in which discardCurMsg consumes a body it has no use for.
constexpr unsigned kDiscardChunk = 64 * 1024;

// The first stream of the process installs this record for SIGPIPE. It is
// all zero, so what it installs is the default action, undoing an earlier
// SIG_IGN. Kept as it is: our writes pass MSG_NOSIGNAL, so a vanished peer
// still gives CORBA_COMM_FAILURE and never the signal.
bool sig_blocked = false;
struct sigaction ignoreAction;

int blockBytes(unsigned long size) {
    // Absurd option values must not leave a block too small for a header or
    // too large for the int sizes of TBipcbuf.
    if (size < static_cast<unsigned long>(kHeaderSize)) return kHeaderSize;
    if (size > (1UL << 30)) return 1 << 30;
    return static_cast<int>(size);
}

void setFlag(int fd, int level, int option) {
    int on = 1;
    // A keep-alive or no-delay flag that cannot be set leaves a working
    // connection; nothing to report.
    (void)setsockopt(fd, level, option, &on, sizeof on);
}

void closeOnExec(int fd) {
    int flags = fcntl(fd, F_GETFD);
    if (flags >= 0) (void)fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

// 0 on success, else an errno; an unknown host gives -1.
int resolveHost(const char* host, in_addr* out) {
    in_addr_t a = inet_addr(host);
    if (a != INADDR_NONE || std::strcmp(host, "255.255.255.255") == 0) {
        out->s_addr = a;
        return 0;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* res = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &res) != 0 || !res) return -1;
    *out = reinterpret_cast<sockaddr_in*>(res->ai_addr)->sin_addr;
    freeaddrinfo(res);
    return 0;
}

}  // namespace

ZEB_EXT::ConnectionInfo::~ConnectionInfo() { CORBA::string_free(host); }

ZEBIIOPstream::ZEBIIOPstream()
    : _in(0, blockBytes(ZEBGlobalTable::tcp_read_size)),
      _out(new TBipcbuf(blockBytes(ZEBGlobalTable::tcp_block_size), 0)),
      _byteOrder(IIOP::BYTE_ORDER),
      _blockSize(ZEBGlobalTable::tcp_block_size),
      _readSize(ZEBGlobalTable::tcp_read_size) {
    std::memcpy(_header.magic, IIOP::MAGIC_WORD, sizeof _header.magic);
    _header.iiop_version = IIOP::CURRENT_VERSION;
    _header.byte_order = IIOP::BYTE_ORDER;
    _header.message_type = IIOP::Request;
    _header.message_size = 0;
    setInPos(0);
    setMsgLeft(0);
    setOutPos(0);
    if (!sig_blocked) {
        sigaction(SIGPIPE, &ignoreAction, nullptr);
        sig_blocked = true;
    }
}

ZEBIIOPstream::~ZEBIIOPstream() {
    _freeBufs.removeAndFreeAll();
    _pendingBufs.removeAndFreeAll();
    if (_open) ::close(_fd);  // no shutdown: a forked copy may still use it
}

void ZEBIIOPstream::commFailure(int minor) const {
    throw CORBA_COMM_FAILURE(static_cast<CORBA::ULong>(minor), CORBA::COMPLETED_NO);
}

void ZEBIIOPstream::wrongState() const { throw CORBA_BAD_OPERATION(0, CORBA::COMPLETED_NO); }

// ---------------------------------------------------------------- sockets

void ZEBIIOPstream::listen(int port, const char* ipaddr) {
    if (_open) wrongState();
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (ipaddr && resolveHost(ipaddr, &addr.sin_addr) != 0)
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) {
        int e = errno;
        std::perror("socket: ");
        commFailure(e);
    }
    // SO_REUSEADDR before bind, so that a server restarted on its fixed port
    // is not refused while connections of its former run sit in TIME_WAIT.
    setFlag(fd, SOL_SOCKET, SO_REUSEADDR);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
        int e = errno;
        ::close(fd);
        commFailure(e);
    }
    if (::listen(fd, 1000) < 0) {
        int e = errno;
        ::close(fd);
        commFailure(e);
    }
    _fd = fd;
    _fdFlags = -1;
    if (!_blocking) {
        int flags = fcntl(fd, F_GETFL);
        if (flags >= 0) (void)fcntl(fd, F_SETFL, flags | O_NDELAY);
    }
    _port = static_cast<unsigned short>(port);
    if (port == 0) {
        sockaddr_in local{};
        socklen_t len = sizeof local;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &len) == 0)
            _port = ntohs(local.sin_port);
    }
    closeOnExec(fd);
    _open = 1;
}

void ZEBIIOPstream::accept(int& newfd) {
    if (!_open) wrongState();
    int fd;
    do {
        fd = ::accept(_fd, nullptr, nullptr);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        int e = errno;
        std::perror("accept: ");
        commFailure(e);
    }
    setFlag(fd, SOL_SOCKET, SO_KEEPALIVE);
    // The no-delay flag goes on the listener, never reaching the accepted
    // connection by this route; kept as the broker always did it.
    if (ZEBGlobalTable::orb_no_delay) setFlag(_fd, IPPROTO_TCP, TCP_NODELAY);
    _serverSide = 1;
    closeOnExec(fd);
    newfd = fd;
}

ZEBIIOPstream* ZEBIIOPstream::accept() {
    int fd = -1;
    accept(fd);
    std::unique_ptr<ZEBIIOPstream> s(new ZEBIIOPstream);
    s->attach(fd);
    return s.release();
}

void ZEBIIOPstream::attach(int fd) {
    if (_open) wrongState();
    _fd = fd;
    _fdFlags = -1;
    _perCall = false;
    _open = 1;
    _serverSide = 1;
    sockaddr_in local{};
    socklen_t len = sizeof local;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &len) == 0)
        _port = ntohs(local.sin_port);
}

void ZEBIIOPstream::connect(const char* host, unsigned short port, unsigned long timeout) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    if (!host || resolveHost(host, &addr.sin_addr) != 0)
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    connect(&addr, timeout);
}

void ZEBIIOPstream::connect(const sockaddr_in* addr, unsigned long timeout) {
    if (_open) wrongState();
    _fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    _fdFlags = -1;
    _perCall = false;
    if (_fd < 0) {
        int e = errno;
        std::perror("socket: ");
        commFailure(e);
    }
    _blocking = 1;  // what a new socket is
    if (timeout) blocking(0);
    auto fail = [this](int minor, bool timedOut) {
        ::close(_fd);
        _fd = -1;
        if (timedOut) throw CORBA_NO_RESPONSE(0, CORBA::COMPLETED_NO);
        commFailure(minor);
    };
    if (::connect(_fd, reinterpret_cast<const sockaddr*>(addr), sizeof *addr) < 0) {
        // An interrupted blocking connect goes on in the background just as
        // a non-blocking one does; both are waited for the same way.
        if (errno != EINPROGRESS && errno != EINTR) fail(errno, false);
        pollfd p{_fd, POLLOUT, 0};
        int timeoutMs = timeout ? static_cast<int>(std::min(timeout, 2000000UL) * 1000) : -1;
        int r;
        while ((r = ::poll(&p, 1, timeoutMs)) < 0 && errno == EINTR) {
        }
        if (r < 0) fail(errno, false);
        if (r == 0) fail(0, true);
        int err = 0;
        socklen_t len = sizeof err;
        if (getsockopt(_fd, SOL_SOCKET, SO_ERROR, &err, &len) < 0) err = errno;
        if (err != 0) fail(err, false);
    }
    setFlag(_fd, SOL_SOCKET, SO_KEEPALIVE);
    if (ZEBGlobalTable::orb_no_delay) setFlag(_fd, IPPROTO_TCP, TCP_NODELAY);
    sockaddr_in local{};
    socklen_t len = sizeof local;
    if (getsockname(_fd, reinterpret_cast<sockaddr*>(&local), &len) == 0)
        _port = ntohs(local.sin_port);
    // The socket goes back to the kernel's blocking mode once; from here on
    // the mode is chosen per send and read.
    if (_fdFlags >= 0 && (_fdFlags & O_NONBLOCK) && fcntl(_fd, F_SETFL, _fdFlags & ~O_NONBLOCK) == 0)
        _fdFlags &= ~O_NONBLOCK;
    _perCall = _fdFlags < 0 || !(_fdFlags & O_NONBLOCK);
    _serverSide = 0;
    _open = 1;
}

void ZEBIIOPstream::close() {
    if (!_open) return;
    ::shutdown(_fd, SHUT_RDWR);  // the peer learns at once; errors don't matter
    ::close(_fd);
    _fdFlags = -1;
    _open = 0;
}

void ZEBIIOPstream::blocking(unsigned char on) {
    bool want = on != 0;
    if (want == (_blocking != 0)) return;
    _blocking = want ? 1 : 0;
    if (_perCall) return;
    if (_fd < 0) return;  // recorded for the socket still to come
    // The descriptor's flags are read once and then kept here: nobody else
    // changes them, so each switch costs one system call, not two.
    if (_fdFlags < 0) _fdFlags = fcntl(_fd, F_GETFL);
    if (_fdFlags < 0) return;
    const int flags = want ? (_fdFlags & ~O_NDELAY) : (_fdFlags | O_NDELAY);
    if (fcntl(_fd, F_SETFL, flags) == 0) _fdFlags = flags;
}

namespace {
unsigned long roundToKilobyte(unsigned long size) {
    unsigned long r = size % 1024;
    return r < 501 ? size - r : size - r + 1024;
}
}  // namespace

void ZEBIIOPstream::sendBufferSize(unsigned long size) {
    unsigned long rounded = roundToKilobyte(size);
    int v = static_cast<int>(std::min(rounded, 1UL << 30));
    (void)setsockopt(_fd, SOL_SOCKET, SO_SNDBUF, &v, sizeof v);
    _readSize = rounded;
}

void ZEBIIOPstream::receiveBufferSize(unsigned long size) {
    unsigned long rounded = roundToKilobyte(size);
    int v = static_cast<int>(std::min(rounded, 1UL << 30));
    (void)setsockopt(_fd, SOL_SOCKET, SO_RCVBUF, &v, sizeof v);
    _readSize = rounded;
}

ZEB_EXT::ConnectionInfo* ZEBIIOPstream::peerInfo() {
    std::unique_ptr<ZEB_EXT::ConnectionInfo> info(new ZEB_EXT::ConnectionInfo);
    sockaddr_in peer{};
    socklen_t len = sizeof peer;
    if (_fd < 0 || getpeername(_fd, reinterpret_cast<sockaddr*>(&peer), &len) != 0)
        return info.release();
    // The dotted form: a reverse lookup could wait on a name server while
    // the whole single-threaded server stands still.
    char name[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &peer.sin_addr, name, sizeof name);
    info->host = CORBA::strdup(name);
    info->port = ntohs(peer.sin_port);
    info->fd = _fd;
    return info.release();
}

// ---------------------------------------------------------------- messages

void ZEBIIOPstream::selectMode(bool withTimeout) { blocking(withTimeout ? 0 : 1); }

void ZEBIIOPstream::writeMessageHeader(IIOP::MsgType type) {
    const CORBA::ULong pos = outPos();
    _out->write_ptr = _out->write_base;
    setOutPos(pos);
    byteOrder(IIOP::BYTE_ORDER);
    IIOP::MessageHeader h;
    std::memcpy(h.magic, IIOP::MAGIC_WORD, sizeof h.magic);
    h.iiop_version = IIOP::CURRENT_VERSION;
    h.byte_order = IIOP::BYTE_ORDER;
    h.message_type = type;
    h.message_size = 0;
    *this << h;
}

void ZEBIIOPstream::sendMessage(unsigned long timeout) {
    if (_dropNext) {
        _dropNext = 0;
        recyclePending();
        rewindOutBuffer();
        return;
    }
    if (_queueOutput) {
        queueMessage();
        _pendingBytes = 0;
        _outTcCount = 0;
        return;
    }
    _waitTimeout = timeout;
    // A non-blocking client connection (the callback mode) stays so: what
    // the socket does not take at once waits for writability in _write,
    // with no mode switch per call.
    if (_serverSide || _blocking) selectMode(timeout != 0);
    if (_pendingBufs.count() == 0) {
        int length = _out->writeCount();
        if (length < kHeaderSize) wrongState();  // no header was written
        CORBA::ULong size = static_cast<CORBA::ULong>(length - kHeaderSize);
        std::memcpy(_out->write_base + 8, &size, sizeof size);
        _write(_out->write_base, length);
    } else {
        sendPending();
    }
    _pendingBytes = 0;
    emptyOutTypeCodes();
}

void ZEBIIOPstream::sendPending() {
    TBipcbuf* first = _pendingBufs.first();
    if (first->writeCount() < kHeaderSize) wrongState();
    long total = static_cast<long>(_pendingBytes) + _out->writeCount();
    CORBA::ULong size = static_cast<CORBA::ULong>(total - kHeaderSize);
    std::memcpy(first->write_base + 8, &size, sizeof size);
    _writev(total, first, _pendingBufs.count());
    recyclePending();
}

bool ZEBIIOPstream::lends(std::size_t n) const {
    // Only on a connection. Not inside a TypeCode, whose writer patches
    // lengths into the output block, and never past what a block may hold.
    return _open && _tcDepth == 0 &&
           _pendingBytes + static_cast<std::size_t>(_out->writeCount()) + n <= INT_MAX / 2;
}

void ZEBIIOPstream::lendOut(const char* src, std::size_t n) {
    const int size = static_cast<int>(n);
    std::unique_ptr<TBipcbuf> lent(new TBipcbuf(const_cast<char*>(src), size, nullptr, 0, 0));
    lent->write_ptr = lent->write_base + size;
    std::unique_ptr<TBipcbuf> fresh(_freeBufs.removeFirst());
    if (!fresh) fresh.reset(new TBipcbuf(blockBytes(_blockSize), 0));
    const CORBA::ULong pos = outPos();
    _pendingBytes += static_cast<unsigned long>(_out->writeCount()) + n;
    _pendingBufs.add(_out.release());
    _pendingBufs.add(lent.release());
    _out = std::move(fresh);
    setOutPos(pos + static_cast<CORBA::ULong>(n));
}

void ZEBIIOPstream::recyclePending() {
    for (TBipcbuf* b = _pendingBufs.first(); b;) {
        TBipcbuf* next = b->next;
        if (b->owned) {
            b->write_ptr = b->write_base;
            _freeBufs.add(b);
        } else {
            delete b;
        }
        b = next;
    }
    _pendingBufs.removeAll();
}

void ZEBIIOPstream::receiveMessage(unsigned long timeout) {
    _waitTimeout = timeout;
    discardCurMsg();
    newInEncapsulation();
    emptyInTypeCodes();
    if (_serverSide) {
        emptyOutTypeCodes();
        blocking(1);
    } else if (_blocking || !ZEBGlobalTable::has_callback) {
        // Without callbacks the read waits in the kernel: one switch at the
        // first reply, none after it for calls without a time limit.
        blocking(ZEBGlobalTable::has_callback ? 0 : 1);
    }
    fillHeaderBytes();

    setMsgLeft(kHeaderSize);
    byteOrder(IIOP::BYTE_ORDER);
    *this >> _header;
    if (std::memcmp(_header.magic, IIOP::MAGIC_WORD, sizeof _header.magic) != 0 ||
        _header.iiop_version.major != IIOP::CURRENT_VERSION.major ||
        _header.iiop_version.minor != IIOP::CURRENT_VERSION.minor)
        commFailure(0);
    if (_header.byte_order != IIOP::BYTE_ORDER)
        _header.message_size = __builtin_bswap32(_header.message_size);
    _msgSize = _header.message_size;
    setMsgLeft(_msgSize);
    byteOrder(_header.byte_order);

    if (_header.message_type == IIOP::CloseConnection)
        throw CORBA_COMM_FAILURE(0, CORBA::COMPLETED_MAYBE);
    if (_header.message_type == IIOP::MessageError)
        throw CORBA_INV_IDENT(0, CORBA::COMPLETED_MAYBE);
}

void ZEBIIOPstream::fillHeaderBytes() {
    int kept = _in.readAvail();
    if (kept >= kHeaderSize) return;
    // The scratch form may have left a foreign block too small for a header.
    if (!_in.read_base || _in.read_size < kHeaderSize) wrongState();
    const CORBA::ULong pos = inPos();
    const CORBA::ULong left = msgLeft();
    std::memmove(_in.read_base, _in.read_ptr, static_cast<size_t>(kept));
    _in.read_ptr = _in.read_base;
    _in.read_end = _in.read_base + kept;
    setInPos(pos);
    setMsgLeft(left);
    long most = static_cast<long>(std::min<unsigned long>(_readSize, _in.read_size)) - kept;
    // A non-blocking stream with nothing read ahead is a client that has just
    // sent its request: the reply is hardly ever there yet, so it waits
    // before it reads instead of trying a read that would only fail.
    const bool waitFirst = !_blocking && kept == 0;
    int got = _read(_in.read_end, kHeaderSize - kept, std::max<long>(most, kHeaderSize - kept),
                    waitFirst);
    _in.read_end += got;
    syncInLimit();
}

void ZEBIIOPstream::sendAndWaitForReply(unsigned long timeout) {
    sendMessage(timeout);
    receiveMessage(timeout);
}

void ZEBIIOPstream::discardCurMsg() {
    std::unique_ptr<char[]> scratch;
    while (msgLeft() > 0) {
        unsigned buffered = std::min<unsigned>(static_cast<unsigned>(_in.readAvail()), msgLeft());
        if (buffered > 0) {
            _in.read_ptr += buffered;
            continue;
        }
        unsigned chunk = std::min<unsigned>(msgLeft(), kDiscardChunk);
        if (!scratch) scratch.reset(new char[chunk]);
        readRaw(scratch.get(), chunk);
    }
}

int ZEBIIOPstream::inputReady(int) {
    _waitStatus = 1;
    return 0;
}

int ZEBIIOPstream::outputReady(int) {
    _waitStatus = 1;
    return 0;
}

void ZEBIIOPstream::timerExpired(long, long) { _waitStatus = 2; }

// ---------------------------------------------------------------- I/O

int ZEBIIOPstream::_read(char* buf, long minimum, long maximum, bool waitFirst) {
    if (minimum <= 0) return 0;
    if (maximum < minimum) maximum = minimum;  // 0 means "minimum"
    long total = 0;
    for (bool first = !waitFirst;; first = false) {
        ssize_t n;
        if (!first && quietWait()) {
            n = ::recv(_fd, buf, static_cast<size_t>(maximum), 0);
        } else {
            if (!first) _waitForData(_waitTimeout);
            n = _perCall ? ::recv(_fd, buf, static_cast<size_t>(maximum), _blocking ? 0 : MSG_DONTWAIT)
                         : ::read(_fd, buf, static_cast<size_t>(maximum));
        }
        if (n < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) commFailure(errno);
            n = 0;
        } else if (n == 0) {
            commFailure(0);  // the peer closed
        }
        buf += n;
        total += n;
        minimum -= n;
        maximum -= n;
        if (minimum <= 0) break;
    }
    return static_cast<int>(total);
}

void ZEBIIOPstream::_write(const char* buf, long length) {
    for (bool first = true; length > 0; first = false) {
        if (!first) _waitForOutput(_waitTimeout);
        ssize_t n = ::send(_fd, buf, static_cast<size_t>(length),
                           MSG_NOSIGNAL | (_perCall && !_blocking ? MSG_DONTWAIT : 0));
        if (n < 0 && errno == ENOTSOCK) n = ::write(_fd, buf, static_cast<size_t>(length));
        if (n < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) continue;
            commFailure(errno);
        }
        if (n == 0) commFailure(errno);
        buf += n;
        length -= n;
    }
}

void ZEBIIOPstream::_writev(long total, TBipcbuf* first, int count) {
    iovec vec[kGatherBlocks + 1];
    int nvec = 0;
    TBipcbuf* b = first;
    for (; b && nvec < kGatherBlocks && nvec < count; b = b->next) {
        vec[nvec].iov_base = b->write_base;
        vec[nvec].iov_len = static_cast<size_t>(b->writeCount());
        ++nvec;
    }
    bool rest = b != nullptr && nvec < count;
    if (!rest && _out->writeCount() > 0) {
        vec[nvec].iov_base = _out->write_base;
        vec[nvec].iov_len = static_cast<size_t>(_out->writeCount());
        ++nvec;
    }
    long batch = 0;
    for (int i = 0; i < nvec; ++i) batch += static_cast<long>(vec[i].iov_len);
    iovec* v = vec;
    while (batch > 0) {
        msghdr msg{};
        msg.msg_iov = v;
        msg.msg_iovlen = static_cast<size_t>(nvec);
        ssize_t n = ::sendmsg(_fd, &msg, MSG_NOSIGNAL | (_perCall && !_blocking ? MSG_DONTWAIT : 0));
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                _waitForOutput(_waitTimeout);
                continue;
            }
            commFailure(errno);
        }
        if (n == 0) commFailure(errno);
        batch -= n;
        stepPast(v, nvec, static_cast<size_t>(n));
    }
    if (rest) _writev(total, b, count - kGatherBlocks);
}

void ZEBIIOPstream::stepPast(iovec*& v, int& nvec, size_t sent) {
    // Whole vectors, then part of one.
    while (nvec > 0 && sent >= v->iov_len) {
        sent -= v->iov_len;
        ++v;
        --nvec;
    }
    if (nvec > 0) {
        v->iov_base = static_cast<char*>(v->iov_base) + sent;
        v->iov_len -= sent;
    }
}

void ZEBIIOPstream::_waitForOutput(unsigned long timeout) {
    // A client with callbacks serves other connections while it waits.
    if (!_serverSide && !_blocking && ZEBGlobalTable::has_callback) {
        _waitInLoop(dpDispatcher::WriteMask, timeout);
        return;
    }
    pollfd p{_fd, POLLOUT, 0};
    int timeoutMs = timeout ? static_cast<int>(std::min(timeout, 2000000UL) * 1000) : -1;
    int r;
    while ((r = ::poll(&p, 1, timeoutMs)) < 0 && errno == EINTR) {
    }
    if (r < 0) commFailure(errno);
    if (r == 0) throw CORBA_NO_RESPONSE(0, CORBA::COMPLETED_NO);
}

// A client with callbacks normally waits for its reply in the dispatcher,
// which serves whatever else comes meanwhile. When nothing else can come
// (no events owed, no timers, no other descriptor than this connection and
// the listener of an adapter that has no object to serve), the read itself
// waits in the kernel: one system call where the dispatcher takes two.
// Connections to such a listener wait in its backlog until the reply is in.
bool ZEBIIOPstream::quietWait() const {
    if (!_perCall || _blocking || _serverSide || _waitTimeout != 0 || !ZEBGlobalTable::has_callback)
        return false;
    return dpDispatcher::instance()->onlyWaitsFor(_fd, ZEBBOA::idleListener());
}

void ZEBIIOPstream::_waitForData(unsigned long timeout) {
    _waitInLoop(dpDispatcher::ReadMask, timeout);
}

void ZEBIIOPstream::_waitInLoop(int mask, unsigned long timeout) {
    dpDispatcher* d = dpDispatcher::instance();
    // Put back the handler that owns the descriptor, also when a handler run
    // by the nested dispatch throws.
    // A read wait on a descriptor that has only a read handler borrows that
    // handler's place, which leaves the kernel's interest as it is.
    struct Restore {
        dpDispatcher* d;
        ZEBIIOPstream* self;
        int fd;
        dpIOHandler* saved;
        bool timer;
        int savedStatus;
        bool borrowed;
        ~Restore() {
            if (borrowed) {
                d->replace(fd, dpDispatcher::ReadMask, saved);
            } else {
                d->unlink(fd);
                if (saved) d->link(fd, dpDispatcher::ReadMask, saved);
            }
            if (timer) d->stopTimer(self);
            self->_waitStatus = savedStatus;
            --self->_readWaits;
        }
    } restore{d, this, _fd, d->handler(_fd, dpDispatcher::ReadMask), timeout != 0, _waitStatus, false};
    ++_readWaits;
    restore.borrowed = mask == dpDispatcher::ReadMask && restore.saved &&
                       !d->handler(_fd, dpDispatcher::WriteMask) &&
                       !d->handler(_fd, dpDispatcher::ExceptMask);
    if (restore.borrowed) {
        d->replace(_fd, dpDispatcher::ReadMask, this);
    } else {
        if (restore.saved) d->unlink(_fd);
        d->link(_fd, static_cast<dpDispatcher::DispatcherMask>(mask), this);
    }
    if (timeout) d->startTimer(static_cast<long>(timeout), 0, this);
    _waitStatus = 0;
    while (_waitStatus == 0) d->dispatch();
    if (_waitStatus == 2) {
        restore.timer = false;  // it fired, and is gone
        throw CORBA_NO_RESPONSE(0, CORBA::COMPLETED_NO);
    }
}
