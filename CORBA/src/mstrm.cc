// CDR in memory. Every value of size n (2, 4 or 8) is preceded by padding
// up to a multiple of n of the alignment count; the writer uses host order,
// and the reader reverses each value when the data's order flag differs from
// the host's. Each class funnels its bytes through one raw operation
// (get(char*, n) and put(const char*, n)), which keeps the checks in one place.
#include "mstrm.h"

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "except.h"

namespace {

// Padding is never more than 7 bytes; the value of pad bytes means nothing.
const char kBlanks[15] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                          ' ', ' ', ' ', ' ', ' ', ' ', ' '};

// Reverses the bytes of a value in place, pairs from both ends inward.
template <class T>
void reverseBytes(T& v) {
    unsigned char* b = reinterpret_cast<unsigned char*>(&v);
    for (size_t i = 0, j = sizeof(T) - 1; i < j; ++i, --j) std::swap(b[i], b[j]);
}

}  // namespace

// --------------------------------------------------- CORBA_MarshalInBuffer

const char CORBA_MarshalInBuffer::_class_name[] = "CORBA_MarshalInBuffer";

CORBA_MarshalInBuffer::CORBA_MarshalInBuffer(char* block, CORBA::ULong length)
    : _block(block),
      _size(block ? length : 0),
      _cursor(0),
      _align(0),
      _owns(0),
      _byteOrder(CORBA::ByteOrder ? 1 : 0) {}

CORBA_MarshalInBuffer::~CORBA_MarshalInBuffer() {
    if (_owns && _block) CORBA::string_free(_block);
}

const char* CORBA_MarshalInBuffer::className() const { return _class_name; }

int CORBA_MarshalInBuffer::isKindOf(const char* name) const {
    return name == _class_name || TBistream::isKindOf(name);
}

void CORBA_MarshalInBuffer::shortData() { throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO); }

TBistream& CORBA_MarshalInBuffer::get(char* p, unsigned n) {
    if (_size - _cursor < n) {
        std::memset(p, 0, n);
        shortData();
    }
    if (n) std::memcpy(p, _block + _cursor, n);
    _cursor += n;
    _align += n;
    return *this;
}

const char* CORBA_MarshalInBuffer::inPlace(unsigned size, CORBA::ULong n) {
    if (_byteOrder != (CORBA::ByteOrder ? 1 : 0)) return nullptr;
    const unsigned r = _align % size;
    const uint64_t bytes = (r ? size - r : 0) + uint64_t(n) * size;
    if (bytes > _size - _cursor) return nullptr;
    const char* p = _block + _cursor + (r ? size - r : 0);
    _cursor += static_cast<CORBA::ULong>(bytes);
    _align += static_cast<CORBA::ULong>(bytes);
    return p;
}

void CORBA_MarshalInBuffer::skipPad(unsigned size) {
    unsigned r = _align % size;
    if (r) {
        char pad[16];
        get(pad, size - r);
    }
}

template <class T>
void CORBA_MarshalInBuffer::readValue(T& v) {
    skipPad(sizeof(T));
    get(reinterpret_cast<char*>(&v), sizeof(T));
    if (_byteOrder != (CORBA::ByteOrder ? 1 : 0)) reverseBytes(v);
}

TBistream& CORBA_MarshalInBuffer::operator>>(char*& s) {
    CORBA::ULong count = 0;
    readValue(count);
    if (count == 0) {
        s = nullptr;
        return *this;
    }
    // The count is checked against what is left of the block before anything
    // is allocated or copied, so a hostile count costs nothing and a target
    // is never written beyond count bytes of real data and a terminator.
    if (count > _size - _cursor) shortData();
    if (!s) s = CORBA::string_alloc(count);  // count + 1 bytes
    get(s, count);
    // A count that covers no terminator (bytes 03000000 616263): every
    // counted byte is kept and a NUL goes behind them, so such a string reads
    // "abc" here and on a connection alike. A caller's own target must
    // therefore hold the text and its terminator.
    if (s[count - 1] != '\0') s[count] = '\0';
    return *this;
}

TBistream& CORBA_MarshalInBuffer::operator>>(char& c) { return get(&c, 1); }

TBistream& CORBA_MarshalInBuffer::operator>>(unsigned char& c) {
    return get(reinterpret_cast<char*>(&c), 1);
}

TBistream& CORBA_MarshalInBuffer::operator>>(short& v) {
    readValue(v);
    return *this;
}

TBistream& CORBA_MarshalInBuffer::operator>>(unsigned short& v) {
    readValue(v);
    return *this;
}

TBistream& CORBA_MarshalInBuffer::operator>>(int& v) {
    readValue(v);
    return *this;
}

TBistream& CORBA_MarshalInBuffer::operator>>(unsigned int& v) {
    readValue(v);
    return *this;
}

// C++ long is wider than the 4 bytes of the wire: read 32 bits and widen.
// The target is cleared first so that short data leaves it zero, as for the
// other types.
TBistream& CORBA_MarshalInBuffer::operator>>(long& v) {
    CORBA::Long w = 0;
    v = 0;
    readValue(w);
    v = w;
    return *this;
}

TBistream& CORBA_MarshalInBuffer::operator>>(unsigned long& v) {
    CORBA::ULong w = 0;
    v = 0;
    readValue(w);
    v = w;
    return *this;
}

TBistream& CORBA_MarshalInBuffer::operator>>(float& v) {
    readValue(v);
    return *this;
}

TBistream& CORBA_MarshalInBuffer::operator>>(double& v) {
    readValue(v);
    return *this;
}

int CORBA_MarshalInBuffer::get() {
    char c;
    *this >> c;
    return static_cast<unsigned char>(c);
}

TBistream& CORBA_MarshalInBuffer::get(char& c) { return *this >> c; }

TBistream& CORBA_MarshalInBuffer::get(unsigned char& c) { return *this >> c; }

TBistream& CORBA_MarshalInBuffer::get(unsigned char* p, unsigned n) {
    return get(reinterpret_cast<char*>(p), n);
}

template <class Wire, class T>
void CORBA_MarshalInBuffer::getArray(T* p, unsigned n) {
    if (n == 0) return;
    skipPad(sizeof(Wire));
    const uint64_t bytes = uint64_t(n) * sizeof(Wire);
    if (bytes > _size - _cursor) {
        std::memset(p, 0, size_t(n) * sizeof(T));
        shortData();
    }
    const char* src = _block + _cursor;
    const bool swap = _byteOrder != (CORBA::ByteOrder ? 1 : 0);
    if constexpr (sizeof(T) == sizeof(Wire)) {
        std::memcpy(p, src, bytes);
        if (swap)
            for (unsigned i = 0; i < n; ++i) reverseBytes(p[i]);
    } else {
        // 4-byte images of 8-byte longs, widened one by one.
        using Narrow = std::conditional_t<std::is_signed<T>::value, int32_t, uint32_t>;
        for (unsigned i = 0; i < n; ++i) {
            Narrow w;
            std::memcpy(&w, src + size_t(i) * sizeof w, sizeof w);
            if (swap) reverseBytes(w);
            p[i] = w;
        }
    }
    _cursor += static_cast<CORBA::ULong>(bytes);
    _align += static_cast<CORBA::ULong>(bytes);
}

TBistream& CORBA_MarshalInBuffer::get(short* p, unsigned n) { getArray<uint16_t>(p, n); return *this; }
TBistream& CORBA_MarshalInBuffer::get(unsigned short* p, unsigned n) { getArray<uint16_t>(p, n); return *this; }
TBistream& CORBA_MarshalInBuffer::get(int* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& CORBA_MarshalInBuffer::get(unsigned int* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& CORBA_MarshalInBuffer::get(long* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& CORBA_MarshalInBuffer::get(unsigned long* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& CORBA_MarshalInBuffer::get(float* p, unsigned n) { getArray<uint32_t>(p, n); return *this; }
TBistream& CORBA_MarshalInBuffer::get(double* p, unsigned n) { getArray<uint64_t>(p, n); return *this; }

TBistream& CORBA_MarshalInBuffer::getCString(char* buf, unsigned max) {
    CORBA::ULong count = 0;
    readValue(count);
    if (max > count) {
        get(buf, count);
        buf[count] = '\0';
        return *this;
    }
    get(buf, max);
    CORBA::ULong rest = count - max;
    if (rest > _size - _cursor) shortData();
    _cursor += rest;
    _align += rest;
    return *this;
}

char* CORBA_MarshalInBuffer::getString() {
    CORBA::ULong count = 0;
    readValue(count);
    if (count == 0) return nullptr;
    if (count > _size - _cursor) shortData();
    char* s = _block + _cursor;
    _cursor += count;
    _align += count;
    return s;
}

// -------------------------------------------------- CORBA_MarshalOutBuffer

const char CORBA_MarshalOutBuffer::_class_name[] = "CORBA_MarshalOutBuffer";

CORBA_MarshalOutBuffer::CORBA_MarshalOutBuffer()
    : _block(CORBA::string_alloc(initial_size)),
      _capacity(initial_size),
      _cursor(0),
      _align(0),
      _owns(0) {}

CORBA_MarshalOutBuffer::~CORBA_MarshalOutBuffer() {
    if (_owns && _block) CORBA::string_free(_block);
}

const char* CORBA_MarshalOutBuffer::className() const { return _class_name; }

int CORBA_MarshalOutBuffer::isKindOf(const char* name) const {
    return name == _class_name || TBostream::isKindOf(name);
}

TBostream& CORBA_MarshalOutBuffer::put(const char* p, unsigned n) {
    uint64_t need = uint64_t(_cursor) + n;
    if (_capacity < need) {
        uint64_t grown = 2 * uint64_t(_capacity);
        if (grown < need) grown = need;
        // The block's size is 32 bits; beyond that no allocator can help.
        if (need > UINT32_MAX - 1) throw CORBA_NO_MEMORY(0, CORBA::COMPLETED_NO);
        if (grown > UINT32_MAX - 1) grown = UINT32_MAX - 1;
        char* block = CORBA::string_alloc(static_cast<CORBA::ULong>(grown));
        if (_cursor) std::memcpy(block, _block, _cursor);
        CORBA::string_free(_block);
        _block = block;
        _capacity = static_cast<CORBA::ULong>(grown);
    }
    if (n) std::memcpy(_block + _cursor, p, n);
    _cursor += n;
    _align += n;
    return *this;
}

void CORBA_MarshalOutBuffer::pad(unsigned size) {
    unsigned r = _align % size;
    if (r) put(kBlanks, size - r);
}

template <class T>
void CORBA_MarshalOutBuffer::writeValue(T v) {
    pad(sizeof(T));
    put(reinterpret_cast<const char*>(&v), sizeof(T));
}

TBostream& CORBA_MarshalOutBuffer::operator<<(const char* s) { return putCString(s); }

TBostream& CORBA_MarshalOutBuffer::operator<<(char c) { return put(&c, 1); }

TBostream& CORBA_MarshalOutBuffer::operator<<(unsigned char c) {
    return put(reinterpret_cast<const char*>(&c), 1);
}

TBostream& CORBA_MarshalOutBuffer::operator<<(short v) {
    writeValue(v);
    return *this;
}

TBostream& CORBA_MarshalOutBuffer::operator<<(unsigned short v) {
    writeValue(v);
    return *this;
}

TBostream& CORBA_MarshalOutBuffer::operator<<(int v) {
    writeValue(v);
    return *this;
}

TBostream& CORBA_MarshalOutBuffer::operator<<(unsigned int v) {
    writeValue(v);
    return *this;
}

// C++ long carries 32 bits on the wire.
TBostream& CORBA_MarshalOutBuffer::operator<<(long v) {
    writeValue(static_cast<CORBA::Long>(v));
    return *this;
}

TBostream& CORBA_MarshalOutBuffer::operator<<(unsigned long v) {
    writeValue(static_cast<CORBA::ULong>(v));
    return *this;
}

TBostream& CORBA_MarshalOutBuffer::operator<<(float v) {
    writeValue(v);
    return *this;
}

TBostream& CORBA_MarshalOutBuffer::operator<<(double v) {
    writeValue(v);
    return *this;
}

TBostream& CORBA_MarshalOutBuffer::operator<<(const TBTransObject* obj) {
    return TBostream::operator<<(obj);
}

TBostream& CORBA_MarshalOutBuffer::operator<<(const TBTransObject& obj) {
    return TBostream::operator<<(obj);
}

TBostream& CORBA_MarshalOutBuffer::put(char c) { return *this << c; }

TBostream& CORBA_MarshalOutBuffer::put(const unsigned char* p, unsigned n) {
    return put(reinterpret_cast<const char*>(p), n);
}

template <class Wire, class T>
void CORBA_MarshalOutBuffer::putArray(const T* p, unsigned n) {
    if (n == 0) return;
    pad(sizeof(Wire));
    if constexpr (sizeof(T) == sizeof(Wire)) {
        if (uint64_t(n) * sizeof(T) > UINT32_MAX) throw CORBA_NO_MEMORY(0, CORBA::COMPLETED_NO);
        put(reinterpret_cast<const char*>(p), n * static_cast<unsigned>(sizeof(T)));
    } else {
        // 8-byte longs narrowed to their 4-byte images, a chunk at a time.
        using Narrow = std::conditional_t<std::is_signed<T>::value, int32_t, uint32_t>;
        Narrow chunk[256];
        for (unsigned done = 0; done < n;) {
            unsigned k = n - done < 256 ? n - done : 256;
            for (unsigned i = 0; i < k; ++i) chunk[i] = static_cast<Narrow>(p[done + i]);
            put(reinterpret_cast<const char*>(chunk), k * static_cast<unsigned>(sizeof(Narrow)));
            done += k;
        }
    }
}

TBostream& CORBA_MarshalOutBuffer::put(const short* p, unsigned n) { putArray<uint16_t>(p, n); return *this; }
TBostream& CORBA_MarshalOutBuffer::put(const unsigned short* p, unsigned n) { putArray<uint16_t>(p, n); return *this; }
TBostream& CORBA_MarshalOutBuffer::put(const int* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& CORBA_MarshalOutBuffer::put(const unsigned int* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& CORBA_MarshalOutBuffer::put(const long* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& CORBA_MarshalOutBuffer::put(const unsigned long* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& CORBA_MarshalOutBuffer::put(const float* p, unsigned n) { putArray<uint32_t>(p, n); return *this; }
TBostream& CORBA_MarshalOutBuffer::put(const double* p, unsigned n) { putArray<uint64_t>(p, n); return *this; }

TBostream& CORBA_MarshalOutBuffer::putCString(const char* s) {
    if (!s) {
        writeValue(CORBA::ULong(0));
        return *this;
    }
    CORBA::ULong count = static_cast<CORBA::ULong>(std::strlen(s) + 1);
    writeValue(count);
    return put(s, count);
}

// ------------------------------------------------- the abstract streams

const char CORBA_MarshalStream::_class_name[] = "CORBA_MarshalStream";

CORBA_MarshalStream::~CORBA_MarshalStream() = default;

const char* CORBA_MarshalStream::className() const { return _class_name; }

int CORBA_MarshalStream::isKindOf(const char* name) const {
    return name == _class_name || TBistream::isKindOf(name) || TBostream::isKindOf(name);
}

void CORBA_MarshalStream::rewindBuffer() {
    rewindInBuffer();
    rewindOutBuffer();
}

const char GIOPstream::_class_name[] = "GIOPstream";

GIOPstream::~GIOPstream() = default;

const char* GIOPstream::className() const { return _class_name; }

int GIOPstream::isKindOf(const char* name) const {
    return name == _class_name || CORBA_MarshalStream::isKindOf(name);
}

void GIOPstream::beginWrite(unsigned long /*expectedSize*/) { rewindOutBuffer(); }

ZEB_EXT::ConnectionInfo* GIOPstream::peerInfo() { return nullptr; }
