// CORBA_Any: a value together with the description of its type.
//
// This is the first stage of the class: it holds strings only, and its type
// is a bare kind. The layout and the operations already have their final
// shape, so that the full class extends this one:
// - _kind stands where the TypeCode pointer goes. Once TypeCodes exist, the
//   kind comes from type()->kind() and an empty Any holds the null TypeCode.
// - Missing until then: the other kinds (simple values, nested Anys,
//   TypeCodes, objects, principals, records and CDR blocks of constructed
//   values), the constructors from a TypeCode and a value or a buffer,
//   replace(), the stream forms, printing, compare and hash.
#ifndef KELVANOR_ANY_H
#define KELVANOR_ANY_H

#include <kelvanor/corba.h>
#include <kelvanor/tckind.h>

class CORBA_Any {
public:
    // Empty: kind tk_null, no value, releases what it will hold.
    CORBA_Any();
    // A deep copy that owns its value, whether or not other owns its own.
    CORBA_Any(const CORBA_Any& other);
    CORBA_Any& operator=(const CORBA_Any& other);
    ~CORBA_Any();

    CORBA::TCKind kind() const { return _kind; }
    // For tk_string the address of the string pointer (a char**), so that
    // callers always get a pointer to the value; for other kinds the value.
    void* value() const;
    CORBA::Long size() const { return _size; }  // bytes of the value

    static CORBA_Any* _duplicate(CORBA_Any* a);  // one more reference; null stays null
    void _ref() { ++_refcount; }
    // Drops one reference and returns what is left; the caller deletes at 0.
    CORBA::Long _deref() { return --_refcount; }

    // Insertion and extraction of strings, see below.
    friend CORBA_Any& operator<<=(CORBA_Any& a, const char* s);
    friend CORBA::Boolean operator>>=(const CORBA_Any& a, char*& s);

private:
    // Frees the value if this Any owns it, and leaves it empty.
    void releaseValue();

    CORBA::TCKind _kind;  // the TypeCode's place; see the top of the file
    void* _value;         // tk_string: a char* from CORBA::string_alloc, or null
    CORBA::Long _size;    // tk_string: strlen + 1, 0 for a null string
    CORBA::Boolean _release;  // the value belongs to this Any
    CORBA::Long _refcount;    // counts the Any, not its value; starts at 1
};

// Stores a copy of s as a tk_string. A null s gives a tk_string with no
// value and size 0.
CORBA_Any& operator<<=(CORBA_Any& a, const char* s);
// If a holds a tk_string: s gets a copy from CORBA::strdup (the caller frees
// it; null for a null string) and the result is true. Otherwise false, and s
// is left alone.
CORBA::Boolean operator>>=(const CORBA_Any& a, char*& s);

namespace CORBA {
void release(CORBA_Any* a);  // one reference less, deleted at 0; null is ignored
inline Boolean is_nil(const CORBA_Any* a) { return a == nullptr; }
}  // namespace CORBA

#endif
