// Octet and string sequences: storage rules, hash and compare, stream and
// printing forms.
#include "sequence.h"

#include <cstring>
#include <iostream>
#include <memory>

#include "except.h"
#include "tbiostrm.h"
#include "zebread.h"

namespace {

// A difference of two 32-bit unsigned counts as an int, keeping the sign
// where it does not fit.
int countDifference(CORBA::ULong a, CORBA::ULong b) {
    long long d = static_cast<long long>(a) - static_cast<long long>(b);
    if (d > 0x7fffffffLL) return 0x7fffffff;
    if (d < -0x7fffffffLL) return -0x7fffffff;
    return static_cast<int>(d);
}

}  // namespace

// ---------------------------------------------------------------- octets

CORBA::Octet* CORBA_OctetSequence::allocbuf(CORBA::ULong n) { return new CORBA::Octet[n](); }

void CORBA_OctetSequence::freebuf(CORBA::Octet* buf) { delete[] buf; }

void CORBA_OctetSequence::outOfRange() { throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO); }

CORBA_OctetSequence::CORBA_OctetSequence(CORBA::ULong max)
    : _buffer(max ? allocbuf(max) : nullptr), _length(0), _maximum(max), _release(1), _refcount(1) {}

CORBA_OctetSequence::CORBA_OctetSequence(CORBA::ULong max, CORBA::ULong length,
                                         CORBA::Octet* data, CORBA::Boolean release)
    : _buffer(data), _length(length), _maximum(max), _release(release), _refcount(1) {}

CORBA_OctetSequence::CORBA_OctetSequence(const CORBA_OctetSequence& other)
    : _buffer(nullptr),
      _length(other._length),
      _maximum(other._maximum > other._length ? other._maximum : other._length),
      _release(1),
      _refcount(1) {
    if (_maximum) _buffer = allocbuf(_maximum);
    if (_length) std::memcpy(_buffer, other._buffer, _length);
}

CORBA_OctetSequence& CORBA_OctetSequence::operator=(const CORBA_OctetSequence& other) {
    if (this == &other) return *this;
    // "Above both length and maximum" is "above maximum" while length stays
    // within maximum; testing the maximum alone also keeps an adopted
    // buffer with an inconsistent length from being overrun.
    if (other._length > _maximum) {
        CORBA::ULong n = other._maximum > other._length ? other._maximum : other._length;
        reallocate(n, 0);
    }
    _length = other._length;
    if (_length) std::memcpy(_buffer, other._buffer, _length);
    return *this;
}

CORBA_OctetSequence::~CORBA_OctetSequence() {
    if (_release) freebuf(_buffer);
}

void CORBA_OctetSequence::reallocate(CORBA::ULong n, CORBA::ULong keep) {
    CORBA::Octet* fresh = allocbuf(n);
    if (keep > _maximum) keep = _maximum;
    if (keep) std::memcpy(fresh, _buffer, keep);
    if (_release) freebuf(_buffer);
    _buffer = fresh;
    _maximum = n;
    _release = 1;
}

void CORBA_OctetSequence::length(CORBA::ULong n) {
    // The release flag goes up only with a buffer of our own: raising it on
    // an adopted buffer would have us free memory we never owned.
    if (n > _maximum) reallocate(n, _length);
    if (n > _length) std::memset(_buffer + _length, 0, n - _length);
    _length = n;
}

CORBA::ULong CORBA_OctetSequence::hash() const {
    CORBA::ULong h = _length;
    for (CORBA::ULong i = 0; i < _length; ++i) h ^= _buffer[i];
    return h;
}

int CORBA_OctetSequence::compare(const CORBA_OctetSequence& other) const {
    if (_length != other._length) return countDifference(_length, other._length);
    if (!_length) return 0;
    return std::memcmp(_buffer, other._buffer, _length);
}

CORBA_OctetSequence* CORBA_OctetSequence::_duplicate(CORBA_OctetSequence* s) {
    if (s) s->_ref();
    return s;
}

void CORBA::release(CORBA_OctetSequence* s) {
    if (s && s->_deref() <= 0) delete s;
}

CORBA_OctetSequence_var& CORBA_OctetSequence_var::operator=(CORBA_OctetSequence* p) {
    if (p != _ptr) {
        CORBA::release(_ptr);
        _ptr = p;
    }
    return *this;
}

CORBA_OctetSequence_var& CORBA_OctetSequence_var::operator=(const CORBA_OctetSequence_var& other) {
    if (other._ptr != _ptr) {
        CORBA::release(_ptr);
        _ptr = CORBA_OctetSequence::_duplicate(other._ptr);
    }
    return *this;
}

CORBA_OctetSequence* CORBA_OctetSequence_var::_retn() {
    CORBA_OctetSequence* p = _ptr;
    _ptr = nullptr;
    return p;
}

TBostream& operator<<(TBostream& strm, const CORBA_OctetSequence& s) {
    strm << static_cast<unsigned long>(s.length());
    if (s.length()) strm.put(s.get_buffer(), s.length());
    return strm;
}

TBostream& operator<<(TBostream& strm, const CORBA_OctetSequence* s) {
    if (!s) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    return strm << *s;
}

TBostream& operator<<(TBostream& strm, const CORBA_OctetSequence_var& s) {
    return strm << static_cast<const CORBA_OctetSequence*>(s.ptr());
}

TBistream& operator>>(TBistream& strm, CORBA_OctetSequence& s) {
    unsigned long count = 0;
    strm >> count;
    CORBA::ULong n = ZEBcheckCount(count);
    if (n > s._length && n > s._maximum) {
        // Read into a new block first: a count that lies leaves the old
        // contents alone.
        CORBA::Octet* fresh = ZEBreadBlock<CORBA::Octet>(strm, n);
        if (s._release) CORBA_OctetSequence::freebuf(s._buffer);
        s._buffer = fresh;
        s._maximum = n;
        s._release = 1;
        s._length = n;
        return strm;
    }
    s._length = n;
    if (n) {
        ZEBReadGuard guard(strm);
        strm.get(s._buffer, n);
        guard.check();
    }
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_OctetSequence*& s) {
    if (s) return strm >> *s;
    std::unique_ptr<CORBA_OctetSequence> fresh(new CORBA_OctetSequence);
    strm >> *fresh;
    s = fresh.release();
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_OctetSequence_var& s) {
    CORBA_OctetSequence* p = s.ptr();
    if (p) return strm >> *p;
    strm >> p;
    s = p;
    return strm;
}

std::ostream& operator<<(std::ostream& os, const CORBA_OctetSequence& s) {
    if (!ZEBisConsole(os)) {
        TBostream strm(os);
        strm << s;
        return os;
    }
    os << "SEQUENCE NAME: CORBA::OctetSequence" << std::endl;
    os << "NUM OF ELEMENTS: " << s.length() << std::endl;
    for (CORBA::ULong i = 0; i < s.length(); ++i)
        os << "ELEMENT NUM: " << i << " = " << static_cast<char>(s[i]) << std::endl;
    return os;
}

// ---------------------------------------------------------------- strings

CORBA_StringSequence::Sequence_string& CORBA_StringSequence::Sequence_string::operator=(char* p) {
    if (p != _slot) {
        if (_release) CORBA::string_free(_slot);
        _slot = p;
    }
    return *this;
}

CORBA_StringSequence::Sequence_string& CORBA_StringSequence::Sequence_string::operator=(
    const char* p) {
    char* copy = CORBA::strdup(p);  // before the free: p may be the old string
    if (_release) CORBA::string_free(_slot);
    _slot = copy;
    return *this;
}

char** CORBA_StringSequence::allocbuf(CORBA::ULong n) { return new char*[n](); }

void CORBA_StringSequence::freebuf(char** buf) { delete[] buf; }

void CORBA_StringSequence::outOfRange() { throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO); }

CORBA_StringSequence::CORBA_StringSequence(CORBA::ULong max)
    : _buffer(max ? allocbuf(max) : nullptr), _length(0), _maximum(max), _release(1) {}

CORBA_StringSequence::CORBA_StringSequence(CORBA::ULong max, CORBA::ULong length, char** data,
                                           CORBA::Boolean release)
    : _buffer(data), _length(length), _maximum(max), _release(release) {}

CORBA_StringSequence::CORBA_StringSequence(const CORBA_StringSequence& other)
    : _buffer(nullptr),
      _length(other._length),
      _maximum(other._maximum > other._length ? other._maximum : other._length),
      _release(1) {
    if (_maximum) _buffer = allocbuf(_maximum);
    for (CORBA::ULong i = 0; i < _length; ++i) _buffer[i] = CORBA::strdup(other._buffer[i]);
}

CORBA_StringSequence& CORBA_StringSequence::operator=(const CORBA_StringSequence& other) {
    if (this == &other) return *this;
    CORBA_StringSequence copy(other);
    freeAll();
    _buffer = copy._buffer;
    _length = copy._length;
    _maximum = copy._maximum;
    _release = 1;
    copy._buffer = nullptr;
    copy._maximum = 0;
    return *this;
}

CORBA_StringSequence::~CORBA_StringSequence() { freeAll(); }

void CORBA_StringSequence::freeAll() {
    if (!_release) return;
    for (CORBA::ULong i = 0; i < _maximum; ++i) CORBA::string_free(_buffer[i]);
    freebuf(_buffer);
}

void CORBA_StringSequence::length(CORBA::ULong n) {
    if (n > _maximum) {
        char** fresh = allocbuf(n);
        if (_release) {
            for (CORBA::ULong i = 0; i < _maximum; ++i) fresh[i] = _buffer[i];
            freebuf(_buffer);
        } else {
            // The strings belong to someone else; the new buffer is ours and
            // frees what it holds, so it takes copies.
            for (CORBA::ULong i = 0; i < _length && i < _maximum; ++i)
                fresh[i] = CORBA::strdup(_buffer[i]);
        }
        _buffer = fresh;
        _maximum = n;
        _release = 1;
    }
    _length = n;
}

CORBA_StringSequence_var::CORBA_StringSequence_var(const CORBA_StringSequence_var& other)
    : _ptr(other._ptr ? new CORBA_StringSequence(*other._ptr) : nullptr) {}

CORBA_StringSequence_var& CORBA_StringSequence_var::operator=(CORBA_StringSequence* p) {
    if (p != _ptr) {
        delete _ptr;
        _ptr = p;
    }
    return *this;
}

CORBA_StringSequence_var& CORBA_StringSequence_var::operator=(
    const CORBA_StringSequence_var& other) {
    if (other._ptr != _ptr) {
        CORBA_StringSequence* copy = other._ptr ? new CORBA_StringSequence(*other._ptr) : nullptr;
        delete _ptr;
        _ptr = copy;
    }
    return *this;
}

CORBA_StringSequence* CORBA_StringSequence_var::_retn() {
    CORBA_StringSequence* p = _ptr;
    _ptr = nullptr;
    return p;
}

int compare(const CORBA_StringSequence& a, const CORBA_StringSequence& b) {
    if (a.length() != b.length()) return countDifference(a.length(), b.length());
    for (CORBA::ULong i = 0; i < a.length(); ++i) {
        const char* x = a[i];
        const char* y = b[i];
        int d = (x && y) ? std::strcmp(x, y) : (x ? 1 : 0) - (y ? 1 : 0);
        if (d) return d;
    }
    return 0;
}

CORBA::ULong hash(const CORBA_StringSequence& s) {
    CORBA::ULong h = s.length();
    for (CORBA::ULong i = 0; i < s.length(); ++i) h ^= CORBA::hash(s[i]);
    return h;
}

TBostream& operator<<(TBostream& strm, const CORBA_StringSequence& s) {
    strm << static_cast<unsigned long>(s.length());
    for (CORBA::ULong i = 0; i < s.length(); ++i) strm << s[i];
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_StringSequence& s) {
    unsigned long count = 0;
    strm >> count;
    CORBA::ULong n = ZEBcheckCount(count);
    ZEBReadGuard guard(strm);
    if (!s._release || (n > s._length && n > s._maximum)) {
        // A fresh owned buffer. It grows with the elements that really
        // arrive, up to exactly n slots, so a false count cannot make us
        // allocate what the data does not back.
        s.freeAll();
        s._buffer = nullptr;
        s._length = 0;
        s._maximum = 0;
        s._release = 1;
        for (CORBA::ULong i = 0; i < n; ++i) {
            if (i == s._maximum) {
                CORBA::ULong next = s._maximum ? s._maximum : 64;
                next = next > n - s._maximum ? n : s._maximum + next;
                char** bigger = CORBA_StringSequence::allocbuf(next);
                for (CORBA::ULong j = 0; j < s._maximum; ++j) bigger[j] = s._buffer[j];
                CORBA_StringSequence::freebuf(s._buffer);
                s._buffer = bigger;
                s._maximum = next;
            }
            strm >> s._buffer[i];
            s._length = i + 1;
            guard.check();
        }
        return strm;
    }
    s._length = n;
    for (CORBA::ULong i = 0; i < n; ++i) {
        // Some streams read into a non-null target without checking its
        // room; an empty slot makes every stream allocate the right size.
        CORBA::string_free(s._buffer[i]);
        s._buffer[i] = nullptr;
        strm >> s._buffer[i];
        guard.check();
    }
    return strm;
}

std::ostream& operator<<(std::ostream& os, const CORBA_StringSequence& s) {
    if (!ZEBisConsole(os)) {
        TBostream strm(os);
        strm << s;
        return os;
    }
    os << "SEQUENCE NAME: CORBA::StringSequence" << std::endl;
    os << "NUM OF ELEMENTS: " << s.length() << std::endl;
    for (CORBA::ULong i = 0; i < s.length(); ++i)
        os << "ELEMENT NUM: " << i << " = " << (s[i] ? s[i] : "(null)") << std::endl;
    return os;
}
