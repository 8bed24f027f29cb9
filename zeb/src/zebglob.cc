// Defaults of the broker's process-wide settings.
#include "zebglob.h"

unsigned long ZEBGlobalTable::tcp_read_size = ZEBGlobalTable::default_tcp_read_size;
unsigned long ZEBGlobalTable::tcp_block_size = ZEBGlobalTable::default_tcp_block_size;
CORBA::Boolean ZEBGlobalTable::orb_no_delay = 0;
CORBA::Boolean ZEBGlobalTable::has_callback = 0;
