// The broker's process-wide settings. So far only what the IIOP stream reads:
// the sizes of its blocks and the socket options it applies. The broker's
// option parsing fills these fields; until then they keep their defaults.
#ifndef KELVANOR_ZEBGLOB_H
#define KELVANOR_ZEBGLOB_H

#include "corba.h"

class ZEBGlobalTable {
public:
    // Bytes asked for per read of a connection, and the size of its input
    // block (-OAmbufsize). A read of at least this size bypasses the block.
    static unsigned long tcp_read_size;
    // First size of a connection's output block, which doubles as needed
    // (-ORBmbufsize).
    static unsigned long tcp_block_size;
    // TCP_NODELAY on outgoing connections (-ORBtcpnodelay).
    static CORBA::Boolean orb_no_delay;
    // A client that waits for a reply keeps serving the dispatcher, so that
    // calls coming back to it can be answered during the wait.
    static CORBA::Boolean has_callback;

    static constexpr unsigned long default_tcp_read_size = 2048;
    static constexpr unsigned long default_tcp_block_size = 512;
};

#endif
