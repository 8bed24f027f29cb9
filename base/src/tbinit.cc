// TBinit and TBTinit: a call to either at the start of main makes the linker
// take every unit of the base library that registers a class. A program that
// meets a collection only as a name on a stream has no other reference to
// its unit, and the reader would report the class as not linked in.
#include "tbtinfo.h"

#include "dsassoc.h"
#include "dscltn.h"
#include "dsdict.h"
#include "dslist.h"
#include "dsordcltn.h"
#include "dsset.h"
#include "tbresrc.h"
#include "tbstring.h"

namespace {

// The descriptors of the base library's classes. Reading the table through a
// volatile pointer keeps the compiler from dropping it, and with it the
// references that pull the units in.
const TBTypeInfo* const kBaseClasses[] = {
    TBObject::desc(),     TBString::desc(),      DSResource::desc(),
    DSAssoc::desc(),      DSLink::desc(),        DSWrapper::desc(),
    DSCollection::desc(), DSLinkedList::desc(),  DSOrderedCltn::desc(),
    DSSet::desc(),        DSDictionary::desc(),
};

void touchBaseClasses() {
    const TBTypeInfo* const* volatile table = kBaseClasses;
    (void)table[0];
}

}  // namespace

void TBinit() { touchBaseClasses(); }
void TBTinit() { touchBaseClasses(); }
