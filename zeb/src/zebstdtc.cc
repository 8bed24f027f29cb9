// TypeCodes in the encapsulated CDR form that other brokers write and read
// (-ORBstdtypecodes). A simple kind goes as the kind alone, a string as the
// kind and its bound, a complex kind as the kind and an encapsulation: its
// length, a byte-order octet and the parameters. A TypeCode repeated within
// one top-level TypeCode goes as 0xffffffff and a long: the distance from
// that long's own position back to the first copy's kind.
#include "zebstrm.h"

#include <cstdint>
#include <cstring>

#include "except.h"
#include "typecode.h"
#include "zebtctbl.h"

namespace {

constexpr uint32_t kIndirection = 0xffffffff;

bool encapsulated(CORBA::ULong kind) {
    switch (kind) {
    case CORBA::tk_objref:
    case CORBA::tk_struct:
    case CORBA::tk_union:
    case CORBA::tk_enum:
    case CORBA::tk_sequence:
    case CORBA::tk_array:
    case CORBA::tk_alias:
    case CORBA::tk_except:
        return true;
    default:
        return false;
    }
}

[[noreturn]] void malformed() { throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO); }

}  // namespace

void ZEBIIOPstream::putStdTypeCode(CORBA_TypeCode* tc) {
    if (!tc) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    if (!_stdOutTcs) _stdOutTcs.reset(new ZEBTypeCodeList);
    // Other brokers resolve an offset only within the top-level TypeCode
    // that holds it: each one starts a list of its own.
    if (_tcDepth == 0) _stdOutTcs->removeAll();
    alignOut(4);
    const CORBA::ULong here = outPos();
    const long known = _tcDepth >= 1 ? _stdOutTcs->offsetOf(tc) : -1;
    if (known != -1) {
        writeWire(kIndirection);
        writeWire(static_cast<uint32_t>(static_cast<CORBA::ULong>(known) - (here + 4)));
        return;
    }
    const CORBA::TCKind kind = tc->kind();
    writeWire(static_cast<uint32_t>(kind));
    if (!encapsulated(kind)) {
        tc->_writeParams(*this);
        return;
    }
    _stdOutTcs->add(tc, here);
    writeWire(uint32_t(0));  // the length, filled in below
    // An index, not a pointer: the block may move as it grows.
    const std::size_t lengthAt = static_cast<std::size_t>(_out->writeCount()) - 4;
    writeOctet(IIOP::BYTE_ORDER);
    {
        Nesting nest(_tcDepth);
        tc->_writeParams(*this);
    }
    const uint32_t length =
        static_cast<uint32_t>(static_cast<std::size_t>(_out->writeCount()) - lengthAt - 4);
    std::memcpy(_out->write_base + lengthAt, &length, sizeof length);
}

void ZEBIIOPstream::getStdTypeCode(CORBA_TypeCode*& tc) {
    if (!_stdInTcs) _stdInTcs.reset(new ZEBTypeCodeList);
    if (_stdInDepth == 0) _stdInTcs->removeAll();
    const CORBA::ULong kind = readWire<uint32_t>();
    const CORBA::ULong start = inPos() - 4;
    if (kind == kIndirection) {
        const CORBA::ULong at = inPos();
        const CORBA::ULong offset = readWire<uint32_t>();
        CORBA_TypeCode* found = _stdInTcs->typeCodeAt(static_cast<CORBA::ULong>(at + offset));
        if (!found) malformed();
        tc = CORBA_TypeCode::_duplicate(found);
        return;
    }
    // The kinds after tk_except name types this broker does not have.
    if (kind > CORBA::tk_except) malformed();
    if (!encapsulated(kind)) {
        tc = CORBA_TypeCode::_read(*this, kind);
        return;
    }
    {
        Nesting nest(_stdInDepth);
        tc = readEncapsulatedTypeCode(kind);
    }
    _stdInTcs->add(tc, start);
}

CORBA_TypeCode* ZEBIIOPstream::readEncapsulatedTypeCode(CORBA::ULong kind) {
    const CORBA::ULong length = readWire<uint32_t>();
    if (length == 0 || length > msgLeft()) malformed();
    // The parameters may not read past the encapsulation, and follow its
    // own byte order; both are the enclosing data's again afterwards.
    const CORBA::ULong outerLeft = msgLeft() - length;
    const unsigned char outerOrder = _byteOrder;
    setMsgLeft(length);
    CORBA_TypeCode* read = nullptr;
    try {
        unsigned char order = 0;
        readOctet(order);
        if (order > 1) malformed();
        byteOrder(order);
        read = CORBA_TypeCode::_read(*this, kind);
        discardCurMsg();  // what the parameters did not use
    } catch (...) {
        CORBA::release(read);
        byteOrder(outerOrder);
        setMsgLeft(msgLeft() + outerLeft);
        throw;
    }
    byteOrder(outerOrder);
    setMsgLeft(outerLeft);
    return read;
}
