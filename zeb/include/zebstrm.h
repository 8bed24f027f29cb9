// One TCP connection that speaks GIOP: socket, message framing and the CDR
// marshaller in one object. It waits for its socket inside a nested run of
// the dispatcher, so that other connections and timers are served meanwhile.
// Without a socket the same class is a scratch encoder and decoder for
// object keys, profiles and stringified references.
#ifndef KELVANOR_ZEBSTRM_H
#define KELVANOR_ZEBSTRM_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

#include <kelvanor/corba.h>
#include <kelvanor/giop.h>
#include <kelvanor/iohandle.h>
#include <kelvanor/mstrm.h>
#include <kelvanor/tbipcstr.h>

struct iovec;
struct sockaddr_in;
class ZEBTypeCodeList;
class ZEBTypeCodeTable;

namespace ZEB_EXT {

// What a server knows of the caller of a connection.
struct ConnectionInfo {
    ConnectionInfo() = default;
    ~ConnectionInfo();
    ConnectionInfo(const ConnectionInfo&) = delete;
    ConnectionInfo& operator=(const ConnectionInfo&) = delete;

    char* host = nullptr;  // owned, from CORBA::string_alloc; null if unknown
    unsigned short port = 0;
    int fd = -1;
};

}  // namespace ZEB_EXT

// The wire images of the CDR primitives. C++ long and unsigned long carry 4
// bytes; every other value travels in its own size.
namespace ZEBcdr {

template <std::size_t N>
struct UnsignedOf;
template <>
struct UnsignedOf<2> {
    using type = uint16_t;
};
template <>
struct UnsignedOf<4> {
    using type = uint32_t;
};
template <>
struct UnsignedOf<8> {
    using type = uint64_t;
};

template <class T>
using WireFor = std::conditional_t<std::is_integral<T>::value && sizeof(T) == 8, uint32_t,
                                   typename UnsignedOf<sizeof(T)>::type>;

inline uint16_t swap(uint16_t v) { return __builtin_bswap16(v); }
inline uint32_t swap(uint32_t v) { return __builtin_bswap32(v); }
inline uint64_t swap(uint64_t v) { return __builtin_bswap64(v); }

template <class T, class W>
inline T fromWire(W w) {
    if constexpr (sizeof(T) == sizeof(W)) {
        T v;
        std::memcpy(&v, &w, sizeof v);
        return v;
    } else {
        using S = std::conditional_t<std::is_signed<T>::value, int32_t, uint32_t>;
        S s;
        std::memcpy(&s, &w, sizeof s);
        return static_cast<T>(s);
    }
}

template <class W, class T>
inline W toWire(T v) {
    W w;
    if constexpr (sizeof(T) == sizeof(W)) {
        std::memcpy(&w, &v, sizeof w);
    } else {
        auto narrow =
            static_cast<std::conditional_t<std::is_signed<T>::value, int32_t, uint32_t>>(v);
        std::memcpy(&w, &narrow, sizeof w);
    }
    return w;
}

// Padding bytes mean nothing; blanks, as the writer always used.
constexpr uint64_t kBlanks = 0x2020202020202020ULL;

// A value stored or loaded in place, at any alignment. A typed access (not a
// memcpy, which may touch anything) tells the compiler that it leaves the
// stream's own pointers alone, so a run of values keeps them in registers.
template <class W>
struct __attribute__((packed)) Loose {
    W v;
};
template <class W>
inline void store(char* p, W v) {
    reinterpret_cast<Loose<W>*>(p)->v = v;
}
template <class W>
inline W load(const char* p) {
    return reinterpret_cast<const Loose<W>*>(p)->v;
}

// Copies a block of 1 KiB or more (zebstrm.cc).
void copyBlock(char* dst, const char* src, std::size_t n);

// memcpy, but for big blocks (a sequence of numbers, a long string): those
// go through copyBlock, which stores whole aligned vectors where the
// processor has them. The library's copy of 4 to 64 KiB is a string move
// whose speed depends on where the two blocks lie: 10 to 30 times slower
// when the destination lies just past the source modulo 4 KiB (every load
// then looks as if it might depend on a store just made), as a sequence read
// out of the receive buffer into fresh storage often does, and some 10%
// slower than a vector loop elsewhere.
inline void copy(char* dst, const char* src, std::size_t n) {
    if (n >= 1024) {
        copyBlock(dst, src, n);
        return;
    }
    std::memcpy(dst, src, n);
}

}  // namespace ZEBcdr

// Failures are CORBA system exceptions: transport faults CORBA_COMM_FAILURE
// (minor errno, completed NO), time-outs CORBA_NO_RESPONSE, reads past the
// end of the message or on an unconnected stream CORBA_MARSHAL, operations
// in the wrong open state CORBA_BAD_OPERATION. The stream never closes
// itself on failure, but for a failed connect: its owner decides.
class ZEBIIOPstream : public GIOPstream, public dpIOHandler {
public:
    // No socket. Blocks are sized from ZEBGlobalTable. The first stream made
    // in the process installs a zeroed SIGPIPE action (the default action);
    // writes use MSG_NOSIGNAL, so a vanished peer is a CORBA_COMM_FAILURE
    // all the same.
    ZEBIIOPstream();
    // Closes the descriptor if open (without shutdown) and frees all blocks.
    ~ZEBIIOPstream() override;

    const char* className() const override;
    int isKindOf(const char* name) const override;

    // ---- Reading. Values of 2, 4 and 8 bytes are aligned to their size from
    // the input position, and swapped when the data byte order differs from
    // IIOP::BYTE_ORDER. C++ long and unsigned long carry 4 bytes.

    // A count of 0 gives null (the old pointer is not freed). A non-null
    // target is kept when strlen(target) + 1 covers the count, else it is
    // freed with CORBA::string_free and replaced; so it must come from
    // CORBA::string_alloc. A string whose count covers no NUL keeps all its
    // bytes and gets one behind them (in a longer buffer if need be), as
    // from the memory buffers. The caller owns the result.
    TBistream& operator>>(char*& s) final;
    // The value operators are defined here so that a caller who holds the
    // stream by its own type gets them inline; through a base reference
    // they cost one virtual call and run the same code.
    TBistream& operator>>(char& c) final { return readOctet(c); }
    TBistream& operator>>(unsigned char& c) final { return readOctet(c); }
    TBistream& operator>>(short& v) final { return readValue(v); }
    TBistream& operator>>(unsigned short& v) final { return readValue(v); }
    TBistream& operator>>(int& v) final { return readValue(v); }
    TBistream& operator>>(unsigned int& v) final { return readValue(v); }
    TBistream& operator>>(long& v) final { return readValue(v); }
    TBistream& operator>>(unsigned long& v) final { return readValue(v); }
    TBistream& operator>>(float& v) final { return readValue(v); }
    TBistream& operator>>(double& v) final { return readValue(v); }

    // The byte as unsigned, 0 to 255: a 0xff octet is never the -1 that
    // means no data.
    int get() final {
        unsigned char c;
        readOctet(c);
        return c;
    }
    TBistream& get(char& c) final { return readOctet(c); }
    TBistream& get(unsigned char& c) final { return readOctet(c); }
    // Raw bytes: no alignment, no swapping.
    TBistream& get(char* p, unsigned n) final;
    TBistream& get(unsigned char* p, unsigned n) final;
    // Arrays align once, move all n elements in one copy, then swap each if
    // needed. n == 0 still aligns.
    TBistream& get(short* p, unsigned n) final;
    TBistream& get(unsigned short* p, unsigned n) final;
    TBistream& get(int* p, unsigned n) final;
    TBistream& get(unsigned int* p, unsigned n) final;
    TBistream& get(long* p, unsigned n) final;
    TBistream& get(unsigned long* p, unsigned n) final;
    TBistream& get(float* p, unsigned n) final;
    TBistream& get(double* p, unsigned n) final;
    // Copies min(max, count) bytes with strncpy semantics (max of all ones
    // means "the count"); the stream moves past the whole string. When the
    // string was not wholly buffered the copy is taken again from what then
    // stands at the read pointer, which may lose the text: kept on purpose.
    TBistream& getCString(char* buf, unsigned max) override;

    // ---- Writing, in host order. Values are aligned as on reading, padding
    // bytes are blanks. The operators return the TBostream part.

    // Null: count 0 and no bytes. Otherwise strlen + 1, then the text and NUL.
    TBostream& operator<<(const char* s) final;
    TBostream& operator<<(char c) final { return writeOctet(c); }
    TBostream& operator<<(unsigned char c) final { return writeOctet(c); }
    TBostream& operator<<(short v) final { return writeValue(v); }
    TBostream& operator<<(unsigned short v) final { return writeValue(v); }
    TBostream& operator<<(int v) final { return writeValue(v); }
    TBostream& operator<<(unsigned int v) final { return writeValue(v); }
    TBostream& operator<<(long v) final { return writeValue(v); }
    TBostream& operator<<(unsigned long v) final { return writeValue(v); }
    TBostream& operator<<(float v) final { return writeValue(v); }
    TBostream& operator<<(double v) final { return writeValue(v); }
    TBostream& operator<<(const TBTransObject* obj) override;
    TBostream& operator<<(const TBTransObject& obj) override;

    TBostream& put(char c) final { return writeOctet(c); }
    TBostream& put(const char* p, unsigned n) final;
    TBostream& put(const unsigned char* p, unsigned n) final;
    // Arrays as on reading: one alignment, one copy.
    TBostream& put(const short* p, unsigned n) final;
    TBostream& put(const unsigned short* p, unsigned n) final;
    TBostream& put(const int* p, unsigned n) final;
    TBostream& put(const unsigned int* p, unsigned n) final;
    TBostream& put(const long* p, unsigned n) final;
    TBostream& put(const unsigned long* p, unsigned n) final;
    TBostream& put(const float* p, unsigned n) final;
    TBostream& put(const double* p, unsigned n) final;
    TBostream& putCString(const char* s) final;
    // A string argument or result (ZEBlentString): written as by
    // putCString, len counting the NUL, but a long one on a connection goes
    // out from s itself, which must stay put until sendMessage.
    void putLentString(const char* s, std::size_t len);
    // An in-string argument (ZEBInString): a pointer into the request when
    // its bytes stay put until the reply, else a copy left in `owned`.
    const char* borrowString(char*& owned);

    // ---- Message life (CORBA_MarshalStream, GIOPstream).

    // Drops buffered input (read-ahead included) / the output written so far,
    // and sets that direction's position to 0.
    void rewindInBuffer() override;
    void rewindOutBuffer() override;
    void flushRead() override {}
    // Patches message_size (total less 12) into the header and writes the
    // block. The block must start with a header (writeMessageHeader).
    void sendMessage(unsigned long timeout) override;
    // The next sendMessage throws the message written so far away instead of
    // sending it, once. A server answering a request that asked for no reply
    // writes it as usual and lets it fall here, so that no skeleton needs to
    // know. keepNextMessage takes the mark back.
    void dropNextMessage() { _dropNext = 1; }
    void keepNextMessage() { _dropNext = 0; }
    // Discards the rest of the previous message, reads the next header and
    // leaves the body to the read operators. CloseConnection from the peer
    // is CORBA_COMM_FAILURE (completed MAYBE), MessageError CORBA_INV_IDENT
    // (MAYBE), a bad magic or version CORBA_COMM_FAILURE (NO).
    void receiveMessage(unsigned long timeout) override;
    void sendAndWaitForReply(unsigned long timeout) override;
    // Within a TypeCode being written, a TypeCode written before in the
    // same message goes as 0xffffffff and the distance back to it; a
    // top-level one always in full. Null is CORBA_BAD_PARAM. On reading,
    // an indirection to no TypeCode of the message is CORBA_MARSHAL. With
    // -ORBstdtypecodes both use the encapsulated form, where indirections
    // reach within one top-level TypeCode; reading it, a kind after
    // tk_except or an encapsulation longer than the message is
    // CORBA_MARSHAL as well.
    void putTypeCode(CORBA_TypeCode* tc) override;
    void getTypeCode(CORBA_TypeCode*& tc) override;

    void close() override;
    CORBA::Boolean open() const override { return _open; }
    const IIOP::MessageHeader& msgHeader() const override { return _header; }
    // Input position to 0; the caller reads and stores the byte-order octet.
    void newInEncapsulation() override { setInPos(0); }
    // Output position to 0 and the data byte order back to ours.
    void newOutEncapsulation() override;
    // Consumes what the reader left of the current message, in bounded chunks.
    void discardCurMsg() override;
    // A new record the caller deletes; empty if the peer is unknown.
    ZEB_EXT::ConnectionInfo* peerInfo() override;
    // Takes back the four bytes written last (no-op with fewer written).
    void unputULong() override;
    void blocking(unsigned char on) override;
    int fd() const override { return _fd; }
    CORBA::Boolean hasMoreData() const override { return _in.read_ptr < _in.read_end; }
    // True while a reader of this stream waits for input further down the
    // stack (the nested dispatch of a wait); a handler run meanwhile must
    // not read from or write to it.
    bool waiting() const { return _readWaits > 0; }

    // Resets the output block and writes a header of this type with size 0,
    // in our byte order. The output position is left as it is: call
    // beginWrite or newOutEncapsulation first when starting afresh.
    void writeMessageHeader(IIOP::MsgType type);

    // ---- Scratch use.

    // Reads from the caller's bytes instead of a connection; the stream
    // frees them (delete[]) only if owned. The data count as one message.
    void set_read_buffer(char* data, unsigned long size, unsigned char owned);
    // The byte order the reader swaps against (IIOP::BYTE_ORDER: no swap).
    unsigned char byteOrder() const { return _byteOrder; }
    void byteOrder(unsigned char order) {
        _byteOrder = order;
        syncInLimit();
    }
    // The bytes written to the output block so far.
    const char* outData() const { return _out->write_base; }
    unsigned long outLength() const { return static_cast<unsigned long>(_out->writeCount()); }
    unsigned long inPosition() const { return inPos(); }
    unsigned long outPosition() const { return outPos(); }
    // Bytes of the current input message not yet consumed.
    unsigned long messageBytesLeft() const { return msgLeft(); }
    unsigned long bufferedBytes() const { return static_cast<unsigned long>(_in.readAvail()); }

    // ---- Sockets. Host and port arguments are in host order.

    // A listening socket on ipaddr (null: any address); port 0 lets the
    // kernel choose, read back into port().
    void listen(int port, const char* ipaddr);
    // Accepts one connection. newfd is close-on-exec and keep-alive.
    void accept(int& newfd);
    // The same, wrapped in a new stream that the caller deletes.
    ZEBIIOPstream* accept();
    // Adopts a connected descriptor (server side).
    void attach(int fd);
    // timeout in seconds, 0 for none. An unknown host is CORBA_BAD_PARAM.
    void connect(const char* host, unsigned short port, unsigned long timeout);
    void connect(const sockaddr_in* addr, unsigned long timeout);
    // Round to a multiple of 1024 (down below a remainder of 501) and set
    // SO_SNDBUF / SO_RCVBUF; both record the size as the read size.
    void sendBufferSize(unsigned long size);
    void receiveBufferSize(unsigned long size);

    unsigned short port() const { return _port; }
    CORBA::Boolean serverSide() const { return _serverSide; }
    CORBA::Boolean isBlocking() const { return _blocking; }

    // ---- A server connection that never blocks (zebstrmnb.cc). Departs
    // from the stream's first rule, under which a server read and wrote its
    // connection in blocking mode, so that one client could stall them all.

    // What the input block holds after the current message.
    enum InputState {
        INPUT_PARTIAL,      // not yet a whole message
        INPUT_WHOLE,        // a whole message: receiveMessage reads no socket
        INPUT_BAD_MAGIC,    // no GIOP header
        INPUT_BAD_VERSION,  // GIOP, but not 1.0
        INPUT_TOO_BIG       // its stated size passes the limit
    };
    InputState bufferedMessage(unsigned long limit) const;
    // Reads what the socket holds without waiting, until a whole message is
    // buffered; the block grows with the bytes that arrive (never by a
    // stated size), so a message of up to limit bytes fits. Returns the
    // bytes read; ended is set when the peer has closed. Throws
    // CORBA_COMM_FAILURE (minor errno) on a failed read.
    unsigned long readAvailable(unsigned long limit, bool& ended);
    // From now on sendMessage never waits: what the socket does not take is
    // queued behind it and goes out through flushQueued.
    void queueOutput() { _queueOutput = 1; }
    // Sends what is queued without waiting; the bytes sent. Throws
    // CORBA_COMM_FAILURE (minor errno) when the connection fails.
    unsigned long flushQueued();
    unsigned long queuedBytes() const {
        return static_cast<unsigned long>(_queued.size() - _queuedHead);
    }
    // Gives a large input block back once nothing is buffered in it.
    void shrinkInput();

    // ---- Buffer hooks and dispatcher events.

    // Fills dest with n bytes when fewer are buffered: what is buffered,
    // then from the connection (through the block, or straight for a read
    // of at least the read size). 0 on success; throws otherwise.
    int underflow(char* dest, unsigned n);
    // Grows the output block and appends n bytes. 0.
    int overflow(const char* src, unsigned n);
    int inputReady(int fd) override;
    int outputReady(int fd) override;
    void timerExpired(long sec, long usec) override;

    static const char _class_name[];

private:
    ZEBIIOPstream(const ZEBIIOPstream&) = delete;
    ZEBIIOPstream& operator=(const ZEBIIOPstream&) = delete;

    // ---- The fast paths. Each primitive aligns by mask, makes one bound
    // check and copies; whatever does not fit goes to an out-of-line slow
    // path that does the same work one step at a time (refilling from the
    // socket, growing the block, or throwing).

    // The positions are kept as origins against the pointers they count
    // from, so that a value read or written moves one pointer and nothing
    // else. Anything that moves a pointer by other than a read or a write
    // saves the positions first and sets them again afterwards.
    static std::uintptr_t addr(const char* p) { return reinterpret_cast<std::uintptr_t>(p); }
    CORBA::ULong inPos() const { return static_cast<CORBA::ULong>(addr(_in.read_ptr) - _inOrigin); }
    void setInPos(CORBA::ULong pos) { _inOrigin = addr(_in.read_ptr) - pos; }
    CORBA::ULong msgLeft() const { return static_cast<CORBA::ULong>(_msgEnd - addr(_in.read_ptr)); }
    void setMsgLeft(CORBA::ULong n) {
        _msgEnd = addr(_in.read_ptr) + n;
        syncInLimit();
    }
    CORBA::ULong outPos() const {
        return static_cast<CORBA::ULong>(addr(_out->write_ptr) - _outOrigin);
    }
    void setOutPos(CORBA::ULong pos) { _outOrigin = addr(_out->write_ptr) - pos; }

    // Bytes the fast read path may take: those of the current message that
    // are already buffered.
    std::size_t inFast() const { return static_cast<std::size_t>(_inLimit - _in.read_ptr); }
    void advanceIn(std::size_t n) { _in.read_ptr += n; }
    // Recomputes _inLimit; called by whatever changes the buffered bytes or
    // the message bound.
    void syncInLimit() {
        std::size_t avail = static_cast<std::size_t>(_in.read_end - _in.read_ptr);
        std::size_t left = msgLeft();
        _inLimit = _in.read_ptr + (avail < left ? avail : left);
        _inValueLimit = _byteOrder == IIOP::BYTE_ORDER ? addr(_inLimit) : 0;
    }

    // The fast path tests one bound and nothing else: data in the other
    // byte order has a bound of 0 and always takes the slow path, which
    // swaps. An aligned value (the usual case) is a branch of its own, so
    // that from one value to the next the pointer only moves by n and a run
    // of values does not wait on the padding sum.
    template <class W>
    W readWire() {
        constexpr std::size_t n = sizeof(W);
        char* const p = _in.read_ptr;
        const std::size_t pad = (_inOrigin - addr(p)) & (n - 1);
        // Bounds as numbers: p may be null, where no pointer may be offset.
        if (__builtin_expect(pad != 0, 0)) {
            if (addr(p) + pad + n <= _inValueLimit) {
                _in.read_ptr = p + pad + n;
                return ZEBcdr::load<W>(p + pad);
            }
        } else if (__builtin_expect(addr(p) + n <= _inValueLimit, 1)) {
            _in.read_ptr = p + n;
            return ZEBcdr::load<W>(p);
        }
        return static_cast<W>(readAlignedSlow(n));
    }
    template <class T>
    TBistream& readValue(T& v) {
        v = ZEBcdr::fromWire<T>(readWire<ZEBcdr::WireFor<T>>());
        return *this;
    }
    template <class C>
    TBistream& readOctet(C& c) {
        if (inFast() >= 1) {
            c = static_cast<C>(*_in.read_ptr);
            advanceIn(1);
        } else {
            readRawSlow(reinterpret_cast<char*>(&c), 1);
        }
        return *this;
    }
    void readRaw(char* dest, std::size_t n) {
        if (n <= inFast()) {
            if (n != 0) ZEBcdr::copy(dest, _in.read_ptr, n);
            advanceIn(n);
            return;
        }
        readRawSlow(dest, n);
    }

    // Padding goes in as n blanks before the value is stored over the last
    // of them, so that a padded value costs two fixed-size stores; an
    // aligned one, the usual case, one store, on a branch of its own as on
    // reading.
    template <class W>
    void writeWire(W v) {
        constexpr std::size_t n = sizeof(W);
        TBipcbuf& b = *_out;
        char* p = b.write_ptr;
        const std::size_t pad = (_outOrigin - addr(p)) & (n - 1);
        if (__builtin_expect(pad != 0, 0)) {
            if (n + pad <= static_cast<std::size_t>(b.write_base + b.write_size - p)) {
                ZEBcdr::store<W>(p, static_cast<W>(ZEBcdr::kBlanks));
                p += pad;
                ZEBcdr::store<W>(p, v);
                b.write_ptr = p + n;
                return;
            }
        } else if (__builtin_expect(addr(p) + n <= addr(b.write_base) + b.write_size, 1)) {
            ZEBcdr::store<W>(p, v);
            b.write_ptr = p + n;
            return;
        }
        writeAlignedSlow(v, n);
    }
    template <class T>
    TBostream& writeValue(T v) {
        writeWire(ZEBcdr::toWire<ZEBcdr::WireFor<T>>(v));
        return *this;
    }
    template <class C>
    TBostream& writeOctet(C c) {
        TBipcbuf& b = *_out;
        if (b.writeRoom() >= 1) {
            *b.write_ptr++ = static_cast<char>(c);
        } else {
            const char byte = static_cast<char>(c);
            writeRawSlow(&byte, 1);
        }
        return *this;
    }
    void writeRaw(const char* src, std::size_t n) {
        TBipcbuf& b = *_out;
        if (n <= static_cast<std::size_t>(b.writeRoom())) {
            if (n != 0) ZEBcdr::copy(b.write_ptr, src, n);
            b.write_ptr += n;
            return;
        }
        writeRawSlow(src, n);
    }

    // The slow paths: align (padding may itself cross the end), then move
    // the n bytes of the value; a value read is swapped if the data's byte
    // order is not ours.
    // The value goes by value in the low n bytes, so that the fast path
    // never has to keep it in memory for them.
    uint64_t readAlignedSlow(unsigned n);
    void writeAlignedSlow(uint64_t v, unsigned n);
    void readRawSlow(char* dest, std::size_t n);
    // A string whose count is read: into s, whose storage is reused when it
    // is big enough.
    void readCountedString(char*& s, CORBA::ULong count);
    void writeRawSlow(const char* src, std::size_t n);

    template <class Wire, class T>
    void getArray(T* p, unsigned n);
    template <class Wire, class T>
    void putArray(const T* p, unsigned n);

    void alignIn(unsigned n);
    void alignOut(unsigned n);
    void reserveOut(std::size_t n);
    void checkMessageHas(std::size_t n) const;
    void selectMode(bool withTimeout);
    // A read that may block in the kernel for the reply instead of waiting
    // in the dispatcher: nothing else could need the process meanwhile.
    bool quietWait() const;
    // Counts one level of TypeCode nesting while it lives.
    struct Nesting {
        explicit Nesting(int& depth) : _depth(++depth) {}
        ~Nesting() { --_depth; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;
        int& _depth;
    };
    // The encapsulated form of -ORBstdtypecodes (zebstdtc.cc), in place of
    // the broker's own when the option is given.
    void putStdTypeCode(CORBA_TypeCode* tc);
    void getStdTypeCode(CORBA_TypeCode*& tc);
    // After the kind and the length: the encapsulation of that length and
    // the parameters in it. The caller releases the result.
    CORBA_TypeCode* readEncapsulatedTypeCode(CORBA::ULong kind, CORBA::ULong length);
    // Empty the TypeCode tables and zero their counts.
    void emptyInTypeCodes();
    void emptyOutTypeCodes();
    void fillHeaderBytes();
    void sendPending();
    // sendMessage of a stream in queue mode: the message goes out as far as
    // the socket takes it, the rest (and everything behind a queue) queued.
    void queueMessage();
    void sendOrQueue(const char* p, std::size_t n);
    // Returns the pending blocks to the free list (or deletes foreign ones).
    void recyclePending();
    // A long lent string: the block so far becomes pending, the string's
    // own bytes follow it as a foreign block, and writing goes on in a fresh
    // block; sendMessage gathers them in one write (queue mode copies what
    // the socket does not take at once).
    bool lends(std::size_t n) const;
    void lendOut(const char* src, std::size_t n);

    // Reads at least minimum bytes; waitFirst waits for input before the
    // first read.
    int _read(char* buf, long minimum, long maximum, bool waitFirst = false);
    void _write(const char* buf, long length);
    void _writev(long total, TBipcbuf* first, int count);
    // Moves a gathered write's vectors past the sent bytes.
    static void stepPast(iovec*& v, int& nvec, std::size_t sent);
    // Wait for the socket to take output (a non-blocking client with
    // callbacks in the dispatcher, otherwise in poll) or to have input (in
    // the dispatcher). The dispatcher's wait sets the descriptor's own
    // handler aside meanwhile.
    void _waitForOutput(unsigned long timeout);
    void _waitForData(unsigned long timeout);
    void _waitInLoop(int mask, unsigned long timeout);
    [[noreturn]] void commFailure(int minor) const;
    [[noreturn]] static void shortData();
    [[noreturn]] void wrongState() const;

    // Input: bytes received but not consumed lie in [_in.read_ptr,
    // _in.read_end); they may run past the current message into the next.
    TBipcbuf _in;
    // Output: the message being written lies in [write_base, write_ptr).
    std::unique_ptr<TBipcbuf> _out;
    // Body bytes of the current input message not yet consumed: _msgEnd -
    // read_ptr as numbers; never negative: a read that would pass the end
    // throws instead.
    std::uintptr_t _msgEnd = 0;
    CORBA::ULong _msgSize = 0;
    // read_ptr + min(read_end - read_ptr, msgLeft()): the fast read path
    // takes bytes from [read_ptr, _inLimit) only.
    char* _inLimit = nullptr;
    // _inLimit as a number while the data is in our byte order, else 0.
    std::uintptr_t _inValueLimit = 0;
    // Alignment counts, bytes read / written since the origin was last set:
    // read_ptr - _inOrigin and write_ptr - _outOrigin as numbers, modulo 2^32.
    std::uintptr_t _inOrigin = 0;
    std::uintptr_t _outOrigin = 0;
    unsigned char _byteOrder;  // of the data being read
    TBipcbufList _freeBufs;
    TBipcbufList _pendingBufs;  // fed by lendOut; sendMessage drains it
    unsigned long _pendingBytes = 0;

    int _fd = -1;
    int _fdFlags = -1;  // F_GETFL of _fd as last set by us; -1 not yet read
    // A connection this stream made: its socket stays in the kernel's
    // blocking mode, and blocking() only chooses whether each send and read
    // passes MSG_DONTWAIT, so that no call switches the socket's mode.
    bool _perCall = false;
    unsigned short _port = 0;
    IIOP::MessageHeader _header;
    CORBA::Boolean _open = 0;
    CORBA::Boolean _blocking = 1;
    CORBA::Boolean _dropNext = 0;  // see dropNextMessage
    unsigned long _blockSize;
    // Bytes asked for per read. Buffer size settings overwrite it; reads
    // into the block never ask for more than the block holds.
    unsigned long _readSize;
    unsigned long _waitTimeout = 0;
    CORBA::Boolean _serverSide = 0;
    // Per message: offsets of the TypeCodes read / written, made at first
    // use, emptied where the counts go to 0 (their entries).
    std::unique_ptr<ZEBTypeCodeTable> _inTcTable;
    std::unique_ptr<ZEBTypeCodeTable> _outTcTable;
    int _inTcCount = 0;
    int _outTcCount = 0;
    int _tcDepth = 0;  // nesting of putTypeCode
    // The encapsulated form's: the complex TypeCodes of the top-level
    // TypeCode being written / read, by position; made at first use.
    std::unique_ptr<ZEBTypeCodeList> _stdOutTcs;
    std::unique_ptr<ZEBTypeCodeList> _stdInTcs;
    int _stdInDepth = 0;  // nesting of getStdTypeCode's encapsulations
    int _waitStatus = 1;  // 0 waiting, 1 input ready, 2 timed out
    int _readWaits = 0;   // waits in the dispatcher under way, nested ones counted
    // Queue mode (queueOutput): bytes owed to the peer lie in
    // [_queuedHead, _queued.size()) of _queued, in order.
    CORBA::Boolean _queueOutput = 0;
    std::string _queued;
    std::size_t _queuedHead = 0;
};

#endif
