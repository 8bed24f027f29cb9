// Reference counts and the default behaviour of collection elements.
#include "tbresrc.h"

#include "tbiostrm.h"
#include "tbiotbl.h"

TBResource::~TBResource() {}

void TBResource::unref() {
    if (_count != 0 && --_count > 0) return;
    delete this;
}

TB_DEFINE_ABSTRACT_CLASS(DSResource, "DSResource", TBObject::desc());

void DSResource::copyFrom(const DSResource&) {}

unsigned DSResource::hash() const { return 0; }

int DSResource::compare(const TBObject&) const { return -1; }

DSResource* DSreadResource(TBistream& strm) {
    TBInTbl& table = strm.inTable();
    const unsigned before = table.objectCount();
    TBTransObject* obj = strm.readTransObj();
    if (!obj) return nullptr;
    if (!tbCastAllowed(obj->classInfo(), DSResource::desc())) {
        // Read just now and of no use to anybody: freed with the numbers.
        if (table.objectCount() > before) table.orphan(obj);
        return nullptr;
    }
    // A back reference to an object still being read would close a cycle
    // of counts, which no count ever frees and the first release frees
    // twice; hostile data only, so the element counts as missing.
    if (table.isBuilding(obj)) return nullptr;
    // A back reference to a member that its owner built in place: no count
    // may free it, so it is no element either.
    if (!table.isMade(obj)) return nullptr;
    return static_cast<DSResource*>(obj);
}
