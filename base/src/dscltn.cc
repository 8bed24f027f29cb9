// The abstract collection: iteration defaults and the printed form.
#include "dscltn.h"

#include "tbiostrm.h"

TB_DEFINE_ABSTRACT_CLASS(DSCollection, "DSCollection", DSResource::desc());

DSResource* DSCollection::value(DSResource* position) const { return position; }

void DSCollection::doReset(DSIterator& it) const {
    it.index = 0;
    it.current = nullptr;
}

void DSCollection::prettyPrint(TBostream& strm) const {
    strm << "Collection size: " << size();
    endl(strm);
    DSIterator it(*this);
    while (DSResource* element = it.next()) element->prettyPrint(strm);
}

DSIterator::~DSIterator() {}
