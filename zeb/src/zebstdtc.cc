// TypeCodes in the encapsulated CDR form that other brokers write and read
// (-ORBstdtypecodes). A simple kind goes as the kind alone, a string as the
// kind and its bound, a complex kind as the kind and an encapsulation: its
// length, a byte-order octet and the parameters. A TypeCode repeated within
// one top-level TypeCode goes as 0xffffffff and a long: the distance from
// that long's own position back to the first copy's kind.
#include "zebstrm.h"

#include <cstdint>
#include <cstring>
#include <string>

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

// The encapsulations of the last few top-level TypeCodes read and written.
// A top-level encapsulation holds the whole TypeCode (offsets resolve within
// it, and nothing in it needs more than 4-byte alignment, which it starts
// at), and a TypeCode never changes: equal bytes read give an equal
// TypeCode, and one object written gives the same bytes. A stream that meets
// a type again, as an Any of the same type in every request does, takes it
// from here instead of building or walking the TypeCode once more.
class EncapsulationCache {
public:
    static constexpr int kEntries = 8;
    static constexpr std::size_t kMaxBytes = 4096;  // longer ones are not kept

    EncapsulationCache() = default;
    EncapsulationCache(const EncapsulationCache&) = delete;
    EncapsulationCache& operator=(const EncapsulationCache&) = delete;
    ~EncapsulationCache() {
        for (Entry& e : _entries) CORBA::release(e.tc);
    }

    // The TypeCode read before from these bytes, not counted; or null.
    CORBA_TypeCode* typeCodeOf(CORBA::ULong kind, const char* p, std::size_t n) const {
        for (const Entry& e : _entries)
            if (e.tc && e.kind == kind && e.bytes.size() == n &&
                std::memcmp(e.bytes.data(), p, n) == 0)
                return e.tc;
        return nullptr;
    }
    // The bytes written before for tc, or null.
    const std::string* bytesOf(CORBA_TypeCode* tc) const {
        for (const Entry& e : _entries)
            if (e.tc == tc) return &e.bytes;
        return nullptr;
    }
    // Keeps tc (duplicated) with its bytes in place of the oldest entry.
    void keep(CORBA_TypeCode* tc, const char* p, std::size_t n) {
        if (n > kMaxBytes) return;
        Entry& e = _entries[_next];
        _next = (_next + 1) % kEntries;
        CORBA::release(e.tc);
        e.tc = CORBA_TypeCode::_duplicate(tc);
        e.kind = tc->kind();
        e.bytes.assign(p, n);
    }

private:
    struct Entry {
        CORBA_TypeCode* tc = nullptr;  // counted
        CORBA::ULong kind = 0;
        std::string bytes;  // the encapsulation, after its length
    };
    Entry _entries[kEntries];
    int _next = 0;
};

// One process-wide pair: the process has one thread.
EncapsulationCache readCache, writtenCache;

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
    if (const std::string* cached = _tcDepth == 0 ? writtenCache.bytesOf(tc) : nullptr) {
        writeWire(static_cast<uint32_t>(cached->size()));
        writeRaw(cached->data(), cached->size());
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
    if (_tcDepth == 0) writtenCache.keep(tc, _out->write_base + lengthAt + 4, length);
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
    const CORBA::ULong length = readWire<uint32_t>();
    if (length == 0 || length > msgLeft()) malformed();
    // A top-level encapsulation already buffered whole may be one seen
    // before. Its bytes stay where they are while it is read: the reading
    // stays within them, so nothing is fetched that could move them.
    const bool cacheable = _stdInDepth == 0 && length <= inFast();
    const char* const bytes = _in.read_ptr;
    if (cacheable) {
        if (CORBA_TypeCode* seen = readCache.typeCodeOf(kind, bytes, length)) {
            advanceIn(length);
            tc = CORBA_TypeCode::_duplicate(seen);
            _stdInTcs->add(tc, start);
            return;
        }
    }
    {
        Nesting nest(_stdInDepth);
        tc = readEncapsulatedTypeCode(kind, length);
    }
    if (cacheable) readCache.keep(tc, bytes, length);
    _stdInTcs->add(tc, start);
}

CORBA_TypeCode* ZEBIIOPstream::readEncapsulatedTypeCode(CORBA::ULong kind, CORBA::ULong length) {
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
