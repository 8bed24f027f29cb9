// What the interface of the agent client defines for all its implementations.
#include "dsuser.h"

DSUser::DSUser(const char*, const char*) {}

int DSUser::reconnect() { return STATUS_NO_AGENT; }

void DSUser::close() { delete this; }
