// Publishing the daemon under the name "VEX" in the naming service.
#ifndef KELVANOR_VEXREG_H
#define KELVANOR_VEXREG_H

class VEXImpl;

// 1 if the daemon is bound under "VEX", 0 if no naming service was found.
// server_id selects the web server installation whose IOR file names the
// service; null takes the environment or the host name.
int RegisterVEX(VEXImpl* servant, char* server_id);

#endif
