// The file stream: raw memory images of values on a descriptor, buffered on
// the way out to a regular file, zero-filled on the way in.
#include "tbfstrm.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "except.h"

namespace {

// A string up to this length is read into a buffer of its full size at
// once; a longer one is believed only as far as the file backs it.
constexpr unsigned long kDirectString = 64 * 1024;

// Values of C++ long travel as 32 bits; these are the widths on the file.
template <class T>
struct FileForm {
    typedef T type;
};
template <>
struct FileForm<long> {
    typedef int32_t type;
};
template <>
struct FileForm<unsigned long> {
    typedef uint32_t type;
};

// Only a regular file may hold output back: nobody reads it while we write,
// and every way out of the stream flushes. A descriptor whose type cannot be
// told is treated as a pipe, which costs speed and never correctness.
bool isRegularFile(int fd) {
    struct stat st;
    return fd >= 0 && fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

const char TBfstream::_class_name[] = "TBfstream";

TBfstream::TBfstream(int fd)
    : _fd(fd), _owned(false), _closed(false), _writeFailed(false), _madeUp(0), _pending(0),
      _rpos(0), _rend(0), _seekable(-1), _writeThrough(!isRegularFile(fd)) {}

TBfstream::TBfstream(const char* name, int mode)
    // Close-on-exec: the daemon forks servers, which must not inherit the
    // repository.
    : _fd(::open(name, mode | O_CLOEXEC, 0777)), _owned(_fd >= 0), _closed(false),
      _writeFailed(false), _madeUp(0), _pending(0), _rpos(0), _rend(0), _seekable(-1),
      _writeThrough(!isRegularFile(_fd)) {}

TBfstream::~TBfstream() {
    if (_owned) {
        close();
    } else {
        flush();
        dropReadAhead();
    }
}

void TBfstream::close() {
    // Closing twice could close a descriptor that somebody else has been
    // given in between, so the second call does nothing.
    if (_fd < 0 || _closed) return;
    flush();
    dropReadAhead();
    ::close(_fd);  // nothing useful to do on failure: the data went by write
    _closed = true;
}

bool TBfstream::flush() {
    if (_pending) {
        size_t n = _pending;
        _pending = 0;
        writeAll(_buffer.get(), n);
    }
    return !_writeFailed;
}

void TBfstream::writeAll(const char* p, size_t n) {
    if (_fd < 0 || _closed || _writeFailed) {
        // After the first failure nothing more is written: the file then
        // ends where the failure struck, as a file cut short would.
        if (_fd >= 0 && !_closed) _writeFailed = true;
        return;
    }
    while (n) {
        ssize_t k = ::write(_fd, p, n);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) {
            _writeFailed = true;
            return;
        }
        p += k;
        n -= static_cast<size_t>(k);
    }
}

void TBfstream::dropReadAhead() {
    if (_rpos == _rend) return;
    // Only a seekable descriptor ever has read-ahead, so this can only fail
    // on a descriptor that someone closed under us.
    lseek(_fd, -static_cast<off_t>(_rend - _rpos), SEEK_CUR);
    _rpos = _rend = 0;
}

void TBfstream::putBytes(const void* p, size_t n) {
    if (n == 0) return;
    dropReadAhead();
    if (_pending + n > kBufferSize) flush();
    if (_writeThrough || n >= kBufferSize) {
        writeAll(static_cast<const char*>(p), n);
        return;
    }
    if (!_buffer) _buffer.reset(new char[kBufferSize]);
    std::memcpy(_buffer.get() + _pending, p, n);
    _pending += n;
}

size_t TBfstream::refill() {
    if (!_rbuffer) _rbuffer.reset(new char[kBufferSize]);
    _rpos = _rend = 0;
    for (;;) {
        ssize_t k = ::read(_fd, _rbuffer.get(), kBufferSize);
        if (k < 0 && errno == EINTR) continue;
        if (k > 0) _rend = static_cast<size_t>(k);
        return _rend;
    }
}

size_t TBfstream::readUpTo(void* p, size_t n) {
    if (_fd < 0 || _closed) return 0;
    flush();
    if (_seekable < 0) _seekable = lseek(_fd, 0, SEEK_CUR) >= 0 ? 1 : 0;
    char* out = static_cast<char*>(p);
    size_t got = 0;
    while (got < n) {
        if (_rpos < _rend) {
            size_t k = _rend - _rpos < n - got ? _rend - _rpos : n - got;
            std::memcpy(out + got, _rbuffer.get() + _rpos, k);
            _rpos += k;
            got += k;
            continue;
        }
        if (_seekable && n - got < kBufferSize) {
            if (refill() == 0) break;
            continue;
        }
        // Large requests and descriptors that cannot seek back (pipes,
        // sockets) are read directly, so that no input is taken early.
        ssize_t k = ::read(_fd, out + got, n - got);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) break;
        got += static_cast<size_t>(k);
    }
    return got;
}

void TBfstream::madeUp(unsigned long n) {
    if (n == 0) return;
    if (n > kMadeUpLimit - _madeUp) {
        _madeUp = kMadeUpLimit;
        throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    }
    _madeUp += n;
}

void TBfstream::getBytes(void* p, size_t n) {
    if (n == 0) return;
    std::memset(p, 0, n);
    madeUp(n - readUpTo(p, n));
}

void TBfstream::skipBytes(unsigned long n) {
    char scratch[4096];
    while (n) {
        size_t step = n < sizeof scratch ? static_cast<size_t>(n) : sizeof scratch;
        size_t got = readUpTo(scratch, step);
        n -= got;
        if (got < step) {
            madeUp(n);
            return;
        }
    }
}

char* TBfstream::readString(unsigned long len) {
    if (len <= kDirectString) {
        std::unique_ptr<char[]> s(new char[len + 1]);
        getBytes(s.get(), len);
        s[len] = '\0';
        return s.release();
    }
    // Allocating len + 1 bytes on the word of the file would let a corrupt
    // length ask for gigabytes; instead the string grows only with bytes
    // that really arrive. What the file lacks would
    // read as zeroes, so the text of the string is the same either way.
    std::string text;
    unsigned long got = 0;
    while (got < len) {
        unsigned long step = got < kDirectString ? kDirectString : got;
        if (step > len - got) step = len - got;
        text.resize(got + step);
        size_t k = readUpTo(&text[got], step);
        got += k;
        if (k < step) break;
    }
    madeUp(len - got);
    std::unique_ptr<char[]> s(new char[got + 1]);
    std::memcpy(s.get(), text.data(), got);
    s[got] = '\0';
    return s.release();
}

const char* TBfstream::className() const { return _class_name; }

int TBfstream::isKindOf(const char* name) const {
    return name == _class_name || name == TBistream::_class_name ||
           name == TBostream::_class_name;
}

// ------------------------------------------------------------------ output

namespace {

template <class T>
void putValue(TBfstream& strm, T v) {
    typename FileForm<T>::type w = static_cast<typename FileForm<T>::type>(v);
    strm.put(reinterpret_cast<const char*>(&w), sizeof w);
}

template <class T>
void putArray(TBfstream& strm, const T* p, unsigned n) {
    typedef typename FileForm<T>::type W;
    W chunk[512];
    while (n) {
        unsigned k = n < 512 ? n : 512;
        for (unsigned i = 0; i < k; ++i) chunk[i] = static_cast<W>(p[i]);
        strm.put(reinterpret_cast<const char*>(chunk), k * sizeof(W));
        p += k;
        n -= k;
    }
}

}  // namespace

TBostream& TBfstream::operator<<(const char* s) {
    unsigned int len = s ? static_cast<unsigned int>(std::strlen(s)) : 0;
    *this << len;
    return put(s, len);
}

TBostream& TBfstream::operator<<(char c) { return put(&c, 1); }
TBostream& TBfstream::operator<<(unsigned char c) { return put(&c, 1); }
TBostream& TBfstream::operator<<(short v) { putValue(*this, v); return *this; }
TBostream& TBfstream::operator<<(unsigned short v) { putValue(*this, v); return *this; }
TBostream& TBfstream::operator<<(int v) { putValue(*this, v); return *this; }
TBostream& TBfstream::operator<<(unsigned int v) { putValue(*this, v); return *this; }
TBostream& TBfstream::operator<<(long v) { putValue(*this, v); return *this; }
TBostream& TBfstream::operator<<(unsigned long v) { putValue(*this, v); return *this; }
TBostream& TBfstream::operator<<(float v) { putValue(*this, v); return *this; }
TBostream& TBfstream::operator<<(double v) { putValue(*this, v); return *this; }

TBostream& TBfstream::operator<<(const TBTransObject* obj) {
    return TBostream::operator<<(obj);
}

TBostream& TBfstream::operator<<(const TBTransObject& obj) {
    return TBostream::operator<<(obj);
}

TBostream& TBfstream::put(char c) { return put(&c, 1); }

TBostream& TBfstream::put(const char* p, unsigned n) {
    putBytes(p, n);
    return *this;
}

TBostream& TBfstream::put(const unsigned char* p, unsigned n) {
    putBytes(p, n);
    return *this;
}

TBostream& TBfstream::put(const short* p, unsigned n) { putArray(*this, p, n); return *this; }
TBostream& TBfstream::put(const unsigned short* p, unsigned n) { putArray(*this, p, n); return *this; }
TBostream& TBfstream::put(const int* p, unsigned n) { putArray(*this, p, n); return *this; }
TBostream& TBfstream::put(const unsigned int* p, unsigned n) { putArray(*this, p, n); return *this; }
TBostream& TBfstream::put(const long* p, unsigned n) { putArray(*this, p, n); return *this; }
TBostream& TBfstream::put(const unsigned long* p, unsigned n) { putArray(*this, p, n); return *this; }
TBostream& TBfstream::put(const float* p, unsigned n) { putArray(*this, p, n); return *this; }
TBostream& TBfstream::put(const double* p, unsigned n) { putArray(*this, p, n); return *this; }

TBostream& TBfstream::putCString(const char* s) { return *this << s; }

// ------------------------------------------------------------------- input

namespace {

template <class T>
void getValue(TBfstream& strm, T& v) {
    typename FileForm<T>::type w;
    strm.get(reinterpret_cast<char*>(&w), sizeof w);
    v = static_cast<T>(w);
}

template <class T>
void getArray(TBfstream& strm, T* p, unsigned n) {
    typedef typename FileForm<T>::type W;
    W chunk[512];
    while (n) {
        unsigned k = n < 512 ? n : 512;
        strm.get(reinterpret_cast<char*>(chunk), k * sizeof(W));
        for (unsigned i = 0; i < k; ++i) p[i] = static_cast<T>(chunk[i]);
        p += k;
        n -= k;
    }
}

}  // namespace

TBistream& TBfstream::operator>>(char*& s) {
    int len = 0;
    *this >> len;
    // The length went out as unsigned int; a "negative" one is a huge one.
    unsigned long n = static_cast<unsigned int>(len);
    if (!s) {
        s = readString(n);
        return *this;
    }
    // A caller's buffer is filled in place: it may live on the stack, so it
    // is never freed or replaced, and its owner vouches for the room (n + 1
    // bytes). The bytes go straight in, as many as the file holds; a length
    // the file cannot back throws before the zero fill behind them, so a
    // corrupt length never makes us clear memory far beyond the data.
    size_t got = readUpTo(s, n);
    s[got] = '\0';
    madeUp(n - got);
    std::memset(s + got, 0, n - got);
    s[n] = '\0';
    return *this;
}

TBistream& TBfstream::operator>>(char& c) { return get(&c, 1); }
TBistream& TBfstream::operator>>(unsigned char& c) { return get(&c, 1); }
TBistream& TBfstream::operator>>(short& v) { getValue(*this, v); return *this; }
TBistream& TBfstream::operator>>(unsigned short& v) { getValue(*this, v); return *this; }
TBistream& TBfstream::operator>>(int& v) { getValue(*this, v); return *this; }
TBistream& TBfstream::operator>>(unsigned int& v) { getValue(*this, v); return *this; }
TBistream& TBfstream::operator>>(long& v) { getValue(*this, v); return *this; }
TBistream& TBfstream::operator>>(unsigned long& v) { getValue(*this, v); return *this; }
TBistream& TBfstream::operator>>(float& v) { getValue(*this, v); return *this; }
TBistream& TBfstream::operator>>(double& v) { getValue(*this, v); return *this; }

int TBfstream::get() {
    unsigned char c = 0;
    get(&c, 1);
    return c;
}

TBistream& TBfstream::get(char& c) { return get(&c, 1); }
TBistream& TBfstream::get(unsigned char& c) { return get(&c, 1); }

TBistream& TBfstream::get(char* p, unsigned n) {
    getBytes(p, n);
    return *this;
}

TBistream& TBfstream::get(unsigned char* p, unsigned n) {
    getBytes(p, n);
    return *this;
}

TBistream& TBfstream::get(short* p, unsigned n) { getArray(*this, p, n); return *this; }
TBistream& TBfstream::get(unsigned short* p, unsigned n) { getArray(*this, p, n); return *this; }
TBistream& TBfstream::get(int* p, unsigned n) { getArray(*this, p, n); return *this; }
TBistream& TBfstream::get(unsigned int* p, unsigned n) { getArray(*this, p, n); return *this; }
TBistream& TBfstream::get(long* p, unsigned n) { getArray(*this, p, n); return *this; }
TBistream& TBfstream::get(unsigned long* p, unsigned n) { getArray(*this, p, n); return *this; }
TBistream& TBfstream::get(float* p, unsigned n) { getArray(*this, p, n); return *this; }
TBistream& TBfstream::get(double* p, unsigned n) { getArray(*this, p, n); return *this; }

TBistream& TBfstream::getCString(char* buffer, unsigned max) {
    unsigned int len = 0;
    *this >> len;
    if (max != 0 && len >= max) {
        get(buffer, max);
        buffer[max] = '\0';
        // The tail is dropped in chunks rather than byte by byte, so that a
        // corrupt length costs no more than the file's own size.
        skipBytes(len - max);
        return *this;
    }
    get(buffer, len);
    buffer[len] = '\0';
    return *this;
}
