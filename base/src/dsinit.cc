// DSinit: a call at the start of main makes the linker take the units of
// the agent client's classes that travel on object streams, as TBinit does
// for the collections.
#include "tbtinfo.h"

#include "dsaddr.h"
#include "dslogin.h"
#include "dsmsg.h"
#include "dsname.h"
#include "dsprovider.h"
#include "dstrigger.h"

namespace {

const TBTypeInfo* const kAgentClasses[] = {
    DSAddr::desc(),    DSName::desc(),     DSProvider::desc(), DSUserInfo::desc(),
    DSLogin::desc(),   DSMessage::desc(),  DSRequest::desc(),  DSReply::desc(),
    DSAMessage::desc(), DSAReply::desc(),  DSTrigWrapper::desc()};

}  // namespace

void DSinit() {
    // Read through a volatile pointer, so that the table and the references
    // that pull the units in stay.
    const TBTypeInfo* const* volatile table = kAgentClasses;
    (void)table[0];
}
