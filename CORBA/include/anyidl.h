// Any insertion and extraction for the types kelvanor-idl generates. A value
// goes through its own stream operators into a CDR block, which the Any
// takes with the type's static TypeCode, and comes out the same way; so one
// set of templates serves structs, unions, sequences, enums and arrays.
#ifndef KELVANOR_ANYIDL_H
#define KELVANOR_ANYIDL_H

#include <memory>

#include <kelvanor/any.h>
#include <kelvanor/mstrm.h>
#include <kelvanor/typecode.h>

// a takes tc (duplicated) and the bytes that put(TBostream&) writes.
template <class Put>
void ZEBanyInsert(CORBA_Any& a, CORBA_TypeCode* tc, Put put) {
    CORBA_MarshalOutBuffer buf;
    buf.owns_buffer(1);  // freed if put throws
    put(buf);
    buf.owns_buffer(0);  // from here on the Any's
    a.replace(CORBA_TypeCode::_duplicate(tc), buf);
}

// False, with nothing read, unless a's type equals tc; otherwise
// get(TBistream&) reads the value from a's value written out as CDR.
template <class Get>
CORBA::Boolean ZEBanyExtract(const CORBA_Any& a, CORBA_TypeCode* tc, Get get) {
    if (!a.type()->equal(tc)) return 0;
    CORBA_MarshalOutBuffer buf;
    buf.owns_buffer(1);
    a.write_value(buf);
    CORBA_MarshalInBuffer in(buf.buffer(), buf.length());
    get(in);
    return 1;
}

// A copy of v.
template <class T>
void ZEBanyInsertValue(CORBA_Any& a, CORBA_TypeCode* tc, const T& v) {
    ZEBanyInsert(a, tc, [&v](TBostream& strm) { strm << v; });
}

// A value type such as an enum, into v; v is untouched on false.
template <class T>
CORBA::Boolean ZEBanyExtractValue(const CORBA_Any& a, CORBA_TypeCode* tc, T& v) {
    T r{};
    if (!ZEBanyExtract(a, tc, [&r](TBistream& strm) { strm >> r; })) return 0;
    v = r;
    return 1;
}

// A new T that the caller deletes; v is untouched on false.
template <class T>
CORBA::Boolean ZEBanyExtractNew(const CORBA_Any& a, CORBA_TypeCode* tc, T*& v) {
    std::unique_ptr<T> r(new T);
    if (!ZEBanyExtract(a, tc, [&r](TBistream& strm) { strm >> *r; })) return 0;
    v = r.release();
    return 1;
}

// An object reference of interface T, narrowed: false for another kind,
// and for an object that is not a T.
template <class T>
CORBA::Boolean ZEBanyExtractObject(const CORBA_Any& a, T*& v) {
    CORBA_Object* obj = nullptr;
    if (!(a >>= obj)) return 0;
    T* r = T::_narrow(obj);
    CORBA::release(obj);
    if (!r) return 0;
    v = r;
    return 1;
}

#endif
