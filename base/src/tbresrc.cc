// Reference counts and the default behaviour of collection elements.
#include "tbresrc.h"

#include "tbiostrm.h"

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
    TBTransObject* obj = strm.readTransObj();
    if (!obj || !tbCastAllowed(obj->classInfo(), DSResource::desc())) return nullptr;
    return static_cast<DSResource*>(obj);
}
