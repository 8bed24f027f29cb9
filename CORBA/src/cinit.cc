// _CORBA_init and the static TypeCodes of the basic types. Every static
// here is built from constants alone, before any dynamic initialiser runs,
// so other units may use them from their own static initialisers; those
// with parameters fill them in at first use.
#include "typecode.h"

#include "tbtinfo.h"

namespace {

CORBA_TypeCode* buildString() { return new CORBA_TypeCode(CORBA::ULong(0), 0); }
CORBA_TypeCode* buildObject() {
    return new CORBA_TypeCode("IDL:omg.org/CORBA/Object:1.0", "Object", 0);
}

ZEBStaticTypeCode _s_tc_null(CORBA::tk_null);
ZEBStaticTypeCode _s_tc_void(CORBA::tk_void);
ZEBStaticTypeCode _s_tc_short(CORBA::tk_short);
ZEBStaticTypeCode _s_tc_long(CORBA::tk_long);
ZEBStaticTypeCode _s_tc_ushort(CORBA::tk_ushort);
ZEBStaticTypeCode _s_tc_ulong(CORBA::tk_ulong);
ZEBStaticTypeCode _s_tc_float(CORBA::tk_float);
ZEBStaticTypeCode _s_tc_double(CORBA::tk_double);
ZEBStaticTypeCode _s_tc_boolean(CORBA::tk_boolean);
ZEBStaticTypeCode _s_tc_char(CORBA::tk_char);
ZEBStaticTypeCode _s_tc_octet(CORBA::tk_octet);
ZEBStaticTypeCode _s_tc_any(CORBA::tk_any);
ZEBStaticTypeCode _s_tc_TypeCode(CORBA::tk_TypeCode);
ZEBStaticTypeCode _s_tc_Principal(CORBA::tk_Principal);
ZEBStaticTypeCode _s_tc_Object(CORBA::tk_objref, &buildObject);
ZEBStaticTypeCode _s_tc_string(CORBA::tk_string, &buildString);

}  // namespace

namespace CORBA {
CORBA_TypeCode* const _tc_null = &_s_tc_null.tc;
CORBA_TypeCode* const _tc_void = &_s_tc_void.tc;
CORBA_TypeCode* const _tc_short = &_s_tc_short.tc;
CORBA_TypeCode* const _tc_long = &_s_tc_long.tc;
CORBA_TypeCode* const _tc_ushort = &_s_tc_ushort.tc;
CORBA_TypeCode* const _tc_ulong = &_s_tc_ulong.tc;
CORBA_TypeCode* const _tc_float = &_s_tc_float.tc;
CORBA_TypeCode* const _tc_double = &_s_tc_double.tc;
CORBA_TypeCode* const _tc_boolean = &_s_tc_boolean.tc;
CORBA_TypeCode* const _tc_char = &_s_tc_char.tc;
CORBA_TypeCode* const _tc_octet = &_s_tc_octet.tc;
CORBA_TypeCode* const _tc_any = &_s_tc_any.tc;
CORBA_TypeCode* const _tc_TypeCode = &_s_tc_TypeCode.tc;
CORBA_TypeCode* const _tc_Principal = &_s_tc_Principal.tc;
CORBA_TypeCode* const _tc_Object = &_s_tc_Object.tc;
CORBA_TypeCode* const _tc_string = &_s_tc_string.tc;
}  // namespace CORBA

void _CORBA_init() { DSinit(); }
