// Named values and lists of them: the argument lists of dynamic requests,
// the values of contexts and the service parameters of the broker.
#ifndef KELVANOR_NVLIST_H
#define KELVANOR_NVLIST_H

#include <kelvanor/corba.h>
#include <kelvanor/except.h>

class CORBA_Any;

namespace CORBA {
typedef ULong Flags;
// Direction of an argument. Tests are bit tests with ARG_IN or ARG_OUT, so
// that ARG_INOUT meets both.
constexpr Flags ARG_IN = 1;
constexpr Flags ARG_OUT = 2;
constexpr Flags ARG_INOUT = 3;
constexpr Flags IN_COPY_VALUE = 4;
// Compared for equality, not as a bit.
constexpr Flags CTX_RESTRICT_SCOPE = 15;
}  // namespace CORBA

// A name, an Any and flags. Reference counted: a new named value has one
// reference, CORBA::release drops one and deletes at zero.
class CORBA_NamedValue {
public:
    // No name, an empty Any of its own, flags 0.
    CORBA_NamedValue();
    // name is copied (null stays null); value, if given, is copied into the
    // Any of this named value.
    CORBA_NamedValue(const char* name, const CORBA_Any* value, CORBA::Flags flags);
    // A deep copy, with a reference count of its own.
    CORBA_NamedValue(const CORBA_NamedValue& other);
    CORBA_NamedValue& operator=(const CORBA_NamedValue&) = delete;
    ~CORBA_NamedValue();

    const char* name() const { return _name; }
    // The Any of this named value, not counted for the caller; null only
    // after a list has taken the value away.
    CORBA_Any* value() const { return _value; }
    CORBA::Flags flags() const { return _flags; }

    static CORBA_NamedValue* _duplicate(CORBA_NamedValue* nv);  // null stays null
    void _ref() { ++_refcount; }
    // Drops one reference and returns what is left; the caller deletes at 0.
    CORBA::Long _deref() { return --_refcount; }

    // Replaces name, value and flags by those read.
    friend TBistream& operator>>(TBistream& strm, CORBA_NamedValue& nv);

private:
    friend class CORBA_NVList;

    char* _name;        // from CORBA::strdup, or null
    CORBA_Any* _value;  // counted through the Any's own reference count
    CORBA::Flags _flags;
    CORBA::Long _refcount;
};

// The name, the Any (TypeCode and value) and the flags as unsigned long.
TBostream& operator<<(TBostream& strm, const CORBA_NamedValue& nv);
TBistream& operator>>(TBistream& strm, CORBA_NamedValue& nv);
// On cout, cerr and clog "Name: " and "Value: " lines; elsewhere the stream form.
std::ostream& operator<<(std::ostream& os, const CORBA_NamedValue& nv);

// An ordered list of named values. The list holds one reference to each
// item; every operation that hands out an item adds one for the caller.
class CORBA_NVList {
public:
    // An index not below the count.
    class Bounds : public CORBA_UserException {
        CORBA_EXCEPTION_MEMBERS(Bounds)
    };

    // Room for `capacity` items before the first growth.
    explicit CORBA_NVList(CORBA::ULong capacity);
    CORBA_NVList(const CORBA_NVList&) = delete;
    CORBA_NVList& operator=(const CORBA_NVList&) = delete;
    ~CORBA_NVList();

    CORBA::ULong count() const { return _count; }
    CORBA::ULong capacity() const { return _capacity; }

    // Each appends a new item and returns it with a reference for the
    // caller: add without a name, add_item with a copy of name, add_value
    // with a copy of name and a copy of value.
    CORBA_NamedValue* add(CORBA::Flags flags);
    CORBA_NamedValue* add_item(const char* name, CORBA::Flags flags);
    CORBA_NamedValue* add_value(const char* name, const CORBA_Any& value, CORBA::Flags flags);

    // The item at i, with a reference for the caller. Throws Bounds for an
    // i not below the count.
    CORBA_NamedValue* item(CORBA::ULong i);
    // Releases the item at i and moves the later ones down. Throws Bounds
    // for an i not below the count.
    void remove(CORBA::ULong i);
    // Doubles the capacity; from 0 it becomes 2.
    void resize();
    // Lets go of the values of the out arguments: each loses two
    // references (the list's and one the caller was given), and the item
    // keeps none. A caller who still wants a value needs a reference of its
    // own; a value the first release freed is not touched again.
    void free_out_memory();

    // Reading replaces every item by those read; the capacity is then the
    // count. Short data is CORBA_MARSHAL and leaves the list as it was.
    friend TBistream& operator>>(TBistream& strm, CORBA_NVList& l);
    friend TBostream& operator<<(TBostream& strm, const CORBA_NVList& l);

    static CORBA_NVList* _duplicate(CORBA_NVList* l);  // null stays null
    void _ref() { ++_refcount; }
    CORBA::Long _deref() { return --_refcount; }

private:
    CORBA_NamedValue* append(CORBA_NamedValue* nv);

    CORBA_NamedValue** _items;  // _capacity slots; [0, _count) hold counted items
    CORBA::ULong _count;
    CORBA::ULong _capacity;
    CORBA::Long _refcount;
};

// The count as unsigned long, then each named value.
TBostream& operator<<(TBostream& strm, const CORBA_NVList& l);
TBistream& operator>>(TBistream& strm, CORBA_NVList& l);

namespace CORBA {
void release(CORBA_NamedValue* nv);  // one reference less; null is ignored
void release(CORBA_NVList* l);       // one reference less; null is ignored
inline Boolean is_nil(const CORBA_NamedValue* nv) { return nv == nullptr; }
inline Boolean is_nil(const CORBA_NVList* l) { return l == nullptr; }
}  // namespace CORBA

// Owns one reference to a named value.
class CORBA_NamedValue_var {
public:
    CORBA_NamedValue_var() : _ptr(nullptr) {}
    CORBA_NamedValue_var(CORBA_NamedValue* p) : _ptr(p) {}
    CORBA_NamedValue_var(const CORBA_NamedValue_var& other)
        : _ptr(CORBA_NamedValue::_duplicate(other._ptr)) {}
    ~CORBA_NamedValue_var() { CORBA::release(_ptr); }

    CORBA_NamedValue_var& operator=(CORBA_NamedValue* p);
    CORBA_NamedValue_var& operator=(const CORBA_NamedValue_var& other);

    CORBA_NamedValue* operator->() const { return _ptr; }
    operator CORBA_NamedValue*() const { return _ptr; }
    CORBA_NamedValue* ptr() const { return _ptr; }
    CORBA_NamedValue* _retn();

private:
    CORBA_NamedValue* _ptr;
};

#endif
