// The helpers behind CORBA_Any: the walk that copies one value of a
// TypeCode item by item from one stream to another (from a peer into a CDR
// block, from a block onto a peer, or onto a text stream for printing), and
// the table of known records, the structs that an Any holds natively.
#ifndef KELVANOR_ANYVALUE_H
#define KELVANOR_ANYVALUE_H

#include <iosfwd>

#include "corba.h"

class CORBA_MarshalOutBuffer;
class CORBA_TypeCode;
class TBistream;
class TBostream;

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
