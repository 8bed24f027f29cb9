// Finding the naming service through a web server's IOR file, and the
// daemon through the naming service. Every broker process has these: object
// adapters report to the daemon, and clients ask it for objects.
#ifndef KELVANOR_VEX_FUNCTIONS_H
#define KELVANOR_VEX_FUNCTIONS_H

#include <kelvanor/Activation.h>
#include <kelvanor/CosNaming.h>

// The root naming context named by the IOR file
// $NS_SERVER_ROOT/wai/NameService/<server>.IOR, where <server> is
// $NS_SERVER_ID, else server_id, else "https-" and the host name; the root
// defaults to /usr/netscape/suitespot. Null if the file cannot be read or
// holds no naming context. The caller releases the result.
CosNaming::NamingContext* getRootNamingFromFile(char* server_id);

// Binds vex under the name "VEX" in that root context: 1, also when the
// name was bound already (the old binding stays); 0 without a naming
// service. Other failures of the naming service pass on as exceptions.
int RegisterVEX(Activation::VEX* vex, char* server_id);

// The environment variable in which the daemon hands its stringified
// reference to the servers it starts.
constexpr const char* kVexIorVariable = "KELVANOR_VEX_IOR";

// The daemon: the reference in $KELVANOR_VEX_IOR when it is set and has not
// failed (see forgetEnvironmentVEX), else the one bound under "VEX" in the
// naming service; null when it cannot be found for any reason. The caller
// releases the result.
Activation::VEX* resolveVEX(char* server_id);

// A call on the reference from $KELVANOR_VEX_IOR failed (the daemon that
// started us is gone or moved): from now on resolveVEX asks the naming
// service. True if that reference was in use, so that a retry may help.
bool forgetEnvironmentVEX();

#endif
