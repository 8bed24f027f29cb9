// The broker's process-wide state: the object adapter, the ORB object and
// the directory agent client, the command-line settings, the service hooks,
// the client defaults, and the conversions between references, locators and
// IORs that need all of these at once. There is one table per process.
#ifndef KELVANOR_ZEBGLOB_H
#define KELVANOR_ZEBGLOB_H

#include <kelvanor/corba.h>
#include <kelvanor/dsset.h>
#include <kelvanor/object.h>
#include <kelvanor/sequence.h>

class CORBA_Context;
class CORBA_Exception;
class CORBA_Environment;
class CORBA_NVList;
class CORBA_NamedValue;
class DSUser;
class GIOPstream;
class ZEBBOA;
class ZEBBOAClient;
class ZEBORB;
class ZEBSkelInfo;
class ZEBImplEventHandler;
class ZEBClientEventHandler;
class ZEBBindHandler;
namespace IIOP {
struct ObjectLocator;
struct RequestHeader;
struct ReplyHeader;
struct ServiceContext;
}  // namespace IIOP
namespace IOP {
struct IOR;
}
namespace ZEB_EXT {
struct ConnectionInfo;
}

// A service that rides on requests and replies in service contexts. No
// implementation ships with the broker; programs register their own under
// a context id.
class ZEBSVCHandler {
public:
    virtual ~ZEBSVCHandler();
    virtual void sending_request(CORBA_Object* obj, IIOP::RequestHeader& header,
                                 GIOPstream& strm) = 0;
    virtual void received_reply(CORBA_Object* obj, IIOP::ReplyHeader& header,
                                const IIOP::ServiceContext& context, GIOPstream& strm) = 0;
    virtual void received_request(CORBA_Object* obj, IIOP::RequestHeader& header,
                                  const IIOP::ServiceContext& context, GIOPstream& strm) = 0;
    virtual void sending_reply(CORBA_Object* obj, IIOP::ReplyHeader& header,
                               GIOPstream& strm) = 0;
    virtual void send_failed(CORBA_Object* obj, IIOP::RequestHeader& header,
                             CORBA_Environment& env) = 0;
    virtual void receive_failed(CORBA_Object* obj, IIOP::RequestHeader& header,
                                CORBA_Environment& env) = 0;
};

class ZEBGlobalTable {
public:
    ZEBGlobalTable();
    ~ZEBGlobalTable();
    ZEBGlobalTable(const ZEBGlobalTable&) = delete;
    ZEBGlobalTable& operator=(const ZEBGlobalTable&) = delete;

    // The table, with the adapter, the ORB and the agent client made on the
    // first call. Safe to call from anywhere, in any order.
    static ZEBGlobalTable* instance();

    // Takes the broker's options out of argv and sets the settings below.
    // Element 0 and every element that is neither a broker option nor a
    // service parameter stay, in their order, and argc becomes their count;
    // argv[argc] is then null if an element was taken. An option that takes
    // a value consumes the next element whatever it is. A bad option, a
    // missing value or a number with a non-digit prints a line on standard
    // output and ends the process with status 0. argv must be writable
    // despite its type.
    static void parse_args(int& argc, char* const* argv);

    // ---- References, locators and IORs. The caller owns the results.

    static IIOP::ObjectLocator* getLocator(CORBA_Object* obj);
    // The first IIOP profile of ior as a locator, any 1.x version read as
    // 1.0; null without one. The caller owns the result.
    static IIOP::ObjectLocator* getLocator(const IOP::IOR& ior);
    static IOP::IOR* getIOR(CORBA_Object* obj);
    // A local object of this process (duplicated) or a new stub bound to
    // the IOR's locator. Nil for an IOR without an IIOP profile;
    // CORBA_INV_OBJREF for another IIOP version, CORBA_INITIALIZE when no
    // type can be found.
    static CORBA_Object* getObject(const IOP::IOR& ior, const CORBA_TypeInfo* type);
    // A stub that names an object no server has confirmed yet.
    static CORBA_Object* makeObjRef(const char* interface_name, const char* object_name);

    // ---- Open server connections.

    static void addBOAClient(ZEBBOAClient* client);
    static void removeBOAClient(ZEBBOAClient* client);
    static unsigned long boaClientCount() { return _boaClientSet.size(); }
    // -OAmaxconn, or the descriptors the event loop can serve (the lower of the
    // process's limit and 1024) less 32 for files, client connections and
    // the daemon's children; half of them under a limit of 64 or less.
    static unsigned long maxConnections();
    // Every open connection forgets skel.
    static void releaseImpl(const ZEBSkelInfo& skel);

    // ---- Service handlers, by service context id.

    static void register_svc_handler(unsigned long id, ZEBSVCHandler* handler);
    static void unregister_svc_handler(unsigned long id);
    void sending_request(CORBA_Object* obj, IIOP::RequestHeader& header, GIOPstream& strm);
    void received_reply(CORBA_Object* obj, IIOP::ReplyHeader& header, GIOPstream& strm);
    void received_request(CORBA_Object* obj, IIOP::RequestHeader& header, GIOPstream& strm);
    void sending_reply(CORBA_Object* obj, IIOP::ReplyHeader& header, GIOPstream& strm);
    void send_failed(CORBA_Object* obj, IIOP::RequestHeader& header, CORBA_Environment& env);
    void receive_failed(CORBA_Object* obj, IIOP::RequestHeader& header, CORBA_Environment& env);

    // ---- Parameters of service handlers, from "-SVCname=value".

    static void add_SVCparam(const char* option);
    // An owned copy of the first value stored under name, or null.
    static char* get_SVCparam(const char* name);
    // The first item of that name with a counted reference, or null.
    static CORBA_NamedValue* find_SVCparam(const char* name);

    // ---- The default context of dynamic requests: null until one is set
    // or CORBA_ORB::get_default_context makes it. The table holds one
    // reference; context() gives none to the caller.

    static CORBA_Context* context();
    static void context(CORBA_Context* ctx);

    // ---- Fields of the instance.

    // New skeletons take their registration scope from here (0: the agent
    // and the daemon are told, 1: this process only).
    CORBA::ULong scope = 0;
    // The server side's principal, for local objects outside a request.
    CORBA_OctetSequence_var principal;
    // Valid only while a request is served: its principal, a duplicate of
    // its object, and the connection it came on.
    CORBA_OctetSequence* current_principal = nullptr;
    CORBA_Object* current_object = nullptr;
    ZEB_EXT::ConnectionInfo* current_connection = nullptr;

    // ---- Process-wide parts, made by instance().

    static ZEBORB* _orb;
    static ZEBBOA* _boa;
    static DSUser* _dsuser;
    // Installs a client of the directory agent (DSUser::open) in place of
    // the null one, closing the one held. Call it after ORB_init and before
    // any object is ready or bound; the table owns the client from then on.
    static void setAgentClient(DSUser* user);
    // Client side hooks; null when none is installed. Not owned.
    static ZEBClientEventHandler* _clientEventHandler;
    static ZEBImplEventHandler* _implEventHandler;
    static ZEBBindHandler* _bindHandler;
    static ZEBSVCHandler** _handlers;
    static unsigned long _max_handlers;
    static CORBA_NVList _svc_params;  // in the order given; room for 16
    static CORBA_OctetSequence _principal;  // principal for new stubs
    static CORBA_BindOptions _bindOptions;
    static DSSet _boaClientSet;  // DSWrapper around each ZEBBOAClient*

    // ---- Settings, most of them from the command line.

    static const char* boa_ipaddr;        // -OAipaddr: interface to listen on
    static unsigned short boa_port;       // -OAport: 0 lets the system choose
    static unsigned long shm_bufsize;     // -ORBshmsize: kept, read by nothing
    static unsigned long orb_send_bufsize;  // -ORBsendbufsize: client sockets
    static unsigned long orb_rcv_bufsize;   // -ORBrcvbufsize
    static unsigned long boa_send_bufsize;  // -OAsendbufsize: server sockets
    static unsigned long boa_rcv_bufsize;   // -OArcvbufsize
    // -OAmaxconn: server connections kept at most; beyond them a new one is
    // accepted and closed at once. 0: the default of maxConnections().
    static unsigned long boa_max_conn;
    // -OAidle: seconds after which a server connection with nothing under
    // way is closed; 0 never.
    static unsigned long boa_idle;
    static const char* agent_addr;        // -ORBagentaddr
    static unsigned long agent_port;      // -ORBagentport
    static CORBA::Boolean agent_verbose;  // -ORBagentverbose
    static CORBA::Boolean enable_shm;     // shared memory: always off
    // Bytes asked for per read of a connection, and the size of its input
    // block (-OAmbufsize). A read of at least this size bypasses the block.
    static unsigned long tcp_read_size;
    // First size of a connection's output block, which doubles as needed
    // (-ORBmbufsize).
    static unsigned long tcp_block_size;
    static unsigned long keep_alive_timer;  // -ORBkeepalive, seconds; 0 off
    static CORBA::Boolean check_narrow;     // _safe_narrow asks the server
    static CORBA::Boolean orb_no_delay;     // TCP_NODELAY on client sockets
    static CORBA::Boolean boa_no_delay;     // kept, read by nothing
    static CORBA::Boolean is_vex;           // this process is the daemon
    static CORBA::Boolean synch_object;     // kept, read by nothing
    // A client that waits for a reply keeps serving the dispatcher, so that
    // calls coming back to it can be answered during the wait.
    static CORBA::Boolean has_callback;
    // A skeleton may be entered again while a call of it waits.
    static CORBA::Boolean recursion;
    static CORBA::Boolean do_cleanup;  // kept, read by nothing
    // Clients announce themselves to servers with __bind and __unbind.
    static CORBA::Boolean call_bind_unbind;
    // TypeCodes go in the encapsulated form that other brokers use instead
    // of the broker's own (-ORBstdtypecodes).
    static CORBA::Boolean std_typecodes;
    // Set while the table is destroyed at process exit.
    static CORBA::Boolean _exiting;

    static constexpr unsigned long default_tcp_read_size = 2048;
    static constexpr unsigned long default_tcp_block_size = 512;
    static constexpr unsigned long default_shm_bufsize = 8192;
    static constexpr unsigned long default_agent_port = 14000;

    static ZEBGlobalTable _instance;
};

#endif
