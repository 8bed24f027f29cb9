// The kinds of IDL types, numbered as on the wire.
#ifndef KELVANOR_TCKIND_H
#define KELVANOR_TCKIND_H

#include <kelvanor/corba.h>

namespace CORBA {

enum TCKind : ULong {
    tk_null = 0,
    tk_void = 1,
    tk_short = 2,
    tk_long = 3,
    tk_ushort = 4,
    tk_ulong = 5,
    tk_float = 6,
    tk_double = 7,
    tk_boolean = 8,
    tk_char = 9,
    tk_octet = 10,
    tk_any = 11,
    tk_TypeCode = 12,
    tk_Principal = 13,
    tk_objref = 14,
    tk_struct = 15,
    tk_union = 16,
    tk_enum = 17,
    tk_string = 18,
    tk_sequence = 19,
    tk_array = 20,
    tk_alias = 21,
    tk_except = 22
};

}  // namespace CORBA

#endif
