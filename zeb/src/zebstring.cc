// ZEBString and ZEBUniqueId.
#include "zebstring.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "except.h"
#include "tbiostrm.h"
#include "zebread.h"

TB_DEFINE_CLASS(ZEBString, "ZEBString", DSResource::desc());
TB_DEFINE_CLASS(ZEBUniqueId, "ZEBUniqueId", DSResource::desc());

namespace {

char* emptyText() {
    char* p = new char[1];
    p[0] = '\0';
    return p;
}

}  // namespace

ZEBString::ZEBString() : _string(emptyText()), _length(0) {}

ZEBString::ZEBString(const char* s) : _string(nullptr), _length(0) {
    unsigned len = s ? static_cast<unsigned>(std::strlen(s)) : 0;
    _string = new char[len + 1];
    if (len) std::memcpy(_string, s, len);
    _string[len] = '\0';
    _length = len;
}

ZEBString::ZEBString(const ZEBString& other)
    : DSResource(), _string(new char[other._length + 1]), _length(other._length) {
    std::memcpy(_string, other._string, _length + 1);
}

ZEBString::ZEBString(TBistream& strm) : DSResource(strm), _string(nullptr), _length(0) {
    unsigned long count = 0;
    strm >> count;
    CORBA::ULong n = ZEBcheckCount(count);
    if (n == 0) {
        // No writer of ours puts a count of 0 (the empty string is 1 and a
        // NUL). Taking n - 1 as the length would wrap to 4 GB; read it as "".
        _string = emptyText();
        return;
    }
    // A CDR stream that runs short throws; an object stream never does, and
    // the string is then what arrived, as its other readers leave a field.
    CORBA::ULong got = 0;
    _string = ZEBreadBlock<char>(strm, n, &got);
    if (got < n) {
        _string[got] = '\0';
        _length = static_cast<CORBA::ULong>(std::strlen(_string));
        return;
    }
    // The last byte should be the NUL; force it, so that a peer that sent
    // none cannot make us run off the block.
    _string[n - 1] = '\0';
    _length = n - 1;
}

ZEBString::~ZEBString() { delete[] _string; }

void ZEBString::assign(const char* s, unsigned len) {
    if (_length < len) {
        char* fresh = new char[len + 1];
        std::memcpy(fresh, s, len);
        delete[] _string;
        _string = fresh;
    } else {
        std::memmove(_string, s, len);  // s may lie within our own buffer
    }
    _string[len] = '\0';
    _length = len;
}

ZEBString& ZEBString::operator=(const ZEBString& other) {
    if (other._string != _string) assign(other._string, other._length);
    return *this;
}

ZEBString& ZEBString::operator=(const char* s) {
    if (!s) {
        delete[] _string;
        _string = emptyText();
        _length = 0;
    } else if (s != _string) {
        assign(s, static_cast<unsigned>(std::strlen(s)));
    }
    return *this;
}

void ZEBString::append(const char* s, unsigned len) {
    if (len == 0) return;  // the sum of the lengths is the present length
    char* fresh = new char[_length + len + 1];
    std::memcpy(fresh, _string, _length);
    std::memcpy(fresh + _length, s, len);  // before the delete: s may be ours
    fresh[_length + len] = '\0';
    delete[] _string;
    _string = fresh;
    _length += len;
}

ZEBString& ZEBString::operator&=(const ZEBString& other) {
    append(other._string, other._length);
    return *this;
}

ZEBString& ZEBString::operator&=(const char* s) {
    if (s) append(s, static_cast<unsigned>(std::strlen(s)));
    return *this;
}

ZEBString ZEBString::operator&(const ZEBString& other) const {
    ZEBString result(*this);
    result &= other;
    return result;
}

ZEBString ZEBString::operator&(const char* s) const {
    ZEBString result(*this);
    result &= s;
    return result;
}

bool ZEBString::operator==(const ZEBString& other) const {
    return std::strcmp(_string, other._string) == 0;
}

void ZEBString::write(TBostream& strm) const {
    strm << static_cast<unsigned long>(_length) + 1;
    strm.put(_string, _length + 1);
}

void ZEBString::prettyPrint(TBostream& strm) const {
    std::string text;
    text.reserve(_length + 2);
    text += '"';
    text.append(_string, std::strlen(_string));
    text += '"';
    strm.put(text.data(), static_cast<unsigned>(text.size()));
}

unsigned ZEBString::hash() const { return TBTypeDict::strHash(_string); }

int ZEBString::compare(const TBObject& other) const {
    const TBTypeInfo* info = other.classInfo();
    if (info != ZEBString::desc() && !tbCastAllowed(info, ZEBString::desc())) return -1;
    return std::strcmp(_string, static_cast<const ZEBString&>(other)._string);
}

ZEBUniqueId::ZEBUniqueId(TBistream& strm) : DSResource(strm), _id(0) {
    unsigned long id = 0;
    strm >> id;
    _id = static_cast<uint32_t>(id);
}

void ZEBUniqueId::write(TBostream& strm) const { strm << static_cast<unsigned long>(_id); }

void ZEBUniqueId::prettyPrint(TBostream& strm) const {
    char line[32];
    int n = std::snprintf(line, sizeof line, "ID: %u\n", static_cast<unsigned>(_id));
    strm.put(line, static_cast<unsigned>(n));
}

int ZEBUniqueId::compare(const TBObject& other) const {
    if (!tbCastAllowed(other.classInfo(), ZEBUniqueId::desc())) return -1;
    long long d = static_cast<long long>(_id) - static_cast<const ZEBUniqueId&>(other)._id;
    if (d > 0x7fffffffLL) return 0x7fffffff;
    if (d < -0x7fffffffLL) return -0x7fffffff;
    return static_cast<int>(d);
}
