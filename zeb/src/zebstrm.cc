// The marshalling core of ZEBIIOPstream: primitives, arrays, strings,
// alignment, byte swapping, and the buffer hooks underflow and overflow.
// The connection and message life live in zebstrmio.cc.
#include "zebstrm.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include "except.h"
#include "zebglob.h"
#include "zebidl.h"
#include "zebread.h"

namespace {

// Padding bytes. Their value means nothing; blanks, as the writer always used.
constexpr char kPad[16] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                           ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};

// From this length a lent string goes out from its owner's bytes (lendOut)
// instead of a copy in the output block.
constexpr std::size_t kLentString = 16 * 1024;

// Above this a string is read in growing steps, so a lying count costs the
// bytes that really arrive and not one allocation of its size. Twice the
// reader's first step: a string of 64 KiB and its NUL comes in one block
// instead of a full step and a copy for the last byte.
constexpr CORBA::ULong kDirectStringLimit = 128 * 1024;

using ZEBcdr::fromWire;
using ZEBcdr::toWire;

}  // namespace

const char ZEBIIOPstream::_class_name[] = "ZEBIIOPstream";

const char* ZEBIIOPstream::className() const { return _class_name; }

int ZEBIIOPstream::isKindOf(const char* name) const {
    return name == _class_name || GIOPstream::isKindOf(name);
}

void ZEBIIOPstream::shortData() { throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO); }

// ---------------------------------------------------------------- reading

void ZEBIIOPstream::checkMessageHas(std::size_t n) const {
    // Reading on past the message would eat the next one's header and leave
    // the framing broken; the read is refused instead.
    if (n > msgLeft()) shortData();
}

void ZEBIIOPstream::readRawSlow(char* dest, std::size_t n) {
    if (n == 0) return;
    checkMessageHas(n);  // also keeps n within 32 bits
    underflow(dest, static_cast<unsigned>(n));
}

void ZEBIIOPstream::alignIn(unsigned n) {
    unsigned r = inPos() & (n - 1);
    if (r != 0) {
        char skip[8];
        readRaw(skip, n - r);
    }
}

uint64_t ZEBIIOPstream::readAlignedSlow(unsigned n) {
    alignIn(n);
    const bool swap = _byteOrder != IIOP::BYTE_ORDER;
    switch (n) {
    case 2: {
        uint16_t v;
        readRaw(reinterpret_cast<char*>(&v), 2);
        return swap ? ZEBcdr::swap(v) : v;
    }
    case 4: {
        uint32_t v;
        readRaw(reinterpret_cast<char*>(&v), 4);
        return swap ? ZEBcdr::swap(v) : v;
    }
    default: {
        uint64_t v;
        readRaw(reinterpret_cast<char*>(&v), 8);
        return swap ? ZEBcdr::swap(v) : v;
    }
    }
}

namespace {

// Pieces of 256 bytes, each of which the library loads whole before storing,
// taken from the end: the loads then run below the stores just made and never
// share their low address bits with them.
void copyBackward(char* dst, const char* src, std::size_t n) {
    constexpr std::size_t kPiece = 256;
    std::size_t at = n - n % kPiece;
    if (at != n) std::memcpy(dst + at, src + at, n - at);
    while (at != 0) {
        at -= kPiece;
        std::memcpy(dst + at, src + at, kPiece);
    }
}

#if defined(__x86_64__) && defined(__GNUC__)
// 32-byte loads anywhere, stores on 32-byte boundaries, four at a time: the
// first store may overlap the second, the tail goes to memcpy.
__attribute__((target("avx2"))) void copyVectors(char* dst, const char* src, std::size_t n) {
    const std::size_t head = (32 - (reinterpret_cast<std::uintptr_t>(dst) & 31)) & 31;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst),
                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src)));
    dst += head, src += head, n -= head;
    for (; n >= 128; dst += 128, src += 128, n -= 128) {
        const __m256i* s = reinterpret_cast<const __m256i*>(src);
        const __m256i a = _mm256_loadu_si256(s), b = _mm256_loadu_si256(s + 1);
        const __m256i c = _mm256_loadu_si256(s + 2), d = _mm256_loadu_si256(s + 3);
        __m256i* o = reinterpret_cast<__m256i*>(dst);
        _mm256_store_si256(o, a), _mm256_store_si256(o + 1, b);
        _mm256_store_si256(o + 2, c), _mm256_store_si256(o + 3, d);
    }
    std::memcpy(dst, src, n);
}

bool haveVectors() {
    static const bool have = (__builtin_cpu_init(), __builtin_cpu_supports("avx2"));
    return have;
}
#endif

}  // namespace

void ZEBcdr::copyBlock(char* dst, const char* src, std::size_t n) {
#if defined(__x86_64__) && defined(__GNUC__)
    if (haveVectors()) {
        copyVectors(dst, src, n);
        return;
    }
#endif
    const std::uintptr_t gap =
        (reinterpret_cast<std::uintptr_t>(dst) - reinterpret_cast<std::uintptr_t>(src)) & 4095;
    if (gap != 0 && gap < 32)
        copyBackward(dst, src, n);
    else
        std::memcpy(dst, src, n);
}

int ZEBIIOPstream::underflow(char* dest, unsigned n) {
    if (!_open) shortData();
    // The message ends before the n bytes do; this covers a message whose
    // end is exactly what is buffered, and refuses to read on into the next.
    if (n > msgLeft()) shortData();
    unsigned have = static_cast<unsigned>(_in.readAvail());
    if (have >= n) {
        ZEBcdr::copy(dest, _in.read_ptr, n);
        _in.read_ptr += n;
        return 0;
    }
    if (have > 0) ZEBcdr::copy(dest, _in.read_ptr, have);
    unsigned rest = n - have;
    // The block starts afresh; the counts stay as they were until the bytes
    // are in, as a read that throws consumes nothing.
    const CORBA::ULong pos = inPos();
    const CORBA::ULong left = msgLeft();
    _in.read_ptr = _in.read_end = _in.read_base;
    setInPos(pos);
    setMsgLeft(left);  // nothing readable while the socket read may throw
    // The read size may have been raised above the block's size by a buffer
    // size setting; reading more than the block holds would overrun it.
    unsigned long chunk = _readSize;
    if (chunk > static_cast<unsigned long>(_in.read_size))
        chunk = static_cast<unsigned long>(_in.read_size);
    if (rest < chunk) {
        int got = _read(_in.read_base, rest, static_cast<long>(chunk));
        _in.read_end = _in.read_base + got;
        ZEBcdr::copy(dest + have, _in.read_base, rest);
        _in.read_ptr += rest;
    } else {
        _read(dest + have, rest, rest);
    }
    setInPos(pos + n);
    setMsgLeft(left - n);
    return 0;
}

TBistream& ZEBIIOPstream::get(char* p, unsigned n) {
    readRaw(p, n);
    return *this;
}

TBistream& ZEBIIOPstream::get(unsigned char* p, unsigned n) {
    readRaw(reinterpret_cast<char*>(p), n);
    return *this;
}

template <class Wire, class T>
void ZEBIIOPstream::getArray(T* p, unsigned n) {
    constexpr std::size_t w = sizeof(Wire);
    alignIn(w);
    std::size_t bytes = static_cast<std::size_t>(n) * w;
    checkMessageHas(bytes);
    char* base = reinterpret_cast<char*>(p);
    readRaw(base, bytes);
    bool swap = _byteOrder != IIOP::BYTE_ORDER;
    if constexpr (sizeof(T) == w) {
        if (swap) {
            for (unsigned i = 0; i < n; ++i) {
                Wire v;
                std::memcpy(&v, base + i * w, w);
                v = ZEBcdr::swap(v);
                std::memcpy(base + i * w, &v, w);
            }
        }
    } else {
        // 4-byte images of 8-byte longs: widen in place from the last one, so
        // that no image is overwritten before it has been read.
        for (unsigned i = n; i-- > 0;) {
            Wire v;
            std::memcpy(&v, base + i * w, w);
            if (swap) v = ZEBcdr::swap(v);
            p[i] = fromWire<T>(v);
        }
    }
}

TBistream& ZEBIIOPstream::get(short* p, unsigned n) { getArray<uint16_t>(p, n); return *this; }
TBistream& ZEBIIOPstream::get(unsigned short* p, unsigned n) { getArray<uint16_t>(p, n); return *this; }
TBistream& ZEBIIOPstream::get(int* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& ZEBIIOPstream::get(unsigned int* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& ZEBIIOPstream::get(long* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& ZEBIIOPstream::get(unsigned long* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& ZEBIIOPstream::get(float* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& ZEBIIOPstream::get(double* p, unsigned n) { getArray<uint64_t>(p, n); return *this; }

TBistream& ZEBIIOPstream::operator>>(char*& s) {
    readCountedString(s, readWire<uint32_t>());
    return *this;
}

// The request's bytes stay put until its reply has gone on the server side
// only: there the whole message is buffered before its operation runs, and
// the connection is out of the dispatcher until the reply is written, so
// nothing reads into the block meanwhile.
const char* ZEBIIOPstream::borrowString(char*& owned) {
    const CORBA::ULong count = readWire<uint32_t>();
    if (_serverSide && count != 0 && inFast() == msgLeft() && count <= inFast() &&
        _in.read_ptr[count - 1] == '\0') {
        const char* p = _in.read_ptr;
        advanceIn(count);
        return p;
    }
    readCountedString(owned, count);
    return owned;
}

void ZEBIIOPstream::readCountedString(char*& s, CORBA::ULong count) {
    if (count == 0) {
        s = nullptr;
        return;
    }
    checkMessageHas(count);
    // The index of the target's last byte: a NUL behind the count bytes fits
    // when count <= room. The bounded block below has no byte to spare.
    std::size_t room = s ? std::strlen(s) : 0;
    if (s && room + 1 >= count) {
        readRaw(s, count);
    } else {
        CORBA::string_free(s);
        s = nullptr;
        if (count <= kDirectStringLimit || count <= static_cast<CORBA::ULong>(_in.readAvail())) {
            // The target gets the block only once it is filled: a read that
            // fails half way leaves it null rather than owning half a string.
            std::unique_ptr<char[]> block(CORBA::string_alloc(count));
            readRaw(block.get(), count);
            s = block.release();
            room = count;
        } else {
            s = ZEBreadBlock<char>(*this, count);  // exactly count bytes
            room = 0;
        }
    }
    // A count that covers no terminator: every counted byte is kept and a
    // NUL goes behind them, as the memory buffers do, so the same bytes
    // decode to the same text on every path. Where the target has no room
    // for it the string moves to a buffer one byte longer.
    if (s[count - 1] != '\0') {
        if (room < count) {
            char* longer = CORBA::string_alloc(count);
            std::memcpy(longer, s, count);
            CORBA::string_free(s);  // new[] storage on every branch above
            s = longer;
        }
        s[count] = '\0';
    }
}

TBistream& ZEBIIOPstream::getCString(char* buf, unsigned max) {
    CORBA::ULong count = readWire<uint32_t>();
    unsigned copy = (max == UINT_MAX) ? count : max;
    if (count < max) copy = count;
    checkMessageHas(count);
    if (count <= static_cast<CORBA::ULong>(_in.readAvail())) {
        std::strncpy(buf, _in.read_ptr, copy);
        _in.read_ptr += count;
    } else {
        readRaw(buf, copy);
        for (CORBA::ULong i = copy; i < count; ++i) {
            char c;
            get(c);
        }
        // The copy is taken once more from the read pointer, which now stands
        // after the string: a string that straddled a refill loses its text.
        // That behaviour is kept; only the source is bounded by the block, so
        // that what lies beyond it is never read.
        std::size_t room = _in.read_base ? static_cast<std::size_t>(
                                               _in.read_base + _in.read_size - _in.read_ptr)
                                         : 0;
        std::size_t take = copy < room ? copy : room;
        if (take > 0) std::strncpy(buf, _in.read_ptr, take);
        if (take < copy) std::memset(buf + take, 0, copy - take);
    }
    if (copy == 0 && max != 0) buf[0] = '\0';
    return *this;
}

// ---------------------------------------------------------------- writing

void ZEBIIOPstream::reserveOut(std::size_t n) {
    if (n <= static_cast<std::size_t>(_out->writeRoom())) return;
    if (static_cast<std::size_t>(_out->writeCount()) + n > static_cast<std::size_t>(INT_MAX) / 2)
        throw CORBA_NO_MEMORY(0, CORBA::COMPLETED_NO);
    const CORBA::ULong pos = outPos();  // the block may move
    if (!_out->expand_write(static_cast<int>(n))) {
        std::perror("ZEBIIOPstream: expand_write");
        std::exit(1);
    }
    setOutPos(pos);
}

int ZEBIIOPstream::overflow(const char* src, unsigned n) {
    reserveOut(n);
    ZEBcdr::copy(_out->write_ptr, src, n);
    _out->write_ptr += n;
    return 0;
}

void ZEBIIOPstream::writeRawSlow(const char* src, std::size_t n) {
    if (n > UINT_MAX) throw CORBA_NO_MEMORY(0, CORBA::COMPLETED_NO);
    overflow(src, static_cast<unsigned>(n));
}

void ZEBIIOPstream::alignOut(unsigned n) {
    unsigned r = outPos() & (n - 1);
    if (r != 0) writeRaw(kPad, n - r);
}

void ZEBIIOPstream::writeAlignedSlow(uint64_t v, unsigned n) {
    alignOut(n);
    switch (n) {
    case 2: {
        const uint16_t w = static_cast<uint16_t>(v);
        writeRaw(reinterpret_cast<const char*>(&w), 2);
        break;
    }
    case 4: {
        const uint32_t w = static_cast<uint32_t>(v);
        writeRaw(reinterpret_cast<const char*>(&w), 4);
        break;
    }
    default:
        writeRaw(reinterpret_cast<const char*>(&v), 8);
        break;
    }
}

TBostream& ZEBIIOPstream::operator<<(const char* s) { return putCString(s); }

TBostream& ZEBIIOPstream::operator<<(const TBTransObject* obj) {
    return TBostream::operator<<(obj);
}

TBostream& ZEBIIOPstream::operator<<(const TBTransObject& obj) {
    return TBostream::operator<<(obj);
}

TBostream& ZEBIIOPstream::put(const char* p, unsigned n) {
    writeRaw(p, n);
    return *this;
}

TBostream& ZEBIIOPstream::put(const unsigned char* p, unsigned n) {
    writeRaw(reinterpret_cast<const char*>(p), n);
    return *this;
}

template <class Wire, class T>
void ZEBIIOPstream::putArray(const T* p, unsigned n) {
    constexpr std::size_t w = sizeof(Wire);
    alignOut(w);
    std::size_t bytes = static_cast<std::size_t>(n) * w;
    if constexpr (sizeof(T) == w) {
        writeRaw(reinterpret_cast<const char*>(p), bytes);
    } else {
        reserveOut(bytes);
        for (unsigned i = 0; i < n; ++i) {
            Wire v = toWire<Wire>(p[i]);
            std::memcpy(_out->write_ptr + i * w, &v, w);
        }
        _out->write_ptr += bytes;
    }
}

TBostream& ZEBIIOPstream::put(const short* p, unsigned n) { putArray<uint16_t>(p, n); return *this; }
TBostream& ZEBIIOPstream::put(const unsigned short* p, unsigned n) { putArray<uint16_t>(p, n); return *this; }
TBostream& ZEBIIOPstream::put(const int* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& ZEBIIOPstream::put(const unsigned int* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& ZEBIIOPstream::put(const long* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& ZEBIIOPstream::put(const unsigned long* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& ZEBIIOPstream::put(const float* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& ZEBIIOPstream::put(const double* p, unsigned n) { putArray<uint64_t>(p, n); return *this; }

TBostream& ZEBIIOPstream::putCString(const char* s) {
    if (!s) {
        writeWire<uint32_t>(0);
        return *this;
    }
    std::size_t len = std::strlen(s) + 1;
    if (len > UINT32_MAX) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    writeWire(static_cast<uint32_t>(len));
    writeRaw(s, len);
    return *this;
}

void ZEBIIOPstream::putLentString(const char* s, std::size_t len) {
    if (len > UINT32_MAX) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    writeWire(static_cast<uint32_t>(len));
    if (lends(len)) lendOut(s, len);
    else writeRaw(s, len);
}

TBistream& operator>>(TBistream& strm, ZEBInString& v) {
    if (ZEBIIOPstream* z = dynamic_cast<ZEBIIOPstream*>(&strm)) {
        v._p = z->borrowString(v._owned);
        return strm;
    }
    strm >> v._owned;
    v._p = v._owned;
    return strm;
}

TBostream& operator<<(TBostream& strm, ZEBLentString v) {
    // The stream's type is looked at for long strings only.
    const std::size_t len = std::strlen(v.s) + 1;
    if (len >= kLentString) {
        if (ZEBIIOPstream* z = dynamic_cast<ZEBIIOPstream*>(&strm)) {
            z->putLentString(v.s, len);
            return strm;
        }
    }
    return strm << v.s;
}

// ---------------------------------------------------------------- encapsulations

void ZEBIIOPstream::newOutEncapsulation() {
    setOutPos(0);
    byteOrder(IIOP::BYTE_ORDER);
}

void ZEBIIOPstream::unputULong() {
    // Only ever follows the write of that unsigned long; with fewer bytes in
    // the block there is nothing to take back.
    if (_out->writeCount() < 4) return;
    _out->write_ptr -= 4;
}

void ZEBIIOPstream::set_read_buffer(char* data, unsigned long size, unsigned char owned) {
    if (size > static_cast<unsigned long>(INT_MAX)) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    const CORBA::ULong pos = inPos();
    _in.set_buffer(nullptr, 0, data, static_cast<int>(size), owned);
    _in.read_end += size;
    setInPos(pos);
    setMsgLeft(static_cast<CORBA::ULong>(size));
}

void ZEBIIOPstream::rewindInBuffer() {
    const CORBA::ULong left = msgLeft();
    _in.read_ptr = _in.read_end = _in.read_base;
    setInPos(0);
    setMsgLeft(left);
    emptyInTypeCodes();
    _tcDepth = 0;
}

void ZEBIIOPstream::rewindOutBuffer() {
    if (_pendingBufs.count()) recyclePending();
    _out->write_ptr = _out->write_base;
    setOutPos(0);
    _pendingBytes = 0;
    emptyOutTypeCodes();
    _tcDepth = 0;
}
