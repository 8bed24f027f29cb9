// The known records: structs that an Any holds as their native class
// rather than as CDR, and the static TypeCodes that name them. Each entry
// mirrors its class's members for release, copy, compare and printing.
#include "anyvalue.h"

#include <cstring>
#include <iostream>
#include <memory>

#include "any.h"
#include "ir.h"
#include "mstrm.h"
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

// ---- the Interface Repository's descriptions, the generated structs

// A generated struct T through its own operators. Two records compare as
// their CDR forms do: the structs have no order of their own.
template <class T>
struct Generated {
    static const T* of(const void* p) { return static_cast<const T*>(p); }
    static void* read(TBistream& strm) {
        std::unique_ptr<T> rec(new T);
        strm >> *rec;
        return rec.release();
    }
    static void write(TBostream& strm, const void* p) { strm << *of(p); }
    static void release(void* p) { delete static_cast<T*>(p); }
    static void* copy(const void* p) { return new T(*of(p)); }
    static long compare(const void* a, const void* b) {
        CORBA_MarshalOutBuffer x, y;
        x.owns_buffer(1);
        y.owns_buffer(1);
        x << *of(a);
        y << *of(b);
        if (x.length() != y.length()) return static_cast<long>(x.length()) - y.length();
        return std::memcmp(x.buffer(), y.buffer(), x.length());
    }
    static void print(std::ostream& os, const void* p) { os << *of(p); }
    static constexpr ZEBKnownRecord record(CORBA_TypeCode* const* tc) {
        return {tc, read, write, release, copy, compare, print};
    }
};

// Tried in this order.
// Constant-initialised, so usable from any static initialiser.
constexpr ZEBKnownRecord kRecords[] = {
    {&CORBA::_tc_NamedValue, readNamedValue, writeNamedValue, releaseNamedValue, copyNamedValue,
     compareNamedValue, printNamedValue},
    Generated<CORBA_InterfaceDescription>::record(&CORBA::_tc_InterfaceDescription),
    Generated<CORBA_OperationDescription>::record(&CORBA::_tc_OperationDescription),
    Generated<CORBA_AttributeDescription>::record(&CORBA::_tc_AttributeDescription),
    Generated<CORBA_ModuleDescription>::record(&CORBA::_tc_ModuleDescription),
    Generated<CORBA_ConstantDescription>::record(&CORBA::_tc_ConstantDescription),
    Generated<CORBA_TypeDescription>::record(&CORBA::_tc_TypeDescription),
    Generated<CORBA_ExceptionDescription>::record(&CORBA::_tc_ExceptionDescription),
};

}  // namespace

namespace CORBA {
CORBA_TypeCode* const _tc_NamedValue = &_s_tc_NamedValue.tc;
}  // namespace CORBA

// tc is a struct or an exception, aliases stepped through. Every Any of a
// struct asks, so a record whose parameter count or name differs is passed
// over before the full comparison.
const ZEBKnownRecord* ZEBknownRecord(CORBA_TypeCode* tc) {
    for (const ZEBKnownRecord& r : kRecords) {
        CORBA_TypeCode* known = *r.type;
        if (tc->param_count() != known->param_count() ||
            compareText(tc->name(), known->name()) != 0)
            continue;
        if (tc->equal(known)) return &r;
    }
    return nullptr;
}
