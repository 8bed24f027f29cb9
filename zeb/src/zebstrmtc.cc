// TypeCodes on a connection stream: the per-message tables through which a
// TypeCode repeated within a complex TypeCode goes as an indirection.
#include "zebstrm.h"

#include <cstdint>

#include "except.h"
#include "typecode.h"
#include "zebglob.h"
#include "zebtctbl.h"

namespace {
constexpr CORBA::ULong kIndirection = 0xffffffff;
constexpr unsigned long kHeaderBytes = 12;
}  // namespace

void ZEBIIOPstream::emptyInTypeCodes() {
    if (_inTcTable) _inTcTable->removeAll();
    _inTcCount = 0;
}

void ZEBIIOPstream::emptyOutTypeCodes() {
    if (_outTcTable) _outTcTable->removeAll();
    _outTcCount = 0;
}

void ZEBIIOPstream::putTypeCode(CORBA_TypeCode* tc) {
    if (ZEBGlobalTable::std_typecodes) return putStdTypeCode(tc);
    if (!tc) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    if (!_outTcTable) _outTcTable.reset(new ZEBTypeCodeTable);
    // Offsets count from the end of the message header, in 32 bits; the
    // reader counts from the header's start, and the indirection's own
    // position makes up the difference.
    const long offset = _tcDepth >= 1 ? _outTcTable->offsetOf(tc) : -1;
    if (offset == -1) {
        const uint32_t here = static_cast<uint32_t>(_out->writeCount() + _pendingBytes - kHeaderBytes);
        _outTcTable->addTypeCode(tc, static_cast<CORBA::Long>(here));
        _outTcCount = static_cast<int>(_outTcTable->size());
        Nesting nest(_tcDepth);
        tc->_write(*this);
        return;
    }
    writeWire(kIndirection);
    // Taken after the marker: the reader adds its position after the long.
    const uint32_t after = static_cast<uint32_t>(_out->writeCount() + _pendingBytes);
    writeWire(static_cast<uint32_t>(static_cast<uint32_t>(offset) - after + 8));
}

void ZEBIIOPstream::getTypeCode(CORBA_TypeCode*& tc) {
    if (ZEBGlobalTable::std_typecodes) return getStdTypeCode(tc);
    if (!_inTcTable) _inTcTable.reset(new ZEBTypeCodeTable);
    const CORBA::ULong start = inPos();
    const CORBA::ULong kind = readWire<uint32_t>();
    if (kind != kIndirection) {
        CORBA_TypeCode* read = CORBA_TypeCode::_read(*this, kind);
        _inTcTable->addTypeCode(read, static_cast<CORBA::Long>(start));
        _inTcCount = static_cast<int>(_inTcTable->size());
        tc = read;
        return;
    }
    const CORBA::ULong distance = readWire<uint32_t>();
    const CORBA::ULong target = distance + inPos();  // modulo 2^32, as written
    CORBA_TypeCode* found = _inTcTable->typeCodeAt(static_cast<CORBA::Long>(target));
    if (!found) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    tc = CORBA_TypeCode::_duplicate(found);
}
