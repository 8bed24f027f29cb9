// TBString: heap string with a length, hashed like class names.
#include "tbstring.h"

#include <cstring>

#include "tbiostrm.h"

TB_DEFINE_CLASS(TBString, "TBString", TBObject::desc());

namespace {

// The length on a stream decides an allocation before the text is read; a
// longer claim is cut to this, and the text then overflows getCString's
// limit, which reports it.
constexpr unsigned kReadLengthLimit = 1u << 24;

unsigned lengthOf(const char* s) { return s ? static_cast<unsigned>(std::strlen(s)) : 0; }

}  // namespace

TBString::TBString() : _string(new char[1]()), _length(0) {}

TBString::TBString(const char* s) : _string(nullptr), _length(0) {
    unsigned len = lengthOf(s);
    _string = new char[len + 1];
    if (len) std::memcpy(_string, s, len);
    _string[len] = '\0';
    _length = len;
}

TBString::TBString(const TBString& other)
    : TBObject(other), _string(new char[other._length + 1]), _length(other._length) {
    std::memcpy(_string, other._string, _length + 1);
}

TBString::TBString(TBistream& strm) : TBObject(strm), _string(nullptr), _length(0) {
    unsigned len = 0;
    strm >> len;
    if (len > kReadLengthLimit) len = kReadLengthLimit;
    _string = new char[len + 1]();
    strm.getCString(_string, len + 1);
    // A faulty read leaves a shorter text (or none); the length follows it.
    _string[len] = '\0';
    _length = lengthOf(_string);
}

TBString::~TBString() { delete[] _string; }

void TBString::assign(const char* s, unsigned len) {
    if (_length < len) {
        char* bigger = new char[len + 1];
        delete[] _string;
        _string = bigger;
    }
    // memmove: s may lie inside our own buffer.
    if (len) std::memmove(_string, s, len);
    _string[len] = '\0';
    _length = len;
}

void TBString::append(const char* s, unsigned len) {
    if (!len) return;
    char* joined = new char[_length + len + 1];
    std::memcpy(joined, _string, _length);
    std::memcpy(joined + _length, s, len);
    joined[_length + len] = '\0';
    delete[] _string;
    _string = joined;
    _length += len;
}

TBString& TBString::operator=(const TBString& other) {
    if (this != &other) assign(other._string, other._length);
    return *this;
}

TBString& TBString::operator=(const char* s) {
    assign(s ? s : "", lengthOf(s));
    return *this;
}

TBString TBString::operator&(const TBString& other) const {
    TBString joined(*this);
    joined.append(other._string, other._length);
    return joined;
}

TBString TBString::operator&(const char* s) const {
    TBString joined(*this);
    joined.append(s, lengthOf(s));
    return joined;
}

TBString& TBString::operator&=(const TBString& other) {
    append(other._string, other._length);
    return *this;
}

TBString& TBString::operator&=(const char* s) {
    append(s, lengthOf(s));
    return *this;
}

unsigned TBString::hash() const { return _length ? TBTypeDict::strHash(_string) : 0; }

int TBString::compare(const TBObject& other) const {
    const TBString* o = dynamic_cast<const TBString*>(&other);
    return o ? std::strcmp(_string, o->_string) : -1;
}

void TBString::write(TBostream& strm) const {
    strm << _length;
    strm.putCString(_string);
}

void TBString::prettyPrint(TBostream& strm) const {
    strm << "\nClassName: TBString\n" << "len: " << _length << "str: " << _string;
    endl(strm);
}
