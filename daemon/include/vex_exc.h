// The user exceptions of the daemon's interface. None has members; a client
// tells them apart by class (or by repository id on the wire).
#ifndef KELVANOR_VEX_EXC_H
#define KELVANOR_VEX_EXC_H

#include "except.h"

namespace Activation {

#define KELVANOR_ACTIVATION_EXCEPTION(N)       \
    class N : public CORBA_UserException {     \
        CORBA_EXCEPTION_MEMBERS(N)             \
    public:                                    \
        N() {}                                 \
    };

// No executable at the registered path, on the daemon's host.
KELVANOR_ACTIVATION_EXCEPTION(InvalidPath)
// The (interface, object) pair is registered already.
KELVANOR_ACTIVATION_EXCEPTION(DuplicateEntry)
// No registration for the interface, or for the pair.
KELVANOR_ACTIVATION_EXCEPTION(NotRegistered)
// The shared server of the entry is running.
KELVANOR_ACTIVATION_EXCEPTION(IsActive)
// A start of the entry's server is in progress.
KELVANOR_ACTIVATION_EXCEPTION(Busy)
// The server did not report in time, or died at every attempt.
KELVANOR_ACTIVATION_EXCEPTION(NotResponding)

#undef KELVANOR_ACTIVATION_EXCEPTION

}  // namespace Activation

#endif
