// CORBA_Any: a value together with its TypeCode. A simple value is a
// separate allocation of its native type; tk_any, tk_TypeCode, tk_objref,
// tk_Principal and strings are held by pointer; a known record (a struct
// the broker has a native class for) as that class; every other
// constructed value as a block of CDR in host order, alignment origin at its
// start, walked with the TypeCode whenever it is written, printed or compared.
#ifndef KELVANOR_ANY_H
#define KELVANOR_ANY_H

#include <iosfwd>

#include <kelvanor/corba.h>
#include <kelvanor/tckind.h>
#include <kelvanor/typecode.h>

class CORBA_MarshalOutBuffer;
class CORBA_Object;
class TBistream;
class TBostream;

class CORBA_Any {
public:
    // The insertion and extraction helpers of the types that C++ cannot
    // tell apart from one another.
    struct from_boolean {
        explicit from_boolean(CORBA::Boolean v) : val(v) {}
        CORBA::Boolean val;
    };
    struct from_octet {
        explicit from_octet(CORBA::Octet v) : val(v) {}
        CORBA::Octet val;
    };
    struct from_char {
        explicit from_char(CORBA::Char v) : val(v) {}
        CORBA::Char val;
    };
    struct to_boolean {
        explicit to_boolean(CORBA::Boolean& v) : ref(v) {}
        CORBA::Boolean& ref;
    };
    struct to_octet {
        explicit to_octet(CORBA::Octet& v) : ref(v) {}
        CORBA::Octet& ref;
    };
    struct to_char {
        explicit to_char(CORBA::Char& v) : ref(v) {}
        CORBA::Char& ref;
    };

    // Empty: CORBA::_tc_null, no value, releases what it will hold.
    CORBA_Any();
    // A deep copy that owns its value, whether or not other owns its own.
    CORBA_Any(const CORBA_Any& other);
    // Takes tc (not duplicated: the Any releases it) and value as they are:
    // the held form of the kind (see the top of the file). For a CDR kind the
    // size comes from one walk of the block.
    CORBA_Any(CORBA_TypeCode* tc, void* value, CORBA::Boolean release);
    // The bytes of buf as the block of tc (taken, as above); a copy if buf owns
    // its block, else the Any takes the block over. A kind not held as CDR
    // (simple, enum, string, ...) is read out of the block into its held
    // form; a block taken over is freed then.
    CORBA_Any(CORBA_TypeCode* tc, const CORBA_MarshalOutBuffer& buf);
    CORBA_Any& operator=(const CORBA_Any& other);
    ~CORBA_Any();

    // As the constructors, after the present value and type are released.
    void replace(CORBA_TypeCode* tc, void* value, CORBA::Boolean release);
    void replace(CORBA_TypeCode* tc, const CORBA_MarshalOutBuffer& buf);

    // Not counted for the caller; never null.
    CORBA_TypeCode* type() const { return _type; }
    CORBA::TCKind kind() const { return _type->kind(); }
    // For tk_string the address of the string pointer (a char**), so that
    // callers always get a pointer to the value; for other kinds the value.
    void* value() const;
    CORBA::Long size() const { return _size; }  // bytes of the value
    CORBA::Boolean release_flag() const { return _release; }

    // The value without its TypeCode / into this Any with type tc (duplicated).
    void write_value(TBostream& strm) const;
    void read_value(TBistream& strm, CORBA_TypeCode* tc);

    static CORBA_Any* _duplicate(CORBA_Any* a);  // one more reference; null stays null
    void _ref() { ++_refcount; }
    // Drops one reference and returns what is left; the caller deletes at 0.
    CORBA::Long _deref() { return --_refcount; }

    // Insertion: the old value and type go, the new value is this Any's.
    CORBA_Any& operator<<=(CORBA::Short v);
    CORBA_Any& operator<<=(CORBA::UShort v);
    CORBA_Any& operator<<=(CORBA::Long v);
    CORBA_Any& operator<<=(CORBA::ULong v);
    CORBA_Any& operator<<=(CORBA::Float v);
    CORBA_Any& operator<<=(CORBA::Double v);
    CORBA_Any& operator<<=(from_boolean v);
    CORBA_Any& operator<<=(from_octet v);
    CORBA_Any& operator<<=(from_char v);
    // A copy; a null s gives a tk_string with no value and size 0.
    CORBA_Any& operator<<=(const char* s);
    CORBA_Any& operator<<=(const CORBA_Any& a);  // a tk_any holding a copy
    CORBA_Any& operator<<=(CORBA_TypeCode* tc);  // a tk_TypeCode, duplicated

    // Extraction: false (target untouched) unless the kind is the one
    // wanted; an alias is not stepped through.
    CORBA::Boolean operator>>=(CORBA::Short& v) const;
    CORBA::Boolean operator>>=(CORBA::UShort& v) const;
    CORBA::Boolean operator>>=(CORBA::Long& v) const;
    CORBA::Boolean operator>>=(CORBA::ULong& v) const;
    CORBA::Boolean operator>>=(CORBA::Float& v) const;
    CORBA::Boolean operator>>=(CORBA::Double& v) const;
    CORBA::Boolean operator>>=(to_boolean v) const;
    CORBA::Boolean operator>>=(to_octet v) const;
    CORBA::Boolean operator>>=(to_char v) const;
    // A copy from CORBA::strdup (null for a null string) the caller frees.
    CORBA::Boolean operator>>=(char*& s) const;
    CORBA::Boolean operator>>=(CORBA_Any& a) const;         // a copy of the inner Any
    CORBA::Boolean operator>>=(CORBA_TypeCode*& tc) const;  // duplicated

private:
    template <class T>
    CORBA_Any& insert(CORBA_TypeCode* tc, T v);
    template <class T>
    CORBA::Boolean extract(CORBA::TCKind kind, T& v) const;
    // Frees the value if this Any owns it, and leaves it empty; the type stays.
    void releaseValue();
    // The new type (adopted) and value, owned.
    void set(CORBA_TypeCode* tc, void* value, CORBA::Long size);

    CORBA_TypeCode* _type;  // counted; never null: CORBA::_tc_null when empty
    void* _value;           // the held form of _type's kind; see the top of the file
    CORBA::Long _size;      // bytes of the value; the block's length for CDR kinds
    CORBA::Boolean _release;  // the value belongs to this Any
    CORBA::Long _refcount;    // counts the Any, not its value; starts at 1
};

// Object references: a tk_objref of the object's repository id and
// interface name, holding a duplicate. Null is CORBA_BAD_PARAM.
void operator<<=(CORBA_Any& a, CORBA_Object* obj);
// A duplicate for a tk_objref; false otherwise.
CORBA::Boolean operator>>=(const CORBA_Any& a, CORBA_Object*& obj);

// The TypeCode, then the value. Null is CORBA_BAD_PARAM.
TBostream& operator<<(TBostream& strm, const CORBA_Any& a);
TBostream& operator<<(TBostream& strm, const CORBA_Any* a);
// Replaces a's type and value by those read; a owns the value.
TBistream& operator>>(TBistream& strm, CORBA_Any& a);
// On cout, cerr and clog the value as text; elsewhere the stream form.
std::ostream& operator<<(std::ostream& os, const CORBA_Any& a);

// 0 for equal: the TypeCodes, then the values by kind; CDR blocks by size
// and bytes, which works as equal values have equal blocks.
long compare(const CORBA_Any& a, const CORBA_Any& b);
// 0 for a size below 1; else the size XOR each byte of the value (values
// held by pointer have size 0).
CORBA::ULong hash(const CORBA_Any& a);

namespace CORBA {
void release(CORBA_Any* a);  // one reference less, deleted at 0; null is ignored
inline Boolean is_nil(const CORBA_Any* a) { return a == nullptr; }
}  // namespace CORBA

// Owns one reference.
class CORBA_Any_var {
public:
    CORBA_Any_var() : _ptr(nullptr) {}
    CORBA_Any_var(CORBA_Any* p) : _ptr(p) {}
    CORBA_Any_var(const CORBA_Any_var& o) : _ptr(CORBA_Any::_duplicate(o._ptr)) {}
    ~CORBA_Any_var() { CORBA::release(_ptr); }
    CORBA_Any_var& operator=(CORBA_Any* p) {
        CORBA::release(_ptr);
        _ptr = p;
        return *this;
    }
    CORBA_Any_var& operator=(const CORBA_Any_var& o) {
        if (this != &o) *this = CORBA_Any::_duplicate(o._ptr);
        return *this;
    }
    CORBA_Any* operator->() const { return _ptr; }
    operator CORBA_Any*() const { return _ptr; }
    CORBA_Any* _retn() {
        CORBA_Any* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    CORBA_Any* _ptr;
};

#endif
