// CORBA_TypeCode: the run-time description of an IDL type, as a kind and a
// flat list of parameters, each an Any. Immutable once built and reference
// counted; the static TypeCodes of namespace CORBA are never freed and work
// from any unit's static initialisers, in any link order.
#ifndef KELVANOR_TYPECODE_H
#define KELVANOR_TYPECODE_H

#include <iosfwd>

#include <kelvanor/corba.h>
#include <kelvanor/except.h>
#include <kelvanor/tckind.h>

class CORBA_Any;
class CORBA_EnumMemberSeq;
class CORBA_StructMemberSeq;
class CORBA_TypeCode;
class CORBA_UnionMemberSeq;
class TBistream;
class TBostream;
union ZEBStaticTypeCode;

// One member of a struct, exception or union, for the constructors below.
// label is used by unions only: null (or an Any of type octet) marks the
// default member, which gets an octet 0 as its label.
struct ZEBTCMember {
    const char* name;
    CORBA_TypeCode* type;
    const CORBA_Any* label;
};

class CORBA_TypeCode {
public:
    // A wrong kind for an accessor / an index beyond the parameters.
    class BadKind : public CORBA_UserException {
        CORBA_EXCEPTION_MEMBERS(BadKind)
    };
    class Bounds : public CORBA_UserException {
        CORBA_EXCEPTION_MEMBERS(Bounds)
    };

    // Every constructor's last argument is the static flag: a static
    // TypeCode ignores _release and is never freed through it.

    // Kind left tk_null, no parameters.
    CORBA_TypeCode();
    // Reads the stream form (see _write). Short data throws CORBA_MARSHAL
    // from the stream; so do nesting deeper than 64 and counts that the
    // data do not back.
    explicit CORBA_TypeCode(TBistream& strm);
    // The same, after the kind, which the caller has read already.
    CORBA_TypeCode(TBistream& strm, CORBA::ULong kind);
    // As the constructor, but a simple kind gives its static TypeCode. The
    // caller releases the result.
    static CORBA_TypeCode* _read(TBistream& strm, CORBA::ULong kind);
    // Simple kinds only: a kind of tk_objref or above is CORBA_BAD_PARAM.
    CORBA_TypeCode(CORBA::TCKind kind, unsigned char isStatic);
    // tk_struct or tk_except (anything else is CORBA_BAD_PARAM). The member
    // types are duplicated.
    CORBA_TypeCode(CORBA::TCKind kind, const char* id, const char* name,
                   const ZEBTCMember* members, CORBA::ULong count, unsigned char isStatic);
    // tk_union; each member's label must be an Any of the discriminator's
    // type, but for the default member.
    CORBA_TypeCode(const char* id, const char* name, CORBA_TypeCode* discriminator,
                   const ZEBTCMember* members, CORBA::ULong count, unsigned char isStatic);
    // tk_enum.
    CORBA_TypeCode(const char* id, const char* name, const char* const* names,
                   CORBA::ULong count, unsigned char isStatic);
    // The same three from the Interface Repository's member records
    // (<kelvanor/ir.h>): a member's type_def is not looked at, a union
    // member labelled with an octet is the default.
    CORBA_TypeCode(CORBA::TCKind kind, const char* id, const char* name,
                   const CORBA_StructMemberSeq& members, unsigned char isStatic);
    CORBA_TypeCode(const char* id, const char* name, CORBA_TypeCode* discriminator,
                   const CORBA_UnionMemberSeq& members, unsigned char isStatic);
    CORBA_TypeCode(const char* id, const char* name, const CORBA_EnumMemberSeq& members,
                   unsigned char isStatic);
    // tk_alias.
    CORBA_TypeCode(const char* id, const char* name, CORBA_TypeCode* aliased,
                   unsigned char isStatic);
    // tk_objref.
    CORBA_TypeCode(const char* id, const char* name, unsigned char isStatic);
    // tk_string; a bound of 0 is unbounded.
    CORBA_TypeCode(CORBA::ULong bound, unsigned char isStatic);
    // tk_sequence or tk_array of element (else CORBA_BAD_PARAM).
    CORBA_TypeCode(CORBA::TCKind kind, CORBA::ULong bound, CORBA_TypeCode* element,
                   unsigned char isStatic);
    // A recursive sequence: its element is the enclosing TypeCode `offset`
    // levels up. It can be built, compared and printed, not written.
    CORBA_TypeCode(CORBA::ULong bound, CORBA::ULong offset, unsigned char isStatic);
    ~CORBA_TypeCode();

    // Accessors. A kind without the item throws BadKind, an index beyond
    // the members Bounds. Results marked "new" are the caller's to release.
    CORBA::TCKind kind() const {
        ready();
        return _kind;
    }
    const char* id() const;  // objref, struct, union, enum, alias, except
    const char* name() const;
    CORBA::ULong member_count() const;                // struct, union, enum, except
    const char* member_name(CORBA::ULong i) const;    // struct, union, enum, except
    CORBA_TypeCode* member_type(CORBA::ULong i) const;  // new; struct, union, except
    CORBA_Any* member_label(CORBA::ULong i) const;      // new; union
    CORBA_TypeCode* discriminator_type() const;         // new; union
    CORBA::Long default_index() const;                  // union; -1 without a default
    CORBA::ULong length() const;                        // string, sequence, array
    // New; sequence, array, alias. BadKind for a recursive sequence.
    CORBA_TypeCode* content_type() const;
    // New reference to parameter i, any kind.
    CORBA_Any* parameter(CORBA::Long i) const;
    CORBA::ULong param_count() const {
        ready();
        return _count;
    }
    CORBA::Boolean equal(CORBA_TypeCode* tc) const;
    CORBA::ULong _hash(CORBA::ULong maximum) const;
    CORBA::Boolean is_static() const { return _static; }
    // True for a sequence built with a recursion offset.
    CORBA::Boolean is_recursive_sequence() const;
    // The parameter in place (not counted), for the walkers of Any.
    const CORBA_Any& param(CORBA::ULong i) const;

    // The stream form: the kind as unsigned long, then the parameters of the
    // kind, member TypeCodes through operator<<(TBostream&, CORBA_TypeCode*)
    // so that a marshal stream may put an indirection in their place. A
    // recursive sequence throws CORBA_BAD_TYPECODE.
    void _write(TBostream& strm) const;
    // The same without the kind: what follows it, which is what the
    // standard form puts in the encapsulation of a complex kind.
    void _writeParams(TBostream& strm) const;

    // Null stays null; one more reference otherwise.
    static CORBA_TypeCode* _duplicate(CORBA_TypeCode* tc);
    // Nothing for null or a static TypeCode; deletes at the last reference.
    static void _release(CORBA_TypeCode* tc);
    static CORBA_TypeCode* _nil() { return nullptr; }
    CORBA::Long _ref_count() const { return _refcount; }

    // The kind as text, "tk_long"; "tk_?" beyond the table.
    static const char* kindName(CORBA::TCKind kind);

private:
    friend union ZEBStaticTypeCode;
    typedef CORBA_TypeCode* (*Builder)();
    struct StaticTag {};

    // For the statics: nothing but constants, so the object is ready before
    // any dynamic initialiser runs. A builder fills in the parameters at
    // first use.
    constexpr CORBA_TypeCode(StaticTag, CORBA::TCKind kind, Builder build)
        : _kind(kind), _params(nullptr), _count(0), _defaultIndex(-1), _static(1),
          _id(nullptr), _refcount(1), _builder(build) {}
    CORBA_TypeCode(const CORBA_TypeCode&) = delete;
    CORBA_TypeCode& operator=(const CORBA_TypeCode&) = delete;

    void ready() const {
        if (_builder) const_cast<CORBA_TypeCode*>(this)->build();
    }
    void build();
    void read(TBistream& strm, CORBA::ULong kind);
    void readMembers(TBistream& strm, CORBA::ULong perMember, bool isUnion);
    void initNamed(CORBA::TCKind kind, const char* id, const char* name, CORBA::ULong count);
    void setParam(CORBA::ULong i, CORBA_Any* a);
    void need(bool ok) const;  // BadKind unless ok
    bool named() const;
    void clear();

    CORBA::TCKind _kind;
    CORBA_Any** _params;  // [0, _count) owned Anys; null when there are none
    CORBA::ULong _count;
    CORBA::Long _defaultIndex;  // tk_union's default member, -1 if none and elsewhere
    CORBA::Boolean _static;
    char* _id;  // from CORBA::string_alloc, or null for kinds without one
    CORBA::Long _refcount;
    Builder _builder;  // statics only, until the first use; then null
};

// Storage of a static TypeCode: built from constants alone, and never
// destroyed, so that it outlives every other static object that may still
// hold it at exit.
union ZEBStaticTypeCode {
    constexpr explicit ZEBStaticTypeCode(CORBA::TCKind kind) : tc(CORBA_TypeCode::StaticTag(), kind, nullptr) {}
    // build returns a new TypeCode whose contents move into this one.
    constexpr ZEBStaticTypeCode(CORBA::TCKind kind, CORBA_TypeCode* (*build)())
        : tc(CORBA_TypeCode::StaticTag(), kind, build) {}
    ~ZEBStaticTypeCode() {}
    CORBA_TypeCode tc;
};

namespace CORBA {
typedef CORBA_TypeCode* TypeCode_ptr;

inline void release(CORBA_TypeCode* tc) { CORBA_TypeCode::_release(tc); }
inline Boolean is_nil(const CORBA_TypeCode* tc) { return tc == nullptr; }

extern CORBA_TypeCode* const _tc_null;
extern CORBA_TypeCode* const _tc_void;
extern CORBA_TypeCode* const _tc_short;
extern CORBA_TypeCode* const _tc_long;
extern CORBA_TypeCode* const _tc_ushort;
extern CORBA_TypeCode* const _tc_ulong;
extern CORBA_TypeCode* const _tc_float;
extern CORBA_TypeCode* const _tc_double;
extern CORBA_TypeCode* const _tc_boolean;
extern CORBA_TypeCode* const _tc_char;
extern CORBA_TypeCode* const _tc_octet;
extern CORBA_TypeCode* const _tc_any;
extern CORBA_TypeCode* const _tc_TypeCode;
extern CORBA_TypeCode* const _tc_Principal;
extern CORBA_TypeCode* const _tc_Object;
extern CORBA_TypeCode* const _tc_string;
// struct "IDL:omg.org/CORBA/NamedValue:1.0" {string name; any value;
// unsigned long flags}; an Any of it holds a CORBA_NamedValue.
extern CORBA_TypeCode* const _tc_NamedValue;
}  // namespace CORBA

// Links in the units whose static records a stream may name (DSinit) and,
// being in the unit of the basic TypeCodes, those too.
void _CORBA_init();

// 0 for null; else the kind XOR the parameter count XOR each parameter's hash.
CORBA::ULong hash(CORBA_TypeCode* tc);
// 0 for equal. Aliases equal what they name; two objrefs, or two
// exceptions, with as many parameters are equal whatever their names; the
// repository id takes no part.
long compare(CORBA_TypeCode* a, CORBA_TypeCode* b);

// Null goes as tk_null. A marshal stream uses putTypeCode / getTypeCode
// (indirections to repeats within one message), any other stream the
// stream form. The TypeCode read is the caller's.
TBostream& operator<<(TBostream& strm, CORBA_TypeCode* tc);
TBistream& operator>>(TBistream& strm, CORBA_TypeCode*& tc);
// On cout, cerr and clog text for people; elsewhere the stream form.
std::ostream& operator<<(std::ostream& os, CORBA_TypeCode* tc);

// Counts how deep the readers of TypeCodes and Any values have gone; deeper
// than kMaxNesting throws CORBA_MARSHAL. One process-wide count, as reads
// nest within each other through every stream.
class ZEBNestGuard {
public:
    static constexpr int kMaxNesting = 64;
    ZEBNestGuard();
    ~ZEBNestGuard() { --_depth; }
    ZEBNestGuard(const ZEBNestGuard&) = delete;
    ZEBNestGuard& operator=(const ZEBNestGuard&) = delete;

private:
    static int _depth;
};

// Owns one reference.
class CORBA_TypeCode_var {
public:
    CORBA_TypeCode_var() : _ptr(nullptr) {}
    CORBA_TypeCode_var(CORBA_TypeCode* p) : _ptr(p) {}
    CORBA_TypeCode_var(const CORBA_TypeCode_var& o) : _ptr(CORBA_TypeCode::_duplicate(o._ptr)) {}
    ~CORBA_TypeCode_var() { CORBA::release(_ptr); }
    CORBA_TypeCode_var& operator=(CORBA_TypeCode* p) {
        CORBA::release(_ptr);
        _ptr = p;
        return *this;
    }
    CORBA_TypeCode_var& operator=(const CORBA_TypeCode_var& o) {
        if (this != &o) *this = CORBA_TypeCode::_duplicate(o._ptr);
        return *this;
    }
    CORBA_TypeCode* operator->() const { return _ptr; }
    operator CORBA_TypeCode*() const { return _ptr; }
    CORBA_TypeCode* in() const { return _ptr; }
    CORBA_TypeCode*& inout() { return _ptr; }
    CORBA_TypeCode*& out() {
        *this = nullptr;
        return _ptr;
    }
    CORBA_TypeCode* _retn() {
        CORBA_TypeCode* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    CORBA_TypeCode* _ptr;
};

#endif
