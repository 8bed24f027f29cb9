// The broker's process-wide settings: every option of the command line
// ("-ORB...", "-OA...") with its default, the service parameters ("-SVC..."),
// and the agent client. parse_args fills the options; the block sizes among
// them are read when a stream is made, so options are parsed before that.
#ifndef KELVANOR_ZEBGLOB_H
#define KELVANOR_ZEBGLOB_H

#include "corba.h"

class CORBA_NVList;
class CORBA_NamedValue;
class DSUser;

class ZEBGlobalTable {
public:
    // Takes the broker's options out of argv and sets the fields below.
    // Element 0 and every element that is neither a broker option nor a
    // service parameter stay, in their order, and argc becomes their count;
    // argv[argc] is then null if an element was taken. An option that takes
    // a value consumes the next element whatever it is. A bad option, a
    // missing value or a number with a non-digit prints a line on standard
    // output and ends the process with status 0. argv must be writable
    // despite its type.
    static void parse_args(int& argc, char* const* argv);

    // A service parameter from the whole option text, such as "-SVCtrace=3":
    // without its leading "-", split at the first "="; with no "=" the value
    // is "true". A name given twice is stored twice, and the first one is
    // what the lookups find.
    static void add_SVCparam(const char* text);
    // A copy of the value, from CORBA::string_alloc, for the caller to free;
    // null if there is no such parameter.
    static char* get_SVCparam(const char* name);
    // The first parameter of that name, with a reference for the caller, or
    // null.
    static CORBA_NamedValue* find_SVCparam(const char* name);

    // The service parameters, in the order given; room for 16 to start with.
    static CORBA_NVList _svc_params;

    // The directory agent client, null until one is made. parse_args passes
    // the agent options on to it when it exists.
    static DSUser* _dsuser;

    // Interface to listen on (-OAipaddr); null for all. Points into argv.
    static const char* boa_ipaddr;
    // Port to listen on (-OAport); 0 lets the system choose.
    static unsigned short boa_port;
    // Size of a shared memory buffer (-ORBshmsize). Kept; nothing reads it.
    static unsigned long shm_bufsize;
    // Socket buffers of client connections (-ORBsendbufsize,
    // -ORBrcvbufsize); 0 leaves the system's size.
    static unsigned long orb_send_bufsize;
    static unsigned long orb_rcv_bufsize;
    // Socket buffers of server connections (-OAsendbufsize, -OArcvbufsize).
    static unsigned long boa_send_bufsize;
    static unsigned long boa_rcv_bufsize;
    // Host of the directory agent (-ORBagentaddr); null if not given. Points
    // into argv.
    static const char* agent_addr;
    // UDP port of the directory agent (-ORBagentport).
    static unsigned long agent_port;
    // The agent client reports its faults (-ORBagentverbose).
    static CORBA::Boolean agent_verbose;
    // Shared memory transport. Always false: -OAshm sets it false as well.
    static CORBA::Boolean enable_shm;
    // First size of a connection's output block, which doubles as needed
    // (-ORBmbufsize).
    static unsigned long tcp_block_size;
    // Bytes asked for per read of a connection, and the size of its input
    // block (-OAmbufsize). A read of at least this size bypasses the block.
    static unsigned long tcp_read_size;
    // Seconds of idle time after which a client connection is closed
    // (-ORBkeepalive); 0 switches the timer off.
    static unsigned long keep_alive_timer;
    // Narrowing asks the server by _is_a (-OAnarrowcheck, -OAnonarrowcheck).
    static CORBA::Boolean check_narrow;
    // TCP_NODELAY on outgoing connections (-ORBtcpnodelay, -ORBtcpdelay).
    static CORBA::Boolean orb_no_delay;
    // TCP_NODELAY on accepted connections (-OAtcpnodelay, -OAtcpdelay).
    // Kept; nothing reads it.
    static CORBA::Boolean boa_no_delay;
    // This process is the activation daemon; set by the daemon's main.
    static CORBA::Boolean is_vex;
    // -OAsynch, -OAnosynch. Kept; nothing reads it.
    static CORBA::Boolean synch_object;
    // A client that waits for a reply keeps serving the dispatcher, so that
    // calls coming back to it can be answered during the wait
    // (-ORBcallback, -ORBnocallback).
    static CORBA::Boolean has_callback;
    // A skeleton may be entered again while it is executing (-ORBrecursion,
    // -ORBnorecursion).
    static CORBA::Boolean recursion;
    // -ORBcleanup. Kept; nothing reads it.
    static CORBA::Boolean do_cleanup;
    // A client announces itself to a server with __bind and __unbind
    // (-ORBcallbindunbind, -ORBnobindunbind).
    static bool call_bind_unbind;

    static constexpr unsigned long default_tcp_read_size = 2048;
    static constexpr unsigned long default_tcp_block_size = 512;
    static constexpr unsigned long default_shm_bufsize = 8192;
    static constexpr unsigned long default_agent_port = 14000;
};

#endif
