// Object streams: the object encoding (tags, object and class numbers) and
// the text form of the primitives over a platform istream/ostream. The
// encoding only uses the virtual primitives, so that every derived transport
// carries it in its own form.
#include "tbiostrm.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "tbiotbl.h"
#include "tbtinfo.h"

namespace {

// Lowers a table's object level on every way out of a nested read or write
// (a derived transport may throw), and empties the object numbers when the
// outermost one ends.
template <class Table>
class ObjectLevel {
public:
    explicit ObjectLevel(Table& t) : _t(t) { _t.raiseObjectLevel(); }
    ~ObjectLevel() {
        if (_t.lowerObjectLevel() == 0) _t.clearObjects();
    }
    ObjectLevel(const ObjectLevel&) = delete;
    ObjectLevel& operator=(const ObjectLevel&) = delete;

private:
    Table& _t;
};

bool isConsole(const std::ostream* os) { return os == &std::cout || os == &std::cerr; }

void reportBadObject(const char* who) {
    std::cerr << who << "Error reading Object "
              << "from  stream. Make sure your 'write' "
              << "function and constructor from stream are "
              << "correct\n";
}

// One character of a string in text form.
void putTextChar(std::ostream& os, unsigned char c) {
    switch (c) {
    case '\n': os << "\\n"; return;
    case '\t': os << "\\t"; return;
    case '\b': os << "\\b"; return;
    case '\r': os << "\\r"; return;
    case '\f': os << "\\f"; return;
    case '\\': os << "\\\\"; return;
    case '"': os << "\\\""; return;
    case '{': os << "\\["; return;
    case '}': os << "\\]"; return;
    default: break;
    }
    if (std::isalpha(c) || std::isdigit(c) || std::ispunct(c) || std::isblank(c)) {
        os.put(static_cast<char>(c));
    } else {
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02x", c);
        os << hex;
    }
}

// Value of a backslash sequence whose backslash has been read; false at
// the end of the input or on a number that does not parse.
bool getEscape(std::istream& is, char& out) {
    int c = is.get();
    switch (c) {
    case EOF: return false;
    case 'n': out = '\n'; return true;
    case 't': out = '\t'; return true;
    case 'b': out = '\b'; return true;
    case 'r': out = '\r'; return true;
    case 'f': out = '\f'; return true;
    case '\\': out = '\\'; return true;
    case '"': out = '"'; return true;
    case '[': out = '{'; return true;
    case ']': out = '}'; return true;
    case 'x': {
        char digits[3] = {0, 0, 0};
        is.read(digits, 2);
        unsigned v = 0;
        if (std::sscanf(digits, "%2x", &v) != 1) return false;
        out = static_cast<char>(v);
        return true;
    }
    default: {
        is.putback(static_cast<char>(c));
        int v = 0;
        if (!(is >> v)) return false;
        out = static_cast<char>(v);
        return true;
    }
    }
}

// Reads a quoted string into out, decoded, with at most max characters
// counting the terminator. Reports on cerr as the stream's getCString does
// and returns false on any fault; out then holds what was read.
bool readQuoted(std::istream& is, std::string& out, unsigned max) {
    is >> std::ws;
    if (is.peek() == EOF) {
        std::cerr << "TBistream::getCString: Unexpected EOF\n";
        return false;
    }
    if (is.get() != '"') {
        reportBadObject("TBistream::getCString: ");
        return false;
    }
    for (;;) {
        int c = is.get();
        if (c == EOF) {
            std::cerr << "TBistream::getCString: Unexpected EOF\n";
            return false;
        }
        if (c == '"') break;
        if (c == '\n') continue;  // a raw newline is layout, not content
        if (max == 0) {
            std::cerr << "TBistream::getCString: String Overflow\n";
            return false;
        }
        --max;
        char ch = static_cast<char>(c);
        if (c == '\\' && !getEscape(is, ch)) {
            std::cerr << "TBistream::getCString: Unexpected EOF\n";
            return false;
        }
        out.push_back(ch);
    }
    if (max == 0) {
        std::cerr << "TBistream::getCString: String overflow\n";
        return false;
    }
    is.get();  // the newline behind the closing quote
    return true;
}

}  // namespace

// ================================================================= TBostream

const char TBostream::_class_name[] = "TBostream";

TBostream::TBostream(std::ostream& os) : _os(&os) {}

TBostream::TBostream() : _os(nullptr) {}

TBOutTbl& TBostream::outTable() {
    if (!_outTbl) _outTbl.reset(new TBOutTbl);
    return *_outTbl;
}

TBostream::~TBostream() {}

void TBostream::storeObject(const TBTransObject& obj) {
    if (_os == &std::cout)
        obj.prettyPrint(*this);
    else
        obj.write(*this);
}

void TBostream::clearOutClassTbl() {
    if (_outTbl) _outTbl->clearClasses();
}

void TBostream::clearOutObjTbl() {
    if (_outTbl) _outTbl->clearObjects();
}

const char* TBostream::className() const { return _class_name; }

int TBostream::isKindOf(const char* name) const { return name == _class_name; }

TBostream& TBostream::writeTransObj(const TBTransObject* obj) {
    if (!obj) {
        *this << ':';
        putCString("::");
        return *this;
    }
    ObjectLevel<TBOutTbl> level(outTable());
    const TBTypeInfo* info = obj->classInfo();
    int number;
    if (!outTable().add(obj, number)) {
        *this << '@';
        *this << number;
        return *this;
    }
    // A class without a descriptor goes as an empty name: never entered in
    // the class table, and unknown to every reader.
    int classNumber;
    if (!info || outTable().addClass(info, classNumber)) {
        *this << ':';
        const char* name = info ? info->name() : nullptr;
        putCString(name ? name : "");
    } else {
        *this << '#';
        *this << classNumber;
    }
    storeObject(*obj);
    return *this;
}

TBostream& TBostream::operator<<(const char* s) {
    if (!_os) return *this;
    if (isConsole(_os)) {
        *_os << (s ? s : "") << ' ';
        return *this;
    }
    size_t len = s ? std::strlen(s) : 0;
    *_os << len;
    if (len == 0)
        _os->put(' ');
    else
        putCString(s);
    return *this;
}

TBostream& TBostream::operator<<(char c) {
    if (_os) *_os << c << ' ';
    return *this;
}

TBostream& TBostream::operator<<(unsigned char c) {
    if (_os) *_os << static_cast<unsigned>(c) << ' ';
    return *this;
}

// The numeric forms share one shape: the platform's decimal text and a blank.
// long values are kept to 32 bits here as on every other stream.
template <class V>
static TBostream& putNumber(TBostream& strm, std::ostream* os, V v) {
    if (os) *os << v << ' ';
    return strm;
}

TBostream& TBostream::operator<<(short v) { return putNumber(*this, _os, v); }
TBostream& TBostream::operator<<(unsigned short v) { return putNumber(*this, _os, v); }
TBostream& TBostream::operator<<(int v) { return putNumber(*this, _os, v); }
TBostream& TBostream::operator<<(unsigned int v) { return putNumber(*this, _os, v); }
TBostream& TBostream::operator<<(long v) {
    return putNumber(*this, _os, static_cast<int32_t>(v));
}
TBostream& TBostream::operator<<(unsigned long v) {
    return putNumber(*this, _os, static_cast<uint32_t>(v));
}
TBostream& TBostream::operator<<(float v) { return putNumber(*this, _os, v); }
TBostream& TBostream::operator<<(double v) { return putNumber(*this, _os, v); }

TBostream& TBostream::operator<<(const TBTransObject* obj) { return writeTransObj(obj); }

TBostream& TBostream::operator<<(const TBTransObject& obj) {
    // The reader builds this object in place, so it takes a number but no tag.
    int number;
    outTable().add(&obj, number);
    obj.write(*this);
    // At the top level the object is often a temporary: forget its address
    // now, or a later object at the same address would come out as "@".
    if (outTable().objectLevel() == 0) outTable().clearObjects();
    return *this;
}

TBostream& TBostream::put(char c) {
    if (_os) _os->put(c);
    return *this;
}

TBostream& TBostream::put(const char* p, unsigned n) {
    if (_os && n) _os->write(p, n);
    return *this;
}

TBostream& TBostream::put(const unsigned char* p, unsigned n) {
    return put(reinterpret_cast<const char*>(p), n);
}

template <class V, class W = V>
static TBostream& putNumbers(TBostream& strm, std::ostream* os, const V* p, unsigned n) {
    if (!os) return strm;
    for (unsigned i = 0; i < n; ++i) *os << static_cast<W>(p[i]) << ' ';
    return strm;
}

TBostream& TBostream::put(const short* p, unsigned n) { return putNumbers(*this, _os, p, n); }
TBostream& TBostream::put(const unsigned short* p, unsigned n) {
    return putNumbers(*this, _os, p, n);
}
TBostream& TBostream::put(const int* p, unsigned n) { return putNumbers(*this, _os, p, n); }
TBostream& TBostream::put(const unsigned int* p, unsigned n) {
    return putNumbers(*this, _os, p, n);
}
TBostream& TBostream::put(const long* p, unsigned n) {
    return putNumbers<long, int32_t>(*this, _os, p, n);
}
TBostream& TBostream::put(const unsigned long* p, unsigned n) {
    return putNumbers<unsigned long, uint32_t>(*this, _os, p, n);
}
TBostream& TBostream::put(const float* p, unsigned n) { return putNumbers(*this, _os, p, n); }
TBostream& TBostream::put(const double* p, unsigned n) { return putNumbers(*this, _os, p, n); }

TBostream& TBostream::putCString(const char* s) {
    if (!_os) return *this;
    _os->put('"');
    for (; s && *s; ++s) putTextChar(*_os, static_cast<unsigned char>(*s));
    _os->put('"');
    _os->put('\n');
    return *this;
}

TBostream& endl(TBostream& strm) { return strm.put('\n'); }

// ================================================================= TBistream

const char TBistream::_class_name[] = "TBistream";

TBistream::TBistream(std::istream& is) : _is(&is) {}

TBistream::TBistream() : _is(nullptr) {}

TBInTbl& TBistream::inTable() {
    if (!_inTbl) _inTbl.reset(new TBInTbl);
    return *_inTbl;
}

TBistream::~TBistream() {}

TBTransObject* TBistream::readObject(const TBTypeInfo* info) {
    TBReadFunc read = info ? info->readFunction() : nullptr;
    return read ? read(*this) : nullptr;  // an abstract class has no factory
}

void TBistream::clearInClassTbl() {
    if (_inTbl) _inTbl->clearClasses();
}

void TBistream::clearInObjTbl() {
    if (_inTbl) _inTbl->clearObjects();
}

TBTransObject* TBistream::readTransObj() {
    char tag = 0;
    *this >> tag;
    const TBTypeInfo* info = nullptr;
    switch (tag) {
    case '#': {
        int number = -1;
        *this >> number;
        info = inTable().classAt(number);
        if (!info) {
            std::cerr << "TBistream::readObject. Internal Error "
                      << "reading class '" << number << "'\n";
            return nullptr;
        }
        break;
    }
    case '@': {
        int number = -1;
        *this >> number;
        // The writer counts a back reference as a visit too: one at the top
        // level ends its object numbers, so the reader's must end with it.
        ObjectLevel<TBInTbl> level(inTable());
        return inTable().objectAt(number);
    }
    case ':': {
        char name[257] = {0};  // binary streams put the terminator at [max]
        getCString(name, 256);
        if (std::strcmp(name, "::") == 0) return nullptr;
        info = TBTypeInfo::typeInfo(name);
        if (!info) {
            std::cerr << "TBistream::readObject: Received Object"
                      << " of class '" << name << "', but this class is not linked in"
                      << '\n';
            return nullptr;
        }
        inTable().addClass(info);
        break;
    }
    default:
        reportBadObject("TBistream::readObject: ");
        return nullptr;
    }
    ObjectLevel<TBInTbl> level(inTable());
    // Marked as being read until its reader returns, also when that throws.
    struct Building {
        TBInTbl& t;
        ~Building() { t.endObject(); }
    } building{inTable()};
    inTable().beginObject(inTable().objectCount());
    TBTransObject* obj = readObject(info);
    if (obj) inTable().markMade(obj);
    return obj;
}

int TBistream::addToTbl(TBTransObject& obj) {
    // An object built in place at the top level starts a fresh numbering,
    // as its writer forgot everything after the previous top-level write.
    if (inTable().objectLevel() == 0) inTable().clearObjects();
    return inTable().add(obj);
}

const char* TBistream::className() const { return _class_name; }

int TBistream::isKindOf(const char* name) const { return name == _class_name; }

TBistream& TBistream::operator>>(char*& s) {
    if (!_is) return *this;
    std::string text;
    if (_is == &std::cin) {
        *_is >> text;
    } else {
        long len = 0;
        *_is >> len;
        if (len > 0)
            readQuoted(*_is, text, static_cast<unsigned>(len) + 1);
        else
            _is->get();
    }
    // From cin the caller's buffer is taken to be large enough; otherwise a
    // new one is made. The new one is sized by what was actually read, so a
    // length on the stream never decides an allocation by itself.
    if (_is != &std::cin || !s) {
        delete[] s;
        s = new char[text.size() + 1];
    }
    std::memcpy(s, text.c_str(), text.size() + 1);
    return *this;
}

template <class V>
static TBistream& getNumber(TBistream& strm, std::istream* is, V& v) {
    if (is) {
        *is >> v;
        is->get();  // the blank behind the value
    }
    return strm;
}

TBistream& TBistream::operator>>(char& c) { return getNumber(*this, _is, c); }

TBistream& TBistream::operator>>(unsigned char& c) {
    int v = c;
    getNumber(*this, _is, v);
    c = static_cast<unsigned char>(v);
    return *this;
}

TBistream& TBistream::operator>>(short& v) { return getNumber(*this, _is, v); }
TBistream& TBistream::operator>>(unsigned short& v) { return getNumber(*this, _is, v); }
TBistream& TBistream::operator>>(int& v) { return getNumber(*this, _is, v); }
TBistream& TBistream::operator>>(unsigned int& v) { return getNumber(*this, _is, v); }
TBistream& TBistream::operator>>(long& v) {
    int32_t w = static_cast<int32_t>(v);
    getNumber(*this, _is, w);
    v = w;
    return *this;
}
TBistream& TBistream::operator>>(unsigned long& v) {
    uint32_t w = static_cast<uint32_t>(v);
    getNumber(*this, _is, w);
    v = w;
    return *this;
}
TBistream& TBistream::operator>>(float& v) { return getNumber(*this, _is, v); }
TBistream& TBistream::operator>>(double& v) { return getNumber(*this, _is, v); }

int TBistream::get() { return _is ? _is->get() : EOF; }

TBistream& TBistream::get(char& c) {
    if (_is) _is->get(c);
    return *this;
}

TBistream& TBistream::get(unsigned char& c) {
    char ch = static_cast<char>(c);
    get(ch);
    c = static_cast<unsigned char>(ch);
    return *this;
}

TBistream& TBistream::get(char* p, unsigned n) {
    if (_is && n) _is->read(p, n);
    return *this;
}

TBistream& TBistream::get(unsigned char* p, unsigned n) {
    return get(reinterpret_cast<char*>(p), n);
}

// Values are separated by blanks, which extraction skips; one character
// closes the array.
template <class V, class W = V>
static TBistream& getNumbers(TBistream& strm, std::istream* is, V* p, unsigned n) {
    if (!is || n == 0) return strm;
    for (unsigned i = 0; i < n; ++i) {
        W w{};
        *is >> w;
        p[i] = static_cast<V>(w);
    }
    is->get();
    return strm;
}

TBistream& TBistream::get(short* p, unsigned n) { return getNumbers(*this, _is, p, n); }
TBistream& TBistream::get(unsigned short* p, unsigned n) { return getNumbers(*this, _is, p, n); }
TBistream& TBistream::get(int* p, unsigned n) { return getNumbers(*this, _is, p, n); }
TBistream& TBistream::get(unsigned int* p, unsigned n) { return getNumbers(*this, _is, p, n); }
TBistream& TBistream::get(long* p, unsigned n) {
    return getNumbers<long, int32_t>(*this, _is, p, n);
}
TBistream& TBistream::get(unsigned long* p, unsigned n) {
    return getNumbers<unsigned long, uint32_t>(*this, _is, p, n);
}
TBistream& TBistream::get(float* p, unsigned n) { return getNumbers(*this, _is, p, n); }
TBistream& TBistream::get(double* p, unsigned n) { return getNumbers(*this, _is, p, n); }

TBistream& TBistream::getCString(char* buffer, unsigned max) {
    if (!_is) return *this;
    std::string text;
    bool ok = readQuoted(*_is, text, max);
    // After a fault the buffer holds what was read so far, cut so that it is
    // terminated within the max bytes it was given; with nothing read it is
    // left alone.
    if (max == 0 || (!ok && text.empty())) return *this;
    size_t n = text.size() < max ? text.size() : max - 1;
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return *this;
}
