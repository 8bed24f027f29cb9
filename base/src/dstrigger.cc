// Trigger handlers as elements of the session's sets.
#include "dstrigger.h"

#include <cstdint>

TB_DEFINE_CLASS(DSTrigWrapper, "DSTrigWrapper", DSResource::desc());

DSTriggerHandler::~DSTriggerHandler() {}

unsigned DSTrigWrapper::hash() const {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(_handler));
}

int DSTrigWrapper::compare(const TBObject& other) const {
    const DSTrigWrapper* o = dynamic_cast<const DSTrigWrapper*>(&other);
    if (!o) return -1;
    uintptr_t a = reinterpret_cast<uintptr_t>(_handler), b = reinterpret_cast<uintptr_t>(o->_handler);
    return a == b ? 0 : (a < b ? -1 : 1);
}

void DSTrigWrapper::write(TBostream&) const {}

void DSTrigWrapper::prettyPrint(TBostream&) const {}
