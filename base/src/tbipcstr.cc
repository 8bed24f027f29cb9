// Memory buffers and the binary object stream on them. The wire form is the
// same on every host: integers big-endian, floating-point values least
// significant byte first, every item padded to a whole number of 4-byte
// slots. Values are packed byte by byte, so no host order test is needed.
#include "tbipcstr.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>

namespace {

constexpr unsigned long kSlot = 4;

unsigned long roundUp4(unsigned long n) { return (n + kSlot - 1) & ~(kSlot - 1); }

// Zeroed area for a constructor; no memory is fatal for the process.
char* newAreaOrDie(int size) {
    if (size <= 0) return nullptr;
    char* area = new (std::nothrow) char[size]();
    if (!area) {
        errno = ENOMEM;
        perror("TBipcbuf::TBipcbuf: new");
        std::cerr << "TBipcbuf::TBipcbuf: " << "Unable to allocate memory (" << size << ")"
                  << std::endl;
        exit(1);
    }
    return area;
}

void putBE32(char* p, uint32_t v) {
    p[0] = static_cast<char>(v >> 24);
    p[1] = static_cast<char>(v >> 16);
    p[2] = static_cast<char>(v >> 8);
    p[3] = static_cast<char>(v);
}

uint32_t getBE32(const char* p) {
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    return (uint32_t(u[0]) << 24) | (uint32_t(u[1]) << 16) | (uint32_t(u[2]) << 8) | u[3];
}

void putBE16(char* p, uint16_t v) {
    p[0] = static_cast<char>(v >> 8);
    p[1] = static_cast<char>(v);
}

uint16_t getBE16(const char* p) {
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    return static_cast<uint16_t>((u[0] << 8) | u[1]);
}

// Floating-point values travel least significant byte first.
template <class Bits>
void putLE(char* p, Bits v) {
    for (unsigned i = 0; i < sizeof(Bits); ++i) p[i] = static_cast<char>(v >> (8 * i));
}

template <class Bits>
Bits getLE(const char* p) {
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    Bits v = 0;
    for (unsigned i = 0; i < sizeof(Bits); ++i) v |= Bits(u[i]) << (8 * i);
    return v;
}

void putFloat(char* p, float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    putLE(p, bits);
}

float getFloat(const char* p) {
    uint32_t bits = getLE<uint32_t>(p);
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

void putDouble(char* p, double d) {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    putLE(p, bits);
}

double getDouble(const char* p) {
    uint64_t bits = getLE<uint64_t>(p);
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

}  // namespace

// ---------------------------------------------------------------- TBipcbuf

TBipcbuf::TBipcbuf(int writeSize, int readSize)
    : read_base(newAreaOrDie(readSize)),
      write_base(newAreaOrDie(writeSize)),
      read_size(readSize > 0 ? readSize : 0),
      write_size(writeSize > 0 ? writeSize : 0),
      read_ptr(read_base),
      read_end(read_base),
      write_ptr(write_base),
      next(nullptr),
      owned(1) {}

TBipcbuf::TBipcbuf(char* write, int writeSize, char* read, int readSize, int own)
    : read_base(nullptr),
      write_base(nullptr),
      read_size(0),
      write_size(0),
      read_ptr(nullptr),
      read_end(nullptr),
      write_ptr(nullptr),
      next(nullptr),
      owned(0) {
    set_buffer(write, writeSize, read, readSize, own);
}

TBipcbuf::~TBipcbuf() { freeAreas(); }

void TBipcbuf::freeAreas() {
    bool freeRead = read_base && (owned || _grownRead);
    bool freeWrite = write_base && (owned || _grownWrite);
    if (freeRead) delete[] read_base;
    // One area may serve both directions; never free it twice.
    if (freeWrite && !(freeRead && write_base == read_base)) delete[] write_base;
    _grownRead = _grownWrite = false;
}

void TBipcbuf::set_buffer(char* write, int writeSize, char* read, int readSize, int own) {
    freeAreas();
    write_base = write;
    write_size = writeSize > 0 ? writeSize : 0;
    read_base = read;
    read_size = readSize > 0 ? readSize : 0;
    owned = own;
    read_ptr = read_end = read_base;
    write_ptr = write_base;
}

int TBipcbuf::expand_read(int n) {
    if (n < 0) return 0;
    char* area = nullptr;
    if (n > 0) {
        area = new (std::nothrow) char[n]();
        if (!area) return 0;
    }
    // The unread bytes are taken from the start of the old area, where the
    // caller has moved them. More than the new area holds would overrun it,
    // so the count is cut to its size.
    int count = readAvail();
    if (count > n) count = n;
    if (count > 0) std::memcpy(area, read_base, count);
    if (read_base && (owned || _grownRead) && read_base != write_base) delete[] read_base;
    read_base = area;
    read_size = n;
    read_ptr = area;
    read_end = area + count;
    _grownRead = true;
    return 1;
}

int TBipcbuf::expand_write(int n) {
    if (n < 0) return 0;
    long long newSize = n < write_size ? 2LL * write_size : write_size + 2LL * n;
    if (newSize > INT_MAX) return 0;
    if (newSize == 0) return 1;
    char* area = new (std::nothrow) char[newSize]();
    if (!area) return 0;
    int used = writeCount();
    if (used > 0) std::memcpy(area, write_base, used);
    if (write_base && (owned || _grownWrite) && write_base != read_base) delete[] write_base;
    write_base = area;
    write_size = static_cast<int>(newSize);
    write_ptr = area + used;
    _grownWrite = true;
    return 1;
}

int TBipcbuf::overflow(int n) { return expand_write(n) ? 1 : -1; }

int TBipcbuf::underflow() {
    std::cout << "TBipcbuf::underflow: Underflow occured\n" << std::flush;
    return -1;
}

// ------------------------------------------------------------ TBipcbufList

void TBipcbufList::add(TBipcbuf* buf) {
    buf->next = nullptr;
    if (_last) {
        _last->next = buf;
    } else {
        _first = buf;
    }
    _last = buf;
    ++_count;
}

void TBipcbufList::addFirst(TBipcbuf* buf) {
    buf->next = _first;
    _first = buf;
    if (!_last) _last = buf;
    ++_count;
}

// Deliberately kept as it always was: at(0) and at(1) both give the first
// buffer, and at(i) for i >= 2 gives the buffer at position i - 1.
TBipcbuf* TBipcbufList::at(int i) const {
    if (i < 0 || i >= _count) return nullptr;
    TBipcbuf* p = _first;
    for (int step = 1; step < i && p; ++step) p = p->next;
    return p;
}

TBipcbuf* TBipcbufList::removeFirst() {
    TBipcbuf* b = _first;
    if (!b) return nullptr;
    _first = b->next;
    // After removeLast the chain may run on past the count; the count decides.
    if (--_count <= 0 || !_first) {
        _first = _last = nullptr;
        _count = 0;
    }
    return b;
}

// Deliberately kept as it always was: with several buffers the walk stops on
// the buffer being removed, so `last` stays on it and the predecessor keeps
// its link. Callers that want the chain cut do it themselves. The walk stops
// at a null link, so a chain cut by hand cannot make it run off the end.
TBipcbuf* TBipcbufList::removeLast() {
    TBipcbuf* b = _last;
    if (!b) return nullptr;
    if (_count > 1) {
        TBipcbuf* p = _first;
        for (int step = 0; step < _count - 1 && p->next; ++step) p = p->next;
        _last = p;
    } else {
        _first = _last = nullptr;
    }
    --_count;
    return b;
}

void TBipcbufList::removeAll() {
    _first = _last = nullptr;
    _count = 0;
}

void TBipcbufList::removeAndFreeAll() {
    // Follow the chain, but never more than count buffers: after removeLast
    // the chain can be longer than the list.
    TBipcbuf* p = _first;
    for (int i = 0; i < _count && p; ++i) {
        TBipcbuf* nextBuf = p->next;
        delete p;
        p = nextBuf;
    }
    removeAll();
}

// ------------------------------------------------------------- TBipcstream

const char TBipcstream::_class_name[] = "TBipcstream";

TBipcstream::~TBipcstream() = default;

const char* TBipcstream::className() const { return _class_name; }

int TBipcstream::isKindOf(const char* name) const {
    return name == _class_name || TBistream::isKindOf(name) || TBostream::isKindOf(name);
}

char* TBipcstream::readSpace(unsigned long n) {
    if (!_buf) return nullptr;
    if (static_cast<unsigned long>(_buf->readAvail()) < n) {
        if (_buf->underflow() == -1) return nullptr;
        // A buffer whose hook refilled it may still be short; never read past the end.
        if (static_cast<unsigned long>(_buf->readAvail()) < n) return nullptr;
    }
    char* p = _buf->read_ptr;
    _buf->read_ptr += n;
    return p;
}

char* TBipcstream::writeSpace(unsigned long n) {
    if (!_buf) return nullptr;
    if (static_cast<unsigned long>(_buf->writeRoom()) < n) {
        if (n > INT_MAX || _buf->overflow(static_cast<int>(n)) == -1) return nullptr;
        if (static_cast<unsigned long>(_buf->writeRoom()) < n) return nullptr;
    }
    char* p = _buf->write_ptr;
    _buf->write_ptr += n;
    return p;
}

// Reading -------------------------------------------------------------------

TBistream& TBipcstream::operator>>(char*& s) {
    char* p = readSpace(kSlot);
    if (!p) return *this;
    uint32_t size = getBE32(p);
    char* src = readSpace(size);
    if (!src) return *this;
    // A string read with no limit needs somewhere to go: a null target gets a
    // fresh array of the size on the wire plus a terminator, which also ends
    // a text that arrived without its NUL. A non-null target was sized by the
    // caller.
    if (!s) {
        s = new char[size + 1UL]();
        std::strncpy(s, src, size);
        return *this;
    }
    std::strncpy(s, src, size);
    if (size == 0) s[0] = '\0';
    return *this;
}

TBistream& TBipcstream::operator>>(char& c) {
    if (char* p = readSpace(kSlot)) c = p[0];
    return *this;
}

TBistream& TBipcstream::operator>>(unsigned char& c) {
    if (char* p = readSpace(kSlot)) c = static_cast<unsigned char>(p[0]);
    return *this;
}

TBistream& TBipcstream::operator>>(short& v) {
    if (char* p = readSpace(kSlot)) v = static_cast<short>(getBE16(p));
    return *this;
}

TBistream& TBipcstream::operator>>(unsigned short& v) {
    if (char* p = readSpace(kSlot)) v = getBE16(p);
    return *this;
}

TBistream& TBipcstream::operator>>(int& v) {
    if (char* p = readSpace(kSlot)) v = static_cast<int32_t>(getBE32(p));
    return *this;
}

TBistream& TBipcstream::operator>>(unsigned int& v) {
    if (char* p = readSpace(kSlot)) v = getBE32(p);
    return *this;
}

TBistream& TBipcstream::operator>>(long& v) {
    if (char* p = readSpace(kSlot)) v = static_cast<int32_t>(getBE32(p));
    return *this;
}

TBistream& TBipcstream::operator>>(unsigned long& v) {
    if (char* p = readSpace(kSlot)) v = getBE32(p);
    return *this;
}

TBistream& TBipcstream::operator>>(float& v) {
    if (char* p = readSpace(kSlot)) v = getFloat(p);
    return *this;
}

TBistream& TBipcstream::operator>>(double& v) {
    if (char* p = readSpace(8)) v = getDouble(p);
    return *this;
}

int TBipcstream::get() {
    char* p = readSpace(kSlot);
    return p ? static_cast<unsigned char>(p[0]) : -1;
}

TBistream& TBipcstream::get(char& c) { return *this >> c; }

TBistream& TBipcstream::get(unsigned char& c) { return *this >> c; }

TBistream& TBipcstream::get(char* to, unsigned n) {
    if (n == 0) return *this;
    if (char* p = readSpace(roundUp4(n))) std::memcpy(to, p, n);
    return *this;
}

TBistream& TBipcstream::get(unsigned char* to, unsigned n) {
    return get(reinterpret_cast<char*>(to), n);
}

TBistream& TBipcstream::get(short* to, unsigned n) {
    if (char* p = n ? readSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = static_cast<short>(getBE16(p + kSlot * i));
    return *this;
}

TBistream& TBipcstream::get(unsigned short* to, unsigned n) {
    if (char* p = n ? readSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = getBE16(p + kSlot * i);
    return *this;
}

TBistream& TBipcstream::get(int* to, unsigned n) {
    if (char* p = n ? readSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = static_cast<int32_t>(getBE32(p + kSlot * i));
    return *this;
}

TBistream& TBipcstream::get(unsigned int* to, unsigned n) {
    if (char* p = n ? readSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = getBE32(p + kSlot * i);
    return *this;
}

TBistream& TBipcstream::get(long* to, unsigned n) {
    if (char* p = n ? readSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = static_cast<int32_t>(getBE32(p + kSlot * i));
    return *this;
}

TBistream& TBipcstream::get(unsigned long* to, unsigned n) {
    if (char* p = n ? readSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = getBE32(p + kSlot * i);
    return *this;
}

TBistream& TBipcstream::get(float* to, unsigned n) {
    if (char* p = n ? readSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = getFloat(p + kSlot * i);
    return *this;
}

TBistream& TBipcstream::get(double* to, unsigned n) {
    if (char* p = n ? readSpace(8UL * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) to[i] = getDouble(p + 8 * i);
    return *this;
}

TBistream& TBipcstream::getCString(char* to, unsigned max) {
    char* p = readSpace(kSlot);
    if (!p) return *this;
    uint32_t size = getBE32(p);
    unsigned amount = size;
    if (max < size && max != UINT_MAX) amount = max;
    char* src = readSpace(size);
    if (!src) return *this;
    // The source holds size bytes, amount of them at most are looked at.
    if (amount > 0) std::strncpy(to, src, amount);
    if (amount == 0 && max != 0) to[0] = '\0';
    return *this;
}

// Writing -------------------------------------------------------------------
// A char or short fills the start of its slot; the rest of the slot keeps
// what the buffer held, as a reader never looks at it.

TBostream& TBipcstream::operator<<(const char* s) { return putCString(s); }

TBostream& TBipcstream::operator<<(char c) {
    if (char* p = writeSpace(kSlot)) p[0] = c;
    return *this;
}

TBostream& TBipcstream::operator<<(unsigned char c) {
    if (char* p = writeSpace(kSlot)) p[0] = static_cast<char>(c);
    return *this;
}

TBostream& TBipcstream::operator<<(short v) {
    if (char* p = writeSpace(kSlot)) putBE16(p, static_cast<uint16_t>(v));
    return *this;
}

TBostream& TBipcstream::operator<<(unsigned short v) {
    if (char* p = writeSpace(kSlot)) putBE16(p, v);
    return *this;
}

TBostream& TBipcstream::operator<<(int v) {
    if (char* p = writeSpace(kSlot)) putBE32(p, static_cast<uint32_t>(v));
    return *this;
}

TBostream& TBipcstream::operator<<(unsigned int v) {
    if (char* p = writeSpace(kSlot)) putBE32(p, v);
    return *this;
}

TBostream& TBipcstream::operator<<(long v) {
    if (char* p = writeSpace(kSlot)) putBE32(p, static_cast<uint32_t>(v));
    return *this;
}

TBostream& TBipcstream::operator<<(unsigned long v) {
    if (char* p = writeSpace(kSlot)) putBE32(p, static_cast<uint32_t>(v));
    return *this;
}

TBostream& TBipcstream::operator<<(float v) {
    if (char* p = writeSpace(kSlot)) putFloat(p, v);
    return *this;
}

TBostream& TBipcstream::operator<<(double v) {
    if (char* p = writeSpace(8)) putDouble(p, v);
    return *this;
}

TBostream& TBipcstream::operator<<(const TBTransObject* obj) {
    return TBostream::operator<<(obj);
}

TBostream& TBipcstream::operator<<(const TBTransObject& obj) {
    return TBostream::operator<<(obj);
}

TBostream& TBipcstream::put(char c) { return *this << c; }

TBostream& TBipcstream::put(const char* from, unsigned n) {
    if (n == 0) return *this;
    if (char* p = writeSpace(roundUp4(n))) std::memcpy(p, from, n);
    return *this;
}

TBostream& TBipcstream::put(const unsigned char* from, unsigned n) {
    return put(reinterpret_cast<const char*>(from), n);
}

TBostream& TBipcstream::put(const short* from, unsigned n) {
    if (char* p = n ? writeSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putBE16(p + kSlot * i, static_cast<uint16_t>(from[i]));
    return *this;
}

TBostream& TBipcstream::put(const unsigned short* from, unsigned n) {
    if (char* p = n ? writeSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putBE16(p + kSlot * i, from[i]);
    return *this;
}

TBostream& TBipcstream::put(const int* from, unsigned n) {
    if (char* p = n ? writeSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putBE32(p + kSlot * i, static_cast<uint32_t>(from[i]));
    return *this;
}

TBostream& TBipcstream::put(const unsigned int* from, unsigned n) {
    if (char* p = n ? writeSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putBE32(p + kSlot * i, from[i]);
    return *this;
}

TBostream& TBipcstream::put(const long* from, unsigned n) {
    if (char* p = n ? writeSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putBE32(p + kSlot * i, static_cast<uint32_t>(from[i]));
    return *this;
}

TBostream& TBipcstream::put(const unsigned long* from, unsigned n) {
    if (char* p = n ? writeSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putBE32(p + kSlot * i, static_cast<uint32_t>(from[i]));
    return *this;
}

TBostream& TBipcstream::put(const float* from, unsigned n) {
    if (char* p = n ? writeSpace(kSlot * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putFloat(p + kSlot * i, from[i]);
    return *this;
}

TBostream& TBipcstream::put(const double* from, unsigned n) {
    if (char* p = n ? writeSpace(8UL * n) : nullptr)
        for (unsigned i = 0; i < n; ++i) putDouble(p + 8 * i, from[i]);
    return *this;
}

TBostream& TBipcstream::putCString(const char* s) {
    if (!s) s = "";
    unsigned long length = std::strlen(s) + 1;
    if (length > INT_MAX) return *this;  // cannot be framed; dropped like a failed growth
    *this << static_cast<int>(roundUp4(length));
    return put(s, static_cast<unsigned>(length));
}

void TBipcstream::clearClassTables() {
    clearInClassTbl();
    clearOutClassTbl();
}

void TBipcstream::clearObjectTables() {
    clearInObjTbl();
    clearOutObjTbl();
}
