// The agent client without an agent. reconnect() keeps the base version; it
// is never reached, since nothing here calls it and switchAgent does nothing.
#include "dsdummyuser.h"

DSDummyUser::DSDummyUser(const char*, const char*) : DSUser(nullptr, nullptr) {}

int DSDummyUser::inputReady(int) { return 0; }
void DSDummyUser::timerExpired(long, long) {}

void DSDummyUser::connect(int) {}
int DSDummyUser::login() { return 1; }
int DSDummyUser::sendAndWaitForReply(DSRequest*, TBrtt&, long) { return STATUS_OK; }
void DSDummyUser::triggerService(DSReply*) {}
void DSDummyUser::receiveReq(DSRequest*) {}
void DSDummyUser::receiveReply(DSReply*) {}

namespace {
template <class T>
T* nothingFound(int& status) {
    status = DSUser::STATUS_OK;
    return nullptr;
}
}  // namespace

DSSet* DSDummyUser::_allAgentAddresses(int& status) { return nothingFound<DSSet>(status); }
DSSet* DSDummyUser::_allProvidersRemote(DSName*, int& status, const DSAddr&) {
    return nothingFound<DSSet>(status);
}
DSSet* DSDummyUser::_allProviders(DSName*, int& status) { return nothingFound<DSSet>(status); }
DSSet* DSDummyUser::_allNamesRemote(int& status, const DSAddr&) {
    return nothingFound<DSSet>(status);
}
DSSet* DSDummyUser::_allNames(int& status) { return nothingFound<DSSet>(status); }
DSAddr* DSDummyUser::_getClientHandlerAddr(int& status, const DSAddr&) {
    return nothingFound<DSAddr>(status);
}

void DSDummyUser::error(const char*) {}
void DSDummyUser::syserror(const char*) {}
void DSDummyUser::verbose(int) {}

DSProvider* DSDummyUser::getProvider(DSName*, int& status, long) {
    // Not found: the caller goes on to the activation daemon.
    status = STATUS_NO_PROVIDER;
    return nullptr;
}
int DSDummyUser::trigger(DSName*, DSTriggerHandler&) { return STATUS_OK; }
int DSDummyUser::removeTrigger(DSName*, const DSTriggerHandler&) { return STATUS_OK; }
int DSDummyUser::registerProvider(DSProvider*) { return STATUS_OK; }
int DSDummyUser::removeProvider(DSProvider*) { return STATUS_OK; }
void DSDummyUser::markSuspect(const DSProvider&) {}
DSSet* DSDummyUser::allAgentAddresses(int& status) { return nothingFound<DSSet>(status); }
DSSet* DSDummyUser::allProviders(DSName*, int& status, int) {
    return nothingFound<DSSet>(status);
}
DSSet* DSDummyUser::allNames(int& status, int) { return nothingFound<DSSet>(status); }
void DSDummyUser::switchAgent(int) {}
