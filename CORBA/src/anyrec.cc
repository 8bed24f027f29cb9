// The known records: structs that an Any holds as their native class
// rather than as CDR, and the static TypeCodes that name them. Each entry
// mirrors its class's members for release, copy, compare and printing.
#include "anyvalue.h"

#include <cstring>
#include <iostream>
#include <memory>

#include "any.h"
#include "nvlist.h"
#include "tbiostrm.h"
#include "typecode.h"

namespace {

CORBA_TypeCode* buildNamedValue() {
    const ZEBTCMember members[] = {{"name", CORBA::_tc_string, nullptr},
                                   {"value", CORBA::_tc_any, nullptr},
                                   {"flags", CORBA::_tc_ulong, nullptr}};
    return new CORBA_TypeCode(CORBA::tk_struct, "IDL:omg.org/CORBA/NamedValue:1.0", "NamedValue",
                              members, 3, 0);
}

ZEBStaticTypeCode _s_tc_NamedValue(CORBA::tk_struct, &buildNamedValue);

long compareText(const char* a, const char* b) {
    if (!a || !b) return a == b ? 0 : a ? 1 : -1;
    return std::strcmp(a, b);
}

// ---- CORBA_NamedValue

const CORBA_NamedValue* nv(const void* p) { return static_cast<const CORBA_NamedValue*>(p); }

void* readNamedValue(TBistream& strm) {
    std::unique_ptr<CORBA_NamedValue> rec(new CORBA_NamedValue);
    strm >> *rec;
    return rec.release();
}
void writeNamedValue(TBostream& strm, const void* p) { strm << *nv(p); }
void releaseNamedValue(void* p) { CORBA::release(static_cast<CORBA_NamedValue*>(p)); }
void* copyNamedValue(const void* p) { return new CORBA_NamedValue(*nv(p)); }
long compareNamedValue(const void* a, const void* b) {
    if (long d = compareText(nv(a)->name(), nv(b)->name())) return d;
    const CORBA_Any* x = nv(a)->value();
    const CORBA_Any* y = nv(b)->value();
    if (x && y) {
        if (long d = compare(*x, *y)) return d;
    } else if (x != y) {
        return x ? 1 : -1;
    }
    return static_cast<long>(nv(a)->flags()) - static_cast<long>(nv(b)->flags());
}
void printNamedValue(std::ostream& os, const void* p) { os << *nv(p); }

// Tried in this order.
const ZEBKnownRecord kRecords[] = {
    {&CORBA::_tc_NamedValue, readNamedValue, writeNamedValue, releaseNamedValue, copyNamedValue,
     compareNamedValue, printNamedValue},
};

}  // namespace

namespace CORBA {
CORBA_TypeCode* const _tc_NamedValue = &_s_tc_NamedValue.tc;
}  // namespace CORBA

const ZEBKnownRecord* ZEBknownRecord(CORBA_TypeCode* tc) {
    for (const ZEBKnownRecord& r : kRecords)
        if (tc->equal(*r.type)) return &r;
    return nullptr;
}
