// Values with their TypeCode: the held forms by kind, insertion and
// extraction, the stream forms, compare, hash and printing.
#include "any.h"

#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <type_traits>

#include "anyvalue.h"
#include "except.h"
#include "mstrm.h"
#include "object.h"
#include "sequence.h"
#include "tbiostrm.h"
#include "zebread.h"

namespace {

// How a value of a kind is held.
enum class Held { none, simple, string, any, typeCode, principal, objref, record, block };

struct Form {
    Held held = Held::none;
    CORBA::TCKind kind = CORBA::tk_null;  // aliases stepped through
    int size = 0;                         // of a simple value
    const ZEBKnownRecord* record = nullptr;
};

Form formOf(CORBA_TypeCode* tc) {
    Form f;
    if (!tc) return f;
    // Most types are no alias: only those pay for the walk through.
    CORBA_TypeCode_var named;
    CORBA_TypeCode* t = tc;
    if (tc->kind() == CORBA::tk_alias) {
        named = ZEBunaliased(tc);
        t = named;
    }
    f.kind = t->kind();
    if (ZEBwithSimple(f.kind, [&](auto k) { f.size = sizeof(typename decltype(k)::Held); })) {
        f.held = Held::simple;
        return f;
    }
    switch (f.kind) {
    case CORBA::tk_any:
        f.held = Held::any;
        break;
    case CORBA::tk_TypeCode:
        f.held = Held::typeCode;
        break;
    case CORBA::tk_Principal:
        f.held = Held::principal;
        break;
    case CORBA::tk_objref:
        f.held = Held::objref;
        break;
    case CORBA::tk_string:
        f.held = Held::string;
        break;
    case CORBA::tk_struct:
    case CORBA::tk_except:
        f.record = ZEBknownRecord(t);
        f.held = f.record ? Held::record : Held::block;
        break;
    case CORBA::tk_union:
    case CORBA::tk_sequence:
    case CORBA::tk_array:
        f.held = Held::block;
        break;
    default:
        break;
    }
    return f;
}

void* newSimple(int size) { return ::operator new(static_cast<size_t>(size)); }

void* readSimple(TBistream& strm, CORBA::TCKind kind) {
    void* p = nullptr;
    ZEBwithSimple(kind, [&](auto k) {
        typename decltype(k)::Wire w;
        strm >> w;
        ZEBcheckStream(strm);
        const auto v = static_cast<typename decltype(k)::Held>(w);
        p = newSimple(sizeof v);
        std::memcpy(p, &v, sizeof v);
    });
    return p;
}

void writeSimple(TBostream& strm, CORBA::TCKind kind, const void* p) {
    ZEBwithSimple(kind, [&](auto k) {
        typename decltype(k)::Held v;
        std::memcpy(&v, p, sizeof v);
        strm << static_cast<typename decltype(k)::Wire>(v);
    });
}

void printSimple(std::ostream& os, CORBA::TCKind kind, const void* p) {
    ZEBwithSimple(kind, [&](auto k) {
        typename decltype(k)::Held v;
        std::memcpy(&v, p, sizeof v);
        // A char prints as itself, an octet or boolean as a number.
        if constexpr (std::is_same<decltype(v), CORBA::Char>::value)
            os << v;
        else
            os << +v;
    });
}

// A walk of a held CDR block; its length bounds the reads.
struct BlockReader {
    BlockReader(const void* block, CORBA::Long size)
        : in(static_cast<char*>(const_cast<void*>(block)),
             static_cast<CORBA::ULong>(size > 0 ? size : 0)) {}
    CORBA_MarshalInBuffer in;  // host order, alignment from the block's start
};

// Reads a value of type tc into its held form; size gets its bytes.
void* readHeld(TBistream& strm, CORBA_TypeCode* tc, CORBA::Long& size) {
    const Form f = formOf(tc);
    size = 0;
    switch (f.held) {
    case Held::simple:
        size = f.size;
        return readSimple(strm, f.kind);
    case Held::string: {
        char* s = nullptr;
        strm >> s;
        ZEBcheckStream(strm);
        size = s ? static_cast<CORBA::Long>(std::strlen(s) + 1) : 0;
        return s;
    }
    case Held::any: {
        CORBA_Any_var a = new CORBA_Any;
        strm >> *a;
        return a._retn();
    }
    case Held::typeCode: {
        CORBA_TypeCode* t = nullptr;
        strm >> t;
        return t;
    }
    case Held::principal: {
        std::unique_ptr<CORBA_OctetSequence> p(new CORBA_OctetSequence);
        strm >> *p;
        return p.release();
    }
    case Held::objref: {
        CORBA_Object* obj = nullptr;
        strm >> obj;
        return obj;
    }
    case Held::record:
        return f.record->read(strm);
    case Held::block: {
        CORBA_MarshalOutBuffer out;
        out.owns_buffer(1);  // until the value is whole
        ZEBcopyValue(strm, out, tc, &out);
        out.owns_buffer(0);
        size = static_cast<CORBA::Long>(out.length());
        return out.buffer();
    }
    default:
        return nullptr;
    }
}

void writeHeld(TBostream& strm, CORBA_TypeCode* tc, const void* value, CORBA::Long size) {
    const Form f = formOf(tc);
    switch (f.held) {
    case Held::simple:
        if (value) writeSimple(strm, f.kind, value);
        break;
    case Held::string:
        strm << static_cast<const char*>(value);
        break;
    case Held::any:
        if (!value) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
        strm << *static_cast<const CORBA_Any*>(value);
        break;
    case Held::typeCode:
        strm << static_cast<CORBA_TypeCode*>(const_cast<void*>(value));
        break;
    case Held::principal:
        strm << static_cast<const CORBA_OctetSequence*>(value);
        break;
    case Held::objref:
        strm << static_cast<CORBA_Object*>(const_cast<void*>(value));
        break;
    case Held::record:
        if (!value) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
        f.record->write(strm, value);
        break;
    case Held::block: {
        if (!value) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
        BlockReader r(value, size);
        ZEBcopyValue(r.in, strm, tc, nullptr);
        break;
    }
    default:
        break;
    }
}

void releaseHeld(CORBA_TypeCode* tc, void* value) {
    if (!value) return;
    const Form f = formOf(tc);
    switch (f.held) {
    case Held::simple:
        ::operator delete(value);
        break;
    case Held::string:
    case Held::block:
        CORBA::string_free(static_cast<char*>(value));
        break;
    case Held::any:
        CORBA::release(static_cast<CORBA_Any*>(value));
        break;
    case Held::typeCode:
        CORBA::release(static_cast<CORBA_TypeCode*>(value));
        break;
    case Held::principal:
        delete static_cast<CORBA_OctetSequence*>(value);
        break;
    case Held::objref:
        CORBA::release(static_cast<CORBA_Object*>(value));
        break;
    case Held::record:
        f.record->release(value);
        break;
    default:
        break;
    }
}

void* copyHeld(CORBA_TypeCode* tc, const void* value, CORBA::Long size) {
    if (!value) return nullptr;
    const Form f = formOf(tc);
    switch (f.held) {
    case Held::simple: {
        void* p = newSimple(f.size);
        std::memcpy(p, value, static_cast<size_t>(f.size));
        return p;
    }
    case Held::string:
        return CORBA::strdup(static_cast<const char*>(value));
    case Held::block: {
        char* p = CORBA::string_alloc(static_cast<CORBA::ULong>(size));
        if (size > 0) std::memcpy(p, value, static_cast<size_t>(size));
        return p;
    }
    case Held::any:
        return new CORBA_Any(*static_cast<const CORBA_Any*>(value));
    case Held::typeCode:
        return CORBA_TypeCode::_duplicate(static_cast<CORBA_TypeCode*>(const_cast<void*>(value)));
    case Held::principal:
        return new CORBA_OctetSequence(*static_cast<const CORBA_OctetSequence*>(value));
    case Held::objref:
        return CORBA_Object::_duplicate(static_cast<CORBA_Object*>(const_cast<void*>(value)));
    case Held::record:
        return f.record->copy(value);
    default:
        return nullptr;
    }
}

// Bytes of a CDR block, by one walk of it. The caller vouches for the block.
CORBA::Long blockSize(CORBA_TypeCode* tc, const void* block) {
    BlockReader r(block, 0x7fffffff);
    CORBA_MarshalOutBuffer scratch;
    scratch.owns_buffer(1);
    ZEBcopyValue(r.in, scratch, tc, nullptr);
    return static_cast<CORBA::Long>(r.in.cursor());
}

}  // namespace

// ------------------------------------------------------------------- the class

CORBA_Any::CORBA_Any()
    : _type(CORBA::_tc_null), _value(nullptr), _size(0), _release(1), _refcount(1) {}

CORBA_Any::CORBA_Any(const CORBA_Any& other)
    : _type(CORBA::_tc_null), _value(nullptr), _size(0), _release(0), _refcount(1) {
    *this = other;
}

CORBA_Any::CORBA_Any(CORBA_TypeCode* tc, void* value, CORBA::Boolean release)
    : _type(CORBA::_tc_null), _value(nullptr), _size(0), _release(1), _refcount(1) {
    replace(tc, value, release);
}

CORBA_Any::CORBA_Any(CORBA_TypeCode* tc, const CORBA_MarshalOutBuffer& buf)
    : _type(CORBA::_tc_null), _value(nullptr), _size(0), _release(1), _refcount(1) {
    replace(tc, buf);
}

CORBA_Any& CORBA_Any::operator=(const CORBA_Any& other) {
    if (this == &other) return *this;
    // The copy first: other may be held inside this Any's own value.
    void* copy = copyHeld(other._type, other._value, other._size);
    CORBA_TypeCode* tc = CORBA_TypeCode::_duplicate(other._type);
    releaseValue();
    CORBA::release(_type);
    _type = tc;
    _value = copy;
    _size = other._size;
    _release = 1;
    return *this;
}

CORBA_Any::~CORBA_Any() {
    releaseValue();
    CORBA::release(_type);
}

void CORBA_Any::releaseValue() {
    if (_value && _release) releaseHeld(_type, _value);
    _value = nullptr;
    _size = 0;
}

void CORBA_Any::set(CORBA_TypeCode* tc, void* value, CORBA::Long size) {
    releaseValue();
    CORBA::release(_type);
    _type = tc ? tc : CORBA::_tc_null;
    _value = value;
    _size = size;
    _release = 1;
}

void CORBA_Any::replace(CORBA_TypeCode* tc, void* value, CORBA::Boolean release) {
    if (!tc) tc = CORBA::_tc_null;
    const Form f = formOf(tc);
    CORBA::Long size = 0;
    if (f.held == Held::simple) size = f.size;
    if (f.held == Held::string && value) size = static_cast<CORBA::Long>(std::strlen(static_cast<const char*>(value)) + 1);
    if (f.held == Held::block && value) size = blockSize(tc, value);
    set(tc, value, size);
    _release = release;
}

void CORBA_Any::replace(CORBA_TypeCode* tc, const CORBA_MarshalOutBuffer& buf) {
    if (formOf(tc).held != Held::block) {
        // Only constructed values are held as their CDR: any other is read
        // out of the block into its own held form (an enum's is a simple
        // value, a string's a char*), and a block taken over is spent.
        CORBA_TypeCode_var type = tc;
        CORBA_MarshalInBuffer in(buf.buffer(), buf.length());
        CORBA::Long size = 0;
        void* v = nullptr;
        try {
            v = readHeld(in, type, size);
        } catch (...) {
            if (!buf.owns_buffer()) CORBA::string_free(buf.buffer());
            throw;
        }
        if (!buf.owns_buffer()) CORBA::string_free(buf.buffer());
        set(type._retn(), v, size);
        return;
    }
    char* block = buf.buffer();
    if (buf.owns_buffer()) {
        block = CORBA::string_alloc(buf.length());
        std::memcpy(block, buf.buffer(), buf.length());
    }
    set(tc, block, static_cast<CORBA::Long>(buf.length()));
}

void* CORBA_Any::value() const {
    if (formOf(_type).held == Held::string) return const_cast<void**>(&_value);
    return _value;
}

CORBA_Any* CORBA_Any::_duplicate(CORBA_Any* a) {
    if (a) a->_ref();
    return a;
}

void CORBA_Any::write_value(TBostream& strm) const { writeHeld(strm, _type, _value, _size); }

void CORBA_Any::read_value(TBistream& strm, CORBA_TypeCode* tc) {
    ZEBNestGuard nest;
    CORBA_TypeCode_var type = CORBA_TypeCode::_duplicate(tc ? tc : CORBA::_tc_null);
    CORBA::Long size = 0;
    void* v = readHeld(strm, type, size);
    set(type._retn(), v, size);
}

// --------------------------------------------------------- insertion, extraction

template <class T>
CORBA_Any& CORBA_Any::insert(CORBA_TypeCode* tc, T v) {
    void* p = newSimple(sizeof v);
    std::memcpy(p, &v, sizeof v);
    set(tc, p, sizeof v);
    return *this;
}

CORBA_Any& CORBA_Any::operator<<=(CORBA::Short v) { return insert(CORBA::_tc_short, v); }
CORBA_Any& CORBA_Any::operator<<=(CORBA::UShort v) { return insert(CORBA::_tc_ushort, v); }
CORBA_Any& CORBA_Any::operator<<=(CORBA::Long v) { return insert(CORBA::_tc_long, v); }
CORBA_Any& CORBA_Any::operator<<=(CORBA::ULong v) { return insert(CORBA::_tc_ulong, v); }
CORBA_Any& CORBA_Any::operator<<=(CORBA::Float v) { return insert(CORBA::_tc_float, v); }
CORBA_Any& CORBA_Any::operator<<=(CORBA::Double v) { return insert(CORBA::_tc_double, v); }
CORBA_Any& CORBA_Any::operator<<=(from_boolean v) { return insert(CORBA::_tc_boolean, v.val); }
CORBA_Any& CORBA_Any::operator<<=(from_octet v) { return insert(CORBA::_tc_octet, v.val); }
CORBA_Any& CORBA_Any::operator<<=(from_char v) { return insert(CORBA::_tc_char, v.val); }

CORBA_Any& CORBA_Any::operator<<=(const char* s) {
    // Copy first: s may be the string this Any holds now.
    char* copy = CORBA::strdup(s);
    set(CORBA::_tc_string, copy, copy ? static_cast<CORBA::Long>(std::strlen(copy) + 1) : 0);
    return *this;
}

CORBA_Any& CORBA_Any::operator<<=(const CORBA_Any& a) {
    CORBA_Any* copy = new CORBA_Any(a);
    set(CORBA::_tc_any, copy, 0);
    return *this;
}

CORBA_Any& CORBA_Any::operator<<=(CORBA_TypeCode* tc) {
    CORBA_TypeCode* held = CORBA_TypeCode::_duplicate(tc);
    set(CORBA_TypeCode::_duplicate(CORBA::_tc_TypeCode), held, 0);
    return *this;
}

template <class T>
CORBA::Boolean CORBA_Any::extract(CORBA::TCKind kind, T& v) const {
    if (_type->kind() != kind || !_value) return 0;
    std::memcpy(&v, _value, sizeof v);
    return 1;
}

CORBA::Boolean CORBA_Any::operator>>=(CORBA::Short& v) const { return extract(CORBA::tk_short, v); }
CORBA::Boolean CORBA_Any::operator>>=(CORBA::UShort& v) const { return extract(CORBA::tk_ushort, v); }
CORBA::Boolean CORBA_Any::operator>>=(CORBA::Long& v) const { return extract(CORBA::tk_long, v); }
CORBA::Boolean CORBA_Any::operator>>=(CORBA::ULong& v) const { return extract(CORBA::tk_ulong, v); }
CORBA::Boolean CORBA_Any::operator>>=(CORBA::Float& v) const { return extract(CORBA::tk_float, v); }
CORBA::Boolean CORBA_Any::operator>>=(CORBA::Double& v) const { return extract(CORBA::tk_double, v); }
CORBA::Boolean CORBA_Any::operator>>=(to_boolean v) const { return extract(CORBA::tk_boolean, v.ref); }
CORBA::Boolean CORBA_Any::operator>>=(to_octet v) const { return extract(CORBA::tk_octet, v.ref); }
CORBA::Boolean CORBA_Any::operator>>=(to_char v) const { return extract(CORBA::tk_char, v.ref); }

CORBA::Boolean CORBA_Any::operator>>=(char*& s) const {
    if (_type->kind() != CORBA::tk_string) return 0;
    s = CORBA::strdup(static_cast<const char*>(_value));
    return 1;
}

CORBA::Boolean CORBA_Any::operator>>=(CORBA_Any& a) const {
    if (_type->kind() != CORBA::tk_any || !_value) return 0;
    a = *static_cast<const CORBA_Any*>(_value);
    return 1;
}

CORBA::Boolean CORBA_Any::operator>>=(CORBA_TypeCode*& tc) const {
    if (_type->kind() != CORBA::tk_TypeCode) return 0;
    tc = CORBA_TypeCode::_duplicate(static_cast<CORBA_TypeCode*>(_value));
    return 1;
}

void operator<<=(CORBA_Any& a, CORBA_Object* obj) {
    if (!obj) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    CORBA_TypeCode* tc = new CORBA_TypeCode(obj->_repository_id(), obj->_interface_name(), 0);
    a.replace(tc, CORBA_Object::_duplicate(obj), 1);
}

CORBA::Boolean operator>>=(const CORBA_Any& a, CORBA_Object*& obj) {
    if (a.kind() != CORBA::tk_objref) return 0;
    obj = CORBA_Object::_duplicate(static_cast<CORBA_Object*>(a.value()));
    return 1;
}

// ------------------------------------------------------------------- streams

TBostream& operator<<(TBostream& strm, const CORBA_Any& a) {
    strm << a.type();
    a.write_value(strm);
    return strm;
}

TBostream& operator<<(TBostream& strm, const CORBA_Any* a) {
    if (!a) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    return strm << *a;
}

TBistream& operator>>(TBistream& strm, CORBA_Any& a) {
    ZEBNestGuard nest;
    CORBA_TypeCode_var tc;
    strm >> tc.out();
    if (!tc) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    a.read_value(strm, tc);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const CORBA_Any& a) {
    if (!ZEBisConsole(os)) {
        TBostream strm(os);
        strm << a;
        return os;
    }
    const Form f = formOf(a.type());
    const void* v = a.value();
    if (f.held == Held::string) v = *static_cast<char* const*>(v);
    if (!v) {
        if (f.held != Held::none) os << "(null)";
        return os;
    }
    switch (f.held) {
    case Held::simple:
        printSimple(os, f.kind, v);
        break;
    case Held::string:
        os << static_cast<const char*>(v);
        break;
    case Held::any:
        os << *static_cast<const CORBA_Any*>(v);
        break;
    case Held::typeCode:
        os << static_cast<CORBA_TypeCode*>(const_cast<void*>(v));
        break;
    case Held::principal:
        os << *static_cast<const CORBA_OctetSequence*>(v);
        break;
    case Held::objref:
        os << static_cast<CORBA_Object*>(const_cast<void*>(v));
        break;
    case Held::record:
        f.record->print(os, v);
        break;
    case Held::block: {
        // The text form of the object streams, item by item, in braces.
        os << CORBA_TypeCode::kindName(f.kind) << " { ";
        {
            BlockReader r(v, a.size());
            TBostream text(os);
            ZEBcopyValue(r.in, text, a.type(), nullptr);
        }
        os << "}";
        break;
    }
    default:
        break;
    }
    return os;
}

// ----------------------------------------------------------- compare and hash

long compare(const CORBA_Any& a, const CORBA_Any& b) {
    if (long d = compare(a.type(), b.type())) return d;
    const Form f = formOf(a.type());
    const void* x = a.value();
    const void* y = b.value();
    if (f.held == Held::string) {
        x = *static_cast<char* const*>(x);
        y = *static_cast<char* const*>(y);
    }
    if (x == y) return 0;
    if (!x || !y) return x ? 1 : -1;
    switch (f.held) {
    case Held::simple:
        return std::memcmp(x, y, static_cast<size_t>(f.size));
    case Held::string:
        return std::strcmp(static_cast<const char*>(x), static_cast<const char*>(y));
    case Held::any:
        return compare(*static_cast<const CORBA_Any*>(x), *static_cast<const CORBA_Any*>(y));
    case Held::typeCode:
        return compare(static_cast<CORBA_TypeCode*>(const_cast<void*>(x)),
                       static_cast<CORBA_TypeCode*>(const_cast<void*>(y)));
    case Held::principal:
        return static_cast<const CORBA_OctetSequence*>(x)->compare(
            *static_cast<const CORBA_OctetSequence*>(y));
    case Held::objref:
        return compare(static_cast<CORBA_Object*>(const_cast<void*>(x)),
                       static_cast<CORBA_Object*>(const_cast<void*>(y)));
    case Held::record:
        return f.record->compare(x, y);
    case Held::block:
        // Blocks are host order with one alignment origin: equal values
        // have equal bytes.
        if (a.size() != b.size()) return static_cast<long>(a.size()) - b.size();
        return std::memcmp(x, y, static_cast<size_t>(a.size()));
    default:
        return 0;
    }
}

CORBA::ULong hash(const CORBA_Any& a) {
    const Form f = formOf(a.type());
    const void* v = a.value();
    if (f.held == Held::string) v = *static_cast<char* const*>(v);
    // Values held by pointer (Anys, TypeCodes, objects, principals,
    // records) count as size 0.
    const bool bytes = f.held == Held::simple || f.held == Held::string || f.held == Held::block;
    if (!bytes || !v || a.size() < 1) return 0;
    CORBA::ULong h = static_cast<CORBA::ULong>(a.size());
    const unsigned char* p = static_cast<const unsigned char*>(v);
    for (CORBA::Long i = 0; i < a.size(); ++i) h ^= p[i];
    return h;
}

namespace CORBA {
void release(CORBA_Any* a) {
    if (a && a->_deref() <= 0) delete a;
}
}  // namespace CORBA
