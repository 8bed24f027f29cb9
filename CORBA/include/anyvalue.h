// The helpers behind CORBA_Any: the walk that copies one value of a
// TypeCode item by item from one stream to another (from a peer into a CDR
// block, from a block onto a peer, or onto a text stream for printing), and
// the table of known records, the structs that an Any holds natively.
#ifndef KELVANOR_ANYVALUE_H
#define KELVANOR_ANYVALUE_H

#include <iosfwd>

#include <kelvanor/corba.h>
#include <kelvanor/tckind.h>

class CORBA_MarshalOutBuffer;
class CORBA_TypeCode;
class TBistream;
class TBostream;

// The C++ types of a simple kind: Held is its value in an Any and the
// element of a bulk array, Wire what the stream operators take (C++ long
// and unsigned long carry the 4 bytes of a CDR long).
template <class H, class W>
struct ZEBSimple {
    typedef H Held;
    typedef W Wire;
};

// Calls f(ZEBSimple<...>()) for the simple kinds, tk_short to tk_octet and
// tk_enum, and gives true; false for any other kind.
template <class F>
bool ZEBwithSimple(CORBA::TCKind kind, F&& f) {
    switch (kind) {
    case CORBA::tk_short:
        f(ZEBSimple<CORBA::Short, short>());
        return true;
    case CORBA::tk_ushort:
        f(ZEBSimple<CORBA::UShort, unsigned short>());
        return true;
    case CORBA::tk_long:
        f(ZEBSimple<CORBA::Long, long>());
        return true;
    case CORBA::tk_ulong:
    case CORBA::tk_enum:
        f(ZEBSimple<CORBA::ULong, unsigned long>());
        return true;
    case CORBA::tk_float:
        f(ZEBSimple<CORBA::Float, float>());
        return true;
    case CORBA::tk_double:
        f(ZEBSimple<CORBA::Double, double>());
        return true;
    case CORBA::tk_char:
        f(ZEBSimple<CORBA::Char, char>());
        return true;
    case CORBA::tk_boolean:
    case CORBA::tk_octet:
        f(ZEBSimple<CORBA::Octet, unsigned char>());
        return true;
    default:
        return false;
    }
}

// A struct for which a static TypeCode and a native class exist. The
// functions work on a pointer to that class.
struct ZEBKnownRecord {
    CORBA_TypeCode* const* type;
    void* (*read)(TBistream& strm);  // a new record, read
    void (*write)(TBostream& strm, const void* rec);
    void (*release)(void* rec);
    void* (*copy)(const void* rec);  // a new deep copy
    long (*compare)(const void* a, const void* b);
    void (*print)(std::ostream& os, const void* rec);
};

// The record whose TypeCode equals tc, or null.
const ZEBKnownRecord* ZEBknownRecord(CORBA_TypeCode* tc);

// A new TypeCode reference: tc with its aliases stepped through.
CORBA_TypeCode* ZEBunaliased(CORBA_TypeCode* tc);

// Copies one value of type tc from in to out, each item read and written
// afresh, so the byte orders and alignments of the two may differ. With
// block (the out stream itself, when it gathers a value from a peer) the
// walk is held to a number of steps in proportion to the bytes it has
// gathered, so that a TypeCode of empty members cannot make it loop for
// ever: beyond, CORBA_MARSHAL. Nesting deeper than 64 is CORBA_MARSHAL; a
// union whose discriminator is not of an integer, char, boolean or enum kind
// CORBA_INTERNAL; short data what the in stream throws.
void ZEBcopyValue(TBistream& in, TBostream& out, CORBA_TypeCode* tc,
                  const CORBA_MarshalOutBuffer* block);

#endif
