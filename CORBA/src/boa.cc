// The registration scope that new skeletons take, kept in the global table.
#include "boa.h"

#include "zebglob.h"

CORBA_BOA::~CORBA_BOA() {}

CORBA_BOA::RegistrationScope CORBA_BOA::scope() {
    return static_cast<RegistrationScope>(ZEBGlobalTable::_instance.scope);
}

void CORBA_BOA::scope(RegistrationScope s) { ZEBGlobalTable::_instance.scope = s; }
