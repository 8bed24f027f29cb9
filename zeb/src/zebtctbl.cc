// The TypeCode tables of the connection streams.
#include "zebtctbl.h"

#include <cstdint>

#include "typecode.h"
#include "zebstring.h"

TB_DEFINE_ABSTRACT_CLASS(ZEBTCWrapper, "ZEBTCWrapper", DSResource::desc());

ZEBTCWrapper::ZEBTCWrapper(CORBA_TypeCode* tc) : _tc(CORBA_TypeCode::_duplicate(tc)) {}

ZEBTCWrapper::~ZEBTCWrapper() { CORBA::release(_tc); }

unsigned ZEBTCWrapper::hash() const {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(_tc));
}

int ZEBTCWrapper::compare(const TBObject& other) const {
    if (!tbCastAllowed(other.classInfo(), desc())) return -1;
    const CORBA_TypeCode* o = static_cast<const ZEBTCWrapper&>(other)._tc;
    // The sign only: the difference of two addresses need not fit an int.
    std::uintptr_t a = reinterpret_cast<std::uintptr_t>(_tc);
    std::uintptr_t b = reinterpret_cast<std::uintptr_t>(o);
    return a < b ? -1 : a > b ? 1 : 0;
}

void ZEBTypeCodeTable::addTypeCode(CORBA_TypeCode* tc, long offset) {
    const unsigned long id = static_cast<unsigned long>(offset);
    // A key that is there already keeps its value; addAssoc drops the new pair.
    _byOffset.addAssoc(*new ZEBUniqueId(id), *new ZEBTCWrapper(tc));
    _byTypeCode.addAssoc(*new ZEBTCWrapper(tc), *new ZEBUniqueId(id));
}

long ZEBTypeCodeTable::offsetOf(CORBA_TypeCode* tc) const {
    ZEBTCWrapper key(tc);
    DSResource* v = _byTypeCode.atKey(key);
    if (!v) return -1;
    // Offsets are 32 bits on the wire, signed ones as a scratch stream has
    // them before its first 12 bytes.
    return static_cast<CORBA::Long>(static_cast<uint32_t>(TB_CAST(ZEBUniqueId, v)->id()));
}

CORBA_TypeCode* ZEBTypeCodeTable::typeCodeAt(long offset) const {
    ZEBUniqueId key(static_cast<unsigned long>(offset));
    DSResource* v = _byOffset.atKey(key);
    return v ? TB_CAST(ZEBTCWrapper, v)->typeCode() : nullptr;
}

void ZEBTypeCodeTable::removeAll() {
    _byOffset.removeAll();
    _byTypeCode.removeAll();
}

void ZEBTypeCodeList::add(CORBA_TypeCode* tc, unsigned long offset) {
    _items.emplace_back(CORBA_TypeCode::_duplicate(tc), offset);
}

long ZEBTypeCodeList::offsetOf(const CORBA_TypeCode* tc) const {
    for (const auto& item : _items)
        if (item.first == tc) return static_cast<long>(item.second);
    return -1;
}

CORBA_TypeCode* ZEBTypeCodeList::typeCodeAt(unsigned long offset) const {
    for (const auto& item : _items)
        if (item.second == offset) return item.first;
    return nullptr;
}

void ZEBTypeCodeList::removeAll() {
    for (const auto& item : _items) CORBA::release(item.first);
    _items.clear();
}
