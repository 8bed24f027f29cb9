// Stringified object references: "IOR:" and two lowercase hexadecimal digits
// for each byte of an encapsulation, which is a byte-order octet followed by
// an IOP::IOR. The ORB object and the iordump tool build on these two.
#ifndef KELVANOR_IORSTR_H
#define KELVANOR_IORSTR_H

namespace IOP {
struct IOR;
}

// The text for ior, from CORBA::string_alloc; the caller frees it with
// CORBA::string_free.
char* iorToString(const IOP::IOR& ior);

// Parses a stringified reference in either byte order. The caller owns the
// result. Null for text that is no reference: a missing "IOR:" prefix (the
// test is case-sensitive), or a character that is not a hexadecimal digit.
// A trailing odd digit is ignored, since it makes no whole byte. Well-formed
// text whose bytes end early or lie about a length throws CORBA_MARSHAL.
IOP::IOR* stringToIOR(const char* text);

#endif
