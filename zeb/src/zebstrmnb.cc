// The server side of a connection without blocking: input is gathered until
// a message is whole, and replies the socket does not take are queued.
#include "zebstrm.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "except.h"
#include "zebglob.h"

namespace {

constexpr unsigned long kHeaderSize = 12;
// Blocks of a message sent in one gathered send.
constexpr int kGather = 16;
// Bytes of the queue sent and kept before they are cut off its front.
constexpr std::size_t kQueueCompact = 1 << 20;
// An input block bigger than this goes back to its first size when empty.
constexpr int kKeptInput = 1 << 20;

}  // namespace

ZEBIIOPstream::InputState ZEBIIOPstream::bufferedMessage(unsigned long limit) const {
    // The unread rest of the current message stands before the next header.
    const char* h = _in.read_ptr + msgLeft();
    if (h > _in.read_end || static_cast<unsigned long>(_in.read_end - h) < kHeaderSize)
        return INPUT_PARTIAL;
    if (std::memcmp(h, IIOP::MAGIC_WORD, 4) != 0) return INPUT_BAD_MAGIC;
    if (h[4] != IIOP::CURRENT_VERSION.major || h[5] != IIOP::CURRENT_VERSION.minor)
        return INPUT_BAD_VERSION;
    uint32_t size;
    std::memcpy(&size, h + 8, sizeof size);
    if (static_cast<unsigned char>(h[6]) != IIOP::BYTE_ORDER) size = __builtin_bswap32(size);
    if (size > limit) return INPUT_TOO_BIG;
    return static_cast<unsigned long>(_in.read_end - h) - kHeaderSize >= size ? INPUT_WHOLE
                                                                             : INPUT_PARTIAL;
}

unsigned long ZEBIIOPstream::readAvailable(unsigned long limit, bool& ended) {
    ended = false;
    unsigned long total = 0;
    while (_open && bufferedMessage(limit) == INPUT_PARTIAL) {
        // Full, or empty but not at its start: the unread bytes move to the
        // front, and the block doubles if they fill it. The positions count
        // from read_ptr and are set again. (An empty block left where the
        // last message ended would take the next big one in two reads and a
        // move of all but its last bytes.)
        if (_in.read_end == _in.read_base + _in.read_size ||
            (_in.read_ptr == _in.read_end && _in.read_ptr != _in.read_base)) {
            const CORBA::ULong pos = inPos();
            const CORBA::ULong left = msgLeft();
            const int kept = _in.readAvail();
            std::memmove(_in.read_base, _in.read_ptr, static_cast<size_t>(kept));
            _in.read_ptr = _in.read_base;
            _in.read_end = _in.read_base + kept;
            if (kept == _in.read_size) {
                // What the message under way can need, and never past what
                // an int counts.
                const unsigned long most =
                    std::min<unsigned long>(limit + kHeaderSize + left, 1UL << 30);
                const unsigned long grown =
                    std::min<unsigned long>(std::max(2UL * _in.read_size, 4096UL), most);
                if (grown <= static_cast<unsigned long>(_in.read_size) ||
                    !_in.expand_read(static_cast<int>(grown)))
                    commFailure(ENOMEM);
            }
            setInPos(pos);
            setMsgLeft(left);
        }
        const size_t room = static_cast<size_t>(_in.read_base + _in.read_size - _in.read_end);
        ssize_t n = ::recv(_fd, _in.read_end, room, MSG_DONTWAIT);
        if (n > 0) {
            _in.read_end += n;
            total += static_cast<unsigned long>(n);
            syncInLimit();
            continue;
        }
        if (n == 0) {
            ended = true;
            break;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) break;
        commFailure(errno);
    }
    return total;
}

void ZEBIIOPstream::shrinkInput() {
    if (_in.read_size <= kKeptInput || _in.readAvail() != 0 || msgLeft() != 0) return;
    const CORBA::ULong pos = inPos();
    _in.read_ptr = _in.read_end = _in.read_base;
    const unsigned long first = std::min<unsigned long>(std::max(_readSize, kHeaderSize), 1UL << 30);
    (void)_in.expand_read(static_cast<int>(first));  // a failure keeps the big block
    setInPos(pos);
    setMsgLeft(0);
}

void ZEBIIOPstream::sendOrQueue(const char* p, std::size_t n) {
    if (queuedBytes() == 0) {
        while (n > 0) {
            ssize_t k = ::send(_fd, p, n, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (k < 0 && errno == EINTR) continue;
            if (k < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
            if (k <= 0) commFailure(errno);
            p += k;
            n -= static_cast<std::size_t>(k);
        }
    }
    if (n > 0) _queued.append(p, n);
}

void ZEBIIOPstream::queueMessage() {
    // The size goes into the header as in sendMessage, then each block is
    // sent or queued in order.
    TBipcbuf* first = _pendingBufs.count() ? _pendingBufs.first() : _out.get();
    const long total = static_cast<long>(_pendingBytes) + _out->writeCount();
    if (first->writeCount() < static_cast<int>(kHeaderSize)) wrongState();
    CORBA::ULong size = static_cast<CORBA::ULong>(total - static_cast<long>(kHeaderSize));
    std::memcpy(first->write_base + 8, &size, sizeof size);
    const int blocks = _pendingBufs.count() + 1;
    if (blocks == 1 || blocks > kGather || queuedBytes() != 0) {
        for (TBipcbuf* b = _pendingBufs.first(); b; b = b->next)
            sendOrQueue(b->write_base, static_cast<std::size_t>(b->writeCount()));
        sendOrQueue(_out->write_base, static_cast<std::size_t>(_out->writeCount()));
        recyclePending();
        return;
    }
    // A message with lent blocks goes in one gathered send; what the socket
    // does not take is queued, copied, before the lent bytes go away.
    iovec vec[kGather];
    int nvec = 0;
    for (TBipcbuf* b = _pendingBufs.first(); b; b = b->next)
        vec[nvec++] = {b->write_base, static_cast<std::size_t>(b->writeCount())};
    vec[nvec++] = {_out->write_base, static_cast<std::size_t>(_out->writeCount())};
    iovec* v = vec;
    while (nvec > 0) {
        msghdr msg{};
        msg.msg_iov = v;
        msg.msg_iovlen = static_cast<std::size_t>(nvec);
        ssize_t k = ::sendmsg(_fd, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (k < 0 && errno == EINTR) continue;
        if (k < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        if (k <= 0) commFailure(errno);
        stepPast(v, nvec, static_cast<std::size_t>(k));
    }
    for (; nvec > 0; ++v, --nvec) _queued.append(static_cast<const char*>(v->iov_base), v->iov_len);
    recyclePending();
}

unsigned long ZEBIIOPstream::flushQueued() {
    unsigned long sent = 0;
    while (queuedBytes() > 0) {
        ssize_t k = ::send(_fd, _queued.data() + _queuedHead, queuedBytes(),
                           MSG_NOSIGNAL | MSG_DONTWAIT);
        if (k < 0 && errno == EINTR) continue;
        if (k < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        if (k <= 0) commFailure(errno);
        _queuedHead += static_cast<std::size_t>(k);
        sent += static_cast<unsigned long>(k);
    }
    if (_queuedHead == _queued.size()) {
        _queued.clear();
        _queuedHead = 0;
        if (_queued.capacity() > kQueueCompact) std::string().swap(_queued);
    } else if (_queuedHead > kQueueCompact) {
        _queued.erase(0, _queuedHead);
        _queuedHead = 0;
    }
    return sent;
}
