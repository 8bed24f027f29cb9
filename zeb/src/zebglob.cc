// The broker's process-wide table. Its options and service parameters live
// in zebopts.cc.
#include "zebglob.h"

DSUser* ZEBGlobalTable::_dsuser = nullptr;
