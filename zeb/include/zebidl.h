// What the classes that kelvanor-idl generates share: the holders of
// references and of heap values (the _var classes of interfaces, structures
// and sequences), the stream forms of the string and reference holders, and
// the small helpers of the printing forms. Generated headers include this;
// hand-written code rarely needs it directly.
#ifndef KELVANOR_ZEBIDL_H
#define KELVANOR_ZEBIDL_H

#include <cstddef>
#include <ostream>
#include <type_traits>

#include <kelvanor/corba.h>
#include <kelvanor/except.h>
#include <kelvanor/object.h>
#include <kelvanor/tbiostrm.h>
#include <kelvanor/typecode.h>

// Owns one reference to an object of interface T (the X_var of every
// generated interface X). A T* is adopted; a copy of the holder duplicates.
template <class T>
class ZEBObjectVar {
public:
    ZEBObjectVar() : _ptr(nullptr) {}
    ZEBObjectVar(T* p) : _ptr(p) {}
    ZEBObjectVar(const ZEBObjectVar& other) : _ptr(T::_duplicate(other._ptr)) {}
    ~ZEBObjectVar() { CORBA::release(_ptr); }

    // Adopts p: one reference is released even when p is the pointer held,
    // since the caller hands over a reference of its own.
    ZEBObjectVar& operator=(T* p) {
        CORBA::release(_ptr);
        _ptr = p;
        return *this;
    }
    ZEBObjectVar& operator=(const ZEBObjectVar& other) {
        if (this != &other) *this = T::_duplicate(other._ptr);
        return *this;
    }

    T* operator->() const { return _ptr; }
    operator T*() const { return _ptr; }
    T* in() const { return _ptr; }
    T*& inout() { return _ptr; }
    // Releases the present reference and hands out the slot for a callee.
    T*& out() {
        *this = static_cast<T*>(nullptr);
        return _ptr;
    }
    // Gives up ownership: the caller releases the result.
    T* _retn() {
        T* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    T* _ptr;  // null or one counted reference
};

// Owns one heap value of a generated structure or sequence T (their X_var).
// A T* is adopted; a copy of the holder is a deep copy.
template <class T>
class ZEBVar {
public:
    ZEBVar() : _ptr(nullptr) {}
    ZEBVar(T* p) : _ptr(p) {}
    ZEBVar(const ZEBVar& other) : _ptr(other._ptr ? new T(*other._ptr) : nullptr) {}
    ~ZEBVar() { delete _ptr; }

    ZEBVar& operator=(T* p) {
        if (p != _ptr) {
            delete _ptr;
            _ptr = p;
        }
        return *this;
    }
    ZEBVar& operator=(const ZEBVar& other) {
        if (this != &other) *this = other._ptr ? new T(*other._ptr) : nullptr;
        return *this;
    }

    T* operator->() const { return _ptr; }
    T& operator*() const { return *_ptr; }
    // Elements of a held sequence, range-checked by the sequence.
    decltype(auto) operator[](CORBA::ULong i) { return (*_ptr)[i]; }
    decltype(auto) operator[](CORBA::ULong i) const {
        return static_cast<const T&>(*_ptr)[i];
    }
    T* ptr() const { return _ptr; }
    const T& in() const { return *_ptr; }
    T& inout() { return *_ptr; }
    // Frees the present value and hands out the slot for a callee.
    T*& out() {
        *this = static_cast<T*>(nullptr);
        return _ptr;
    }
    // Gives up ownership: the caller deletes the result.
    T* _retn() {
        T* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    T* _ptr;  // null or owned
};

// Owns one object of a hand-written class that stands for an IDL structure
// (#pragma kelvanor_class), freed with delete. Only generated stubs
// and skeletons hold their arguments in it; structure members use the
// class's own _var.
template <class T>
class ZEBClassVar {
public:
    ZEBClassVar() : _ptr(nullptr) {}
    explicit ZEBClassVar(T* p) : _ptr(p) {}
    ZEBClassVar(const ZEBClassVar&) = delete;
    ZEBClassVar& operator=(const ZEBClassVar&) = delete;
    ~ZEBClassVar() { delete _ptr; }

    ZEBClassVar& operator=(T* p) {
        if (p != _ptr) {
            delete _ptr;
            _ptr = p;
        }
        return *this;
    }
    T* in() const { return _ptr; }
    T*& inout() { return _ptr; }
    T*& out() {
        *this = static_cast<T*>(nullptr);
        return _ptr;
    }
    T* _retn() {
        T* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    T* _ptr;  // null or owned
};

// Strings cross the wire as CDR strings, which cannot be null: a null
// string goes out as "".
inline const char* ZEBwireString(const char* s) { return s ? s : ""; }
// A string argument or result as stubs and skeletons write it: as
// ZEBwireString, and a long one goes out from its owner's bytes, which stay
// put until the message is sent, instead of a copy
// (ZEBIIOPstream::putLentString).
struct ZEBLentString {
    const char* s;
};
inline ZEBLentString ZEBlentString(const char* s) { return {ZEBwireString(s)}; }
TBostream& operator<<(TBostream& strm, ZEBLentString v);
// An in-string argument as a skeleton reads it: kept in the request when
// the stream can leave its bytes in place until the reply is written
// (ZEBIIOPstream::borrowString), else a copy the holder frees. Valid for the
// time of the call, as an in argument is.
class ZEBInString {
public:
    ZEBInString() = default;
    ~ZEBInString() { CORBA::string_free(_owned); }
    ZEBInString(const ZEBInString&) = delete;
    ZEBInString& operator=(const ZEBInString&) = delete;
    const char* in() const { return _p; }
    friend TBistream& operator>>(TBistream& strm, ZEBInString& v);

private:
    const char* _p = nullptr;
    char* _owned = nullptr;
};
// What the printing forms show for a string.
inline const char* ZEBprintString(const char* s) { return s ? s : "(null)"; }

// The string holder's stream form: a null holder writes ""; reading frees
// the old string first, so the stream always allocates a fresh one.
inline TBostream& operator<<(TBostream& strm, const CORBA_String_var& v) {
    return strm << ZEBwireString(v.in());
}
inline TBistream& operator>>(TBistream& strm, CORBA_String_var& v) { return strm >> v.out(); }

// References go as IORs; the nil reference as the empty IOR.
inline TBostream& operator<<(TBostream& strm, const CORBA_Object_var& v) {
    return strm << v.in();
}
inline TBistream& operator>>(TBistream& strm, CORBA_Object_var& v) {
    CORBA_Object* obj = nullptr;
    strm >> obj;
    v = obj;
    return strm;
}

// TypeCode holders go as TypeCodes, null as tk_null; reading releases the
// old one.
inline TBostream& operator<<(TBostream& strm, const CORBA_TypeCode_var& v) {
    return strm << v.in();
}
inline TBistream& operator>>(TBistream& strm, CORBA_TypeCode_var& v) { return strm >> v.out(); }

template <class T>
TBostream& operator<<(TBostream& strm, const ZEBObjectVar<T>& v) {
    return strm << static_cast<CORBA_Object*>(v.in());
}
// Reads a reference and narrows it to T: a reference of another interface
// leaves the holder null.
template <class T>
TBistream& operator>>(TBistream& strm, ZEBObjectVar<T>& v) {
    CORBA_Object* obj = nullptr;
    strm >> obj;
    v = T::_narrow(obj);
    CORBA::release(obj);
    return strm;
}

// A null object cannot go on the wire: CORBA_BAD_PARAM before anything is
// written.
template <class T>
TBostream& operator<<(TBostream& strm, const ZEBClassVar<T>& v) {
    if (!v.in()) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    return strm << static_cast<const T*>(v.in());
}
template <class T>
TBistream& operator>>(TBistream& strm, ZEBClassVar<T>& v) {
    T* p = nullptr;
    strm >> p;
    v = p;
    return strm;
}

// IDL arrays are C++ arrays: A is E[n1][n2]..., A_slice the element type
// of its first dimension, and A_alloc / A_dup / A_free make and free arrays
// of n1 slices with new[] and delete[]. Their stream form is the elements in
// order, numbers of two bytes or more moved at once.
template <class T>
void ZEBputArray(TBostream& strm, const T& v) {
    strm << v;
}
template <class T, std::size_t N>
void ZEBputArray(TBostream& strm, const T (&a)[N]) {
    if constexpr (std::is_arithmetic<T>::value && sizeof(T) > 1) {
        strm.put(a, N);
    } else {
        for (const T& e : a) ZEBputArray(strm, e);
    }
}
template <class T>
void ZEBgetArray(TBistream& strm, T& v) {
    strm >> v;
}
template <class T, std::size_t N>
void ZEBgetArray(TBistream& strm, T (&a)[N]) {
    if constexpr (std::is_arithmetic<T>::value && sizeof(T) > 1) {
        strm.get(a, N);
    } else {
        for (T& e : a) ZEBgetArray(strm, e);
    }
}
template <class T>
void ZEBcopyArray(T& to, const T& from) {
    to = from;
}
template <class T, std::size_t N>
void ZEBcopyArray(T (&to)[N], const T (&from)[N]) {
    for (std::size_t i = 0; i < N; ++i) ZEBcopyArray(to[i], from[i]);
}

// The same over n slices, for arrays that are passed as slice pointers.
template <class S>
void ZEBputSlices(TBostream& strm, const S* s, CORBA::ULong n) {
    for (CORBA::ULong i = 0; i < n; ++i) ZEBputArray(strm, s[i]);
}
template <class S>
void ZEBgetSlices(TBistream& strm, S* s, CORBA::ULong n) {
    for (CORBA::ULong i = 0; i < n; ++i) ZEBgetArray(strm, s[i]);
}
template <class S>
void ZEBcopySlices(S* to, const S* from, CORBA::ULong n) {
    for (CORBA::ULong i = 0; i < n; ++i) ZEBcopyArray(to[i], from[i]);
}

// Owns an array made by A_alloc or A_dup (the A_var of an array A).
template <class S>
class ZEBArrayVar {
public:
    ZEBArrayVar() : _ptr(nullptr) {}
    explicit ZEBArrayVar(S* p) : _ptr(p) {}
    ZEBArrayVar(const ZEBArrayVar&) = delete;
    ZEBArrayVar& operator=(const ZEBArrayVar&) = delete;
    ~ZEBArrayVar() { delete[] _ptr; }

    ZEBArrayVar& operator=(S* p) {
        if (p != _ptr) {
            delete[] _ptr;
            _ptr = p;
        }
        return *this;
    }
    S& operator[](CORBA::ULong i) const { return _ptr[i]; }
    S* ptr() const { return _ptr; }
    S*& out() {
        *this = static_cast<S*>(nullptr);
        return _ptr;
    }
    S* _retn() {
        S* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    S* _ptr;  // null or from new[]
};

// The printing form of an array member: its elements separated by blanks.
template <class A>
struct ZEBArrayText {
    explicit ZEBArrayText(const A& a) : array(a) {}
    const A& array;
};
inline void ZEBprintArray(std::ostream& os, const CORBA_String_var& v) {
    os << ZEBprintString(v.in()) << ' ';
}
template <class T>
void ZEBprintArray(std::ostream& os, const T& v) {
    if constexpr (sizeof(T) == 1 && std::is_arithmetic<T>::value)
        os << static_cast<unsigned>(static_cast<unsigned char>(v)) << ' ';
    else
        os << v << ' ';
}
template <class T, std::size_t N>
void ZEBprintArray(std::ostream& os, const T (&a)[N]) {
    for (const T& e : a) ZEBprintArray(os, e);
}
template <class A>
std::ostream& operator<<(std::ostream& os, const ZEBArrayText<A>& t) {
    ZEBprintArray(os, t.array);
    return os;
}

#endif
