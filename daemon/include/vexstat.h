// The status of one server process as the daemon keeps it. This is the part
// of the interface's ObjectStatus structure that the repository needs; the
// generated interface classes bring the full structure (with its reference
// semantics and stream form) and take the place of this header.
#ifndef KELVANOR_VEXSTAT_H
#define KELVANOR_VEXSTAT_H

#include "corba.h"

class CORBA_Object;

namespace Activation {

// Held in 32 bits. The daemon sets only ACTIVE and WAITING_FOR_ACTIVATION.
enum State : CORBA::ULong { ACTIVE = 0, INACTIVE = 1, WAITING_FOR_ACTIVATION = 2 };

struct ObjectStatus {
    CORBA::ULong process_id = 0;
    State activation_state = WAITING_FOR_ACTIVATION;
    // The server's object; null when none. Not released here yet: object
    // references arrive with the broker's reference classes.
    CORBA_Object* objRef = nullptr;
};

}  // namespace Activation

#endif
