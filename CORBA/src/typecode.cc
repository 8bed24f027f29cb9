// TypeCodes: construction, the accessors, compare and hash, the stream form
// and printing. The statics of the basic types live in cinit.cc.
#include "typecode.h"

#include <iostream>
#include <memory>
#include <vector>

#include "any.h"
#include "anyvalue.h"
#include "mstrm.h"
#include "tbiostrm.h"
#include "zebread.h"

CORBA_EXCEPTION_DEFINE(CORBA_TypeCode::BadKind, "CORBA::TypeCode::BadKind",
                       "IDL:omg.org/CORBA/TypeCode/BadKind:1.0", CORBA_UserException);
CORBA_EXCEPTION_DEFINE(CORBA_TypeCode::Bounds, "CORBA::TypeCode::Bounds",
                       "IDL:omg.org/CORBA/TypeCode/Bounds:1.0", CORBA_UserException);

int ZEBNestGuard::_depth = 0;

ZEBNestGuard::ZEBNestGuard() {
    if (++_depth > kMaxNesting) {
        --_depth;
        throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    }
}

namespace {

const char* const kKindNames[] = {
    "tk_null",   "tk_void",     "tk_short",     "tk_long",   "tk_ushort", "tk_ulong",
    "tk_float",  "tk_double",   "tk_boolean",   "tk_char",   "tk_octet",  "tk_any",
    "tk_TypeCode", "tk_Principal", "tk_objref", "tk_struct", "tk_union",  "tk_enum",
    "tk_string", "tk_sequence", "tk_array",     "tk_alias",  "tk_except"};

// Parameters seen through their held forms.
const char* textOf(const CORBA_Any& a) {
    return a.kind() == CORBA::tk_string ? *static_cast<char**>(a.value()) : nullptr;
}
CORBA_TypeCode* typeOf(const CORBA_Any& a) {
    return a.kind() == CORBA::tk_TypeCode ? static_cast<CORBA_TypeCode*>(a.value()) : nullptr;
}
CORBA::ULong ulongOf(const CORBA_Any& a) {
    return a.kind() == CORBA::tk_ulong ? *static_cast<CORBA::ULong*>(a.value()) : 0;
}

CORBA_Any* textParam(const char* s) {
    CORBA_Any* a = new CORBA_Any;
    *a <<= s;
    return a;
}
CORBA_Any* ulongParam(CORBA::ULong v) {
    CORBA_Any* a = new CORBA_Any;
    *a <<= v;
    return a;
}
CORBA_Any* typeParam(CORBA_TypeCode* tc) {
    if (!tc) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    CORBA_Any* a = new CORBA_Any;
    *a <<= tc;
    return a;
}
// Adopts a TypeCode just read.
CORBA_Any* adoptType(CORBA_TypeCode* tc) {
    return new CORBA_Any(CORBA_TypeCode::_duplicate(CORBA::_tc_TypeCode), tc, 1);
}

// Parameters of a TypeCode being read, released unless they are handed over.
struct ParamList {
    std::vector<CORBA_Any*> items;
    ~ParamList() {
        for (CORBA_Any* a : items) CORBA::release(a);
    }
};

}  // namespace

// ---------------------------------------------------------------- building

CORBA_TypeCode::CORBA_TypeCode()
    : _kind(CORBA::tk_null), _params(nullptr), _count(0), _defaultIndex(-1), _static(0),
      _id(nullptr), _refcount(1), _builder(nullptr) {}

CORBA_TypeCode::CORBA_TypeCode(CORBA::TCKind kind, unsigned char isStatic) : CORBA_TypeCode() {
    if (kind >= CORBA::tk_objref) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    _kind = kind;
    _static = isStatic;
}

void CORBA_TypeCode::initNamed(CORBA::TCKind kind, const char* id, const char* name,
                               CORBA::ULong count) {
    _kind = kind;
    _id = CORBA::strdup(id);
    _params = new CORBA_Any*[count]();
    _count = count;
    setParam(0, textParam(name));
}

void CORBA_TypeCode::setParam(CORBA::ULong i, CORBA_Any* a) { _params[i] = a; }

CORBA_TypeCode::CORBA_TypeCode(CORBA::TCKind kind, const char* id, const char* name,
                               const ZEBTCMember* members, CORBA::ULong count,
                               unsigned char isStatic)
    : CORBA_TypeCode() {
    if (kind != CORBA::tk_struct && kind != CORBA::tk_except)
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    _static = isStatic;
    try {
        initNamed(kind, id, name, 1 + 2 * count);
        for (CORBA::ULong i = 0; i < count; ++i) {
            setParam(1 + 2 * i, textParam(members[i].name));
            setParam(2 + 2 * i, typeParam(members[i].type));
        }
    } catch (...) {
        clear();
        throw;
    }
}

CORBA_TypeCode::CORBA_TypeCode(const char* id, const char* name, CORBA_TypeCode* discriminator,
                               const ZEBTCMember* members, CORBA::ULong count,
                               unsigned char isStatic)
    : CORBA_TypeCode() {
    _static = isStatic;
    try {
        initNamed(CORBA::tk_union, id, name, 2 + 3 * count);
        setParam(1, typeParam(discriminator));
        for (CORBA::ULong i = 0; i < count; ++i) {
            const CORBA_Any* label = members[i].label;
            CORBA_Any* copy = new CORBA_Any;
            if (!label || label->kind() == CORBA::tk_octet) {
                *copy <<= CORBA_Any::from_octet(0);
                if (_defaultIndex < 0) _defaultIndex = static_cast<CORBA::Long>(i);
            } else {
                *copy = *label;
            }
            setParam(2 + 3 * i, copy);
            setParam(3 + 3 * i, textParam(members[i].name));
            setParam(4 + 3 * i, typeParam(members[i].type));
        }
    } catch (...) {
        clear();
        throw;
    }
}

CORBA_TypeCode::CORBA_TypeCode(const char* id, const char* name, const char* const* names,
                               CORBA::ULong count, unsigned char isStatic)
    : CORBA_TypeCode() {
    _static = isStatic;
    initNamed(CORBA::tk_enum, id, name, 1 + count);
    for (CORBA::ULong i = 0; i < count; ++i) setParam(1 + i, textParam(names[i]));
}

CORBA_TypeCode::CORBA_TypeCode(const char* id, const char* name, CORBA_TypeCode* aliased,
                               unsigned char isStatic)
    : CORBA_TypeCode() {
    _static = isStatic;
    try {
        initNamed(CORBA::tk_alias, id, name, 2);
        setParam(1, typeParam(aliased));
    } catch (...) {
        clear();
        throw;
    }
}

CORBA_TypeCode::CORBA_TypeCode(const char* id, const char* name, unsigned char isStatic)
    : CORBA_TypeCode() {
    _static = isStatic;
    initNamed(CORBA::tk_objref, id, name, 1);
}

CORBA_TypeCode::CORBA_TypeCode(CORBA::ULong bound, unsigned char isStatic) : CORBA_TypeCode() {
    _static = isStatic;
    _kind = CORBA::tk_string;
    _params = new CORBA_Any*[1];
    _count = 1;
    setParam(0, ulongParam(bound));
}

CORBA_TypeCode::CORBA_TypeCode(CORBA::TCKind kind, CORBA::ULong bound, CORBA_TypeCode* element,
                               unsigned char isStatic)
    : CORBA_TypeCode() {
    if ((kind != CORBA::tk_sequence && kind != CORBA::tk_array) || !element)
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    _static = isStatic;
    _kind = kind;
    _params = new CORBA_Any*[2];
    _count = 2;
    setParam(0, typeParam(element));
    setParam(1, ulongParam(bound));
}

CORBA_TypeCode::CORBA_TypeCode(CORBA::ULong bound, CORBA::ULong offset, unsigned char isStatic)
    : CORBA_TypeCode() {
    _static = isStatic;
    _kind = CORBA::tk_sequence;
    _params = new CORBA_Any*[2];
    _count = 2;
    setParam(0, ulongParam(bound));
    setParam(1, ulongParam(offset));
}

namespace {
CORBA::ULong readKind(TBistream& strm) {
    unsigned long kind = 0;
    strm >> kind;
    ZEBcheckStream(strm);
    return static_cast<CORBA::ULong>(kind);
}
}  // namespace

CORBA_TypeCode::CORBA_TypeCode(TBistream& strm) : CORBA_TypeCode(strm, readKind(strm)) {}

CORBA_TypeCode::~CORBA_TypeCode() { clear(); }

void CORBA_TypeCode::clear() {
    for (CORBA::ULong i = 0; i < _count; ++i) CORBA::release(_params[i]);
    delete[] _params;
    _params = nullptr;
    _count = 0;
    CORBA::string_free(_id);
    _id = nullptr;
}

void CORBA_TypeCode::build() {
    Builder b = _builder;
    _builder = nullptr;
    std::unique_ptr<CORBA_TypeCode> donor(b());
    _kind = donor->_kind;
    _params = donor->_params;
    _count = donor->_count;
    _defaultIndex = donor->_defaultIndex;
    _id = donor->_id;
    donor->_params = nullptr;
    donor->_count = 0;
    donor->_id = nullptr;
}

// ------------------------------------------------------------ reference counts

CORBA_TypeCode* CORBA_TypeCode::_duplicate(CORBA_TypeCode* tc) {
    if (tc && !tc->_static) ++tc->_refcount;
    return tc;
}

void CORBA_TypeCode::_release(CORBA_TypeCode* tc) {
    if (!tc || tc->_static) return;
    if (--tc->_refcount < 1) delete tc;
}

// ------------------------------------------------------------------ accessors

const char* CORBA_TypeCode::kindName(CORBA::TCKind kind) {
    return kind <= CORBA::tk_except ? kKindNames[kind] : "tk_?";
}

void CORBA_TypeCode::need(bool ok) const {
    if (!ok) throw BadKind();
}

bool CORBA_TypeCode::named() const {
    switch (kind()) {
    case CORBA::tk_objref:
    case CORBA::tk_struct:
    case CORBA::tk_union:
    case CORBA::tk_enum:
    case CORBA::tk_alias:
    case CORBA::tk_except:
        return true;
    default:
        return false;
    }
}

const CORBA_Any& CORBA_TypeCode::param(CORBA::ULong i) const {
    ready();
    if (i >= _count) throw Bounds();
    return *_params[i];
}

CORBA::Boolean CORBA_TypeCode::is_recursive_sequence() const {
    return kind() == CORBA::tk_sequence && _count == 2 && _params[0]->kind() == CORBA::tk_ulong;
}

const char* CORBA_TypeCode::id() const {
    need(named());
    return _id;
}

const char* CORBA_TypeCode::name() const {
    need(named());
    return textOf(param(0));
}

CORBA::ULong CORBA_TypeCode::member_count() const {
    switch (kind()) {
    case CORBA::tk_struct:
    case CORBA::tk_except:
        return (_count - 1) / 2;
    case CORBA::tk_union:
        return (_count - 2) / 3;
    case CORBA::tk_enum:
        return _count - 1;
    default:
        throw BadKind();
    }
}

const char* CORBA_TypeCode::member_name(CORBA::ULong i) const {
    const CORBA::ULong n = member_count();
    if (i >= n) throw Bounds();
    switch (_kind) {
    case CORBA::tk_union:
        return textOf(param(3 + 3 * i));
    case CORBA::tk_enum:
        return textOf(param(1 + i));
    default:
        return textOf(param(1 + 2 * i));
    }
}

CORBA_TypeCode* CORBA_TypeCode::member_type(CORBA::ULong i) const {
    need(kind() != CORBA::tk_enum);
    if (i >= member_count()) throw Bounds();
    const CORBA::ULong at = _kind == CORBA::tk_union ? 4 + 3 * i : 2 + 2 * i;
    return _duplicate(typeOf(param(at)));
}

CORBA_Any* CORBA_TypeCode::member_label(CORBA::ULong i) const {
    need(kind() == CORBA::tk_union);
    if (i >= member_count()) throw Bounds();
    return CORBA_Any::_duplicate(_params[2 + 3 * i]);
}

CORBA_TypeCode* CORBA_TypeCode::discriminator_type() const {
    need(kind() == CORBA::tk_union);
    return _duplicate(typeOf(param(1)));
}

CORBA::Long CORBA_TypeCode::default_index() const {
    need(kind() == CORBA::tk_union);
    return _defaultIndex;
}

CORBA::ULong CORBA_TypeCode::length() const {
    switch (kind()) {
    case CORBA::tk_string:
        return ulongOf(param(0));
    case CORBA::tk_sequence:
        if (is_recursive_sequence()) return ulongOf(param(0));
        return ulongOf(param(1));
    case CORBA::tk_array:
        return ulongOf(param(1));
    default:
        throw BadKind();
    }
}

CORBA_TypeCode* CORBA_TypeCode::content_type() const {
    switch (kind()) {
    case CORBA::tk_sequence:
        need(!is_recursive_sequence());
        return _duplicate(typeOf(param(0)));
    case CORBA::tk_array:
        return _duplicate(typeOf(param(0)));
    case CORBA::tk_alias:
        return _duplicate(typeOf(param(1)));
    default:
        throw BadKind();
    }
}

CORBA_Any* CORBA_TypeCode::parameter(CORBA::Long i) const {
    if (i < 0) throw Bounds();
    return CORBA_Any::_duplicate(const_cast<CORBA_Any*>(&param(static_cast<CORBA::ULong>(i))));
}

CORBA::Boolean CORBA_TypeCode::equal(CORBA_TypeCode* tc) const {
    return compare(const_cast<CORBA_TypeCode*>(this), tc) == 0;
}

CORBA::ULong CORBA_TypeCode::_hash(CORBA::ULong maximum) const {
    CORBA::ULong h = hash(const_cast<CORBA_TypeCode*>(this));
    return maximum ? h % maximum : h;
}

CORBA::ULong hash(CORBA_TypeCode* tc) {
    if (!tc) return 0;
    CORBA::ULong h = static_cast<CORBA::ULong>(tc->kind()) ^ tc->param_count();
    for (CORBA::ULong i = 0; i < tc->param_count(); ++i) h ^= hash(tc->param(i));
    return h;
}

long compare(CORBA_TypeCode* a, CORBA_TypeCode* b) {
    if (a == b) return 0;
    if (!a) return -1;
    if (!b) return 1;
    CORBA_TypeCode_var x = ZEBunaliased(a);
    CORBA_TypeCode_var y = ZEBunaliased(b);
    if (x.operator->() == y.operator->()) return 0;
    long d = static_cast<long>(x->kind()) - static_cast<long>(y->kind());
    if (d != 0) return d;
    d = static_cast<long>(x->param_count()) - static_cast<long>(y->param_count());
    if (d != 0) return d;
    if (x->kind() == CORBA::tk_objref || x->kind() == CORBA::tk_except) return 0;
    for (CORBA::ULong i = 0; i < x->param_count(); ++i) {
        d = compare(x->param(i), y->param(i));
        if (d != 0) return d;
    }
    return 0;
}

// ---------------------------------------------------------------- stream form

void CORBA_TypeCode::_write(TBostream& strm) const {
    ready();
    strm << static_cast<unsigned long>(_kind);
    _writeParams(strm);
}

void CORBA_TypeCode::_writeParams(TBostream& strm) const {
    ready();
    auto text = [&](CORBA::ULong i) { strm << textOf(*_params[i]); };
    auto type = [&](CORBA::ULong i) { strm << typeOf(*_params[i]); };
    auto count = [&](CORBA::ULong n) { strm << static_cast<unsigned long>(n); };
    switch (_kind) {
    case CORBA::tk_objref:
        strm << _id;
        text(0);
        break;
    case CORBA::tk_struct:
    case CORBA::tk_except:
        strm << _id;
        text(0);
        count(member_count());
        for (CORBA::ULong i = 1; i < _count; i += 2) {
            text(i);
            type(i + 1);
        }
        break;
    case CORBA::tk_union:
        strm << _id;
        text(0);
        type(1);
        strm << static_cast<long>(_defaultIndex);
        count(member_count());
        for (CORBA::ULong i = 2; i < _count; i += 3) {
            _params[i]->write_value(strm);
            text(i + 1);
            type(i + 2);
        }
        break;
    case CORBA::tk_enum:
        strm << _id;
        text(0);
        count(member_count());
        for (CORBA::ULong i = 1; i < _count; ++i) text(i);
        break;
    case CORBA::tk_string:
        count(ulongOf(*_params[0]));
        break;
    case CORBA::tk_sequence:
    case CORBA::tk_array:
        // The stream form has no place for a recursion offset.
        if (is_recursive_sequence()) throw CORBA_BAD_TYPECODE(0, CORBA::COMPLETED_NO);
        type(0);
        count(ulongOf(*_params[1]));
        break;
    case CORBA::tk_alias:
        strm << _id;
        text(0);
        type(1);
        break;
    default:
        break;
    }
}

namespace {

char* readText(TBistream& strm) {
    char* s = nullptr;
    strm >> s;
    ZEBcheckStream(strm);
    return s;
}

CORBA_Any* readTextParam(TBistream& strm) {
    CORBA_String_var s(readText(strm));
    CORBA_Any* a = new CORBA_Any(CORBA::_tc_string, s.inout(), 1);
    s._retn();  // the Any holds it now
    return a;
}

CORBA_Any* readTypeParam(TBistream& strm) {
    CORBA_TypeCode* tc = nullptr;
    strm >> tc;
    if (!tc) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    return adoptType(tc);
}

CORBA::ULong readCount(TBistream& strm) {
    unsigned long n = 0;
    strm >> n;
    ZEBcheckStream(strm);
    return ZEBcheckCount(n);
}

}  // namespace

// The members come one by one and the list grows as they arrive: a count
// that the data do not back ends in CORBA_MARSHAL from the stream (or from
// the guard, on a stream that throws nothing) before it costs memory.
void CORBA_TypeCode::readMembers(TBistream& strm, CORBA::ULong perMember, bool isUnion) {
    const CORBA::ULong n = readCount(strm);
    ParamList list;
    list.items.reserve(_count + (n < 16 ? n : 16) * perMember);
    for (CORBA::ULong i = 0; i < _count; ++i) list.items.push_back(_params[i]);
    delete[] _params;
    _params = nullptr;
    _count = 0;
    CORBA_TypeCode* disc = isUnion ? typeOf(*list.items[1]) : nullptr;
    ZEBReadGuard guard(strm);
    for (CORBA::ULong m = 0; m < n; ++m) {
        if (isUnion) {
            CORBA_Any* label = new CORBA_Any;
            list.items.push_back(label);
            if (static_cast<CORBA::Long>(m) == _defaultIndex) {
                unsigned char octet = 0;
                strm >> octet;
                *label <<= CORBA_Any::from_octet(octet);
            } else {
                label->read_value(strm, disc);
            }
        }
        list.items.push_back(readTextParam(strm));
        if (perMember > 1) list.items.push_back(readTypeParam(strm));
        guard.check();
    }
    _params = new CORBA_Any*[list.items.size()];
    for (CORBA_Any* a : list.items) _params[_count++] = a;
    list.items.clear();
}

void CORBA_TypeCode::read(TBistream& strm, CORBA::ULong kind) {
    ZEBNestGuard nest;
    _kind = static_cast<CORBA::TCKind>(kind);
    auto first = [&](CORBA::ULong n) {
        _params = new CORBA_Any*[n]();
        _count = 0;
    };
    auto add = [&](CORBA_Any* a) { _params[_count++] = a; };
    switch (kind) {
    case CORBA::tk_objref:
        _id = readText(strm);
        first(1);
        add(readTextParam(strm));
        break;
    case CORBA::tk_struct:
    case CORBA::tk_except:
        _id = readText(strm);
        first(1);
        add(readTextParam(strm));
        readMembers(strm, 2, false);
        break;
    case CORBA::tk_union: {
        _id = readText(strm);
        first(2);
        add(readTextParam(strm));
        add(readTypeParam(strm));
        long def = -1;
        strm >> def;
        _defaultIndex = static_cast<CORBA::Long>(def);
        readMembers(strm, 3, true);
        break;
    }
    case CORBA::tk_enum:
        _id = readText(strm);
        first(1);
        add(readTextParam(strm));
        readMembers(strm, 1, false);
        break;
    case CORBA::tk_string:
        first(1);
        add(ulongParam(readCount(strm)));
        break;
    case CORBA::tk_sequence:
    case CORBA::tk_array:
        first(2);
        add(readTypeParam(strm));
        add(ulongParam(readCount(strm)));
        break;
    case CORBA::tk_alias:
        _id = readText(strm);
        first(2);
        add(readTextParam(strm));
        add(readTypeParam(strm));
        break;
    default:
        break;
    }
}

CORBA_TypeCode::CORBA_TypeCode(TBistream& strm, CORBA::ULong kind) : CORBA_TypeCode() {
    try {
        read(strm, kind);
    } catch (...) {
        clear();
        throw;
    }
}

CORBA_TypeCode* CORBA_TypeCode::_read(TBistream& strm, CORBA::ULong kind) {
    // The simple kinds have no parameters: the statics serve for them all.
    static CORBA_TypeCode* const simple[] = {
        CORBA::_tc_null,  CORBA::_tc_void,   CORBA::_tc_short,   CORBA::_tc_long,
        CORBA::_tc_ushort, CORBA::_tc_ulong, CORBA::_tc_float,   CORBA::_tc_double,
        CORBA::_tc_boolean, CORBA::_tc_char, CORBA::_tc_octet,   CORBA::_tc_any,
        CORBA::_tc_TypeCode, CORBA::_tc_Principal};
    if (kind < sizeof simple / sizeof simple[0]) return simple[kind];
    return new CORBA_TypeCode(strm, kind);
}

TBostream& operator<<(TBostream& strm, CORBA_TypeCode* tc) {
    if (!tc) tc = CORBA::_tc_null;
    if (strm.isKindOf(CORBA_MarshalStream::_class_name))
        static_cast<CORBA_MarshalStream&>(strm).putTypeCode(tc);
    else
        tc->_write(strm);
    return strm;
}

TBistream& operator>>(TBistream& strm, CORBA_TypeCode*& tc) {
    if (strm.isKindOf(CORBA_MarshalStream::_class_name))
        static_cast<CORBA_MarshalStream&>(strm).getTypeCode(tc);
    else
        tc = CORBA_TypeCode::_read(strm, readKind(strm));
    return strm;
}

// ------------------------------------------------------------------- printing

std::ostream& operator<<(std::ostream& os, CORBA_TypeCode* tc) {
    if (!ZEBisConsole(os)) {
        TBostream strm(os);
        strm << tc;
        return os;
    }
    if (!tc) return os << "(nil)" << std::endl;
    // Kinds without an id print an empty one.
    const char* id = nullptr;
    try {
        id = tc->id();
    } catch (const CORBA_TypeCode::BadKind&) {
    }
    os << "Repository id: " << (id ? id : "") << std::endl;
    os << "CORBA::TCKind:" << CORBA_TypeCode::kindName(tc->kind()) << std::endl;
    for (CORBA::ULong i = 0; i < tc->param_count(); ++i)
        os << "Parameter Number: " << i << std::endl << tc->param(i) << std::endl;
    return os;
}
