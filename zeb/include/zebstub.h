// The client half of a reference: what it names (names, or an address and a
// key), the shared connection that serves it, how it binds and binds again,
// and the request path of generated stubs and dynamic requests. The two
// hook classes a program may install on the client side are declared here.
#ifndef KELVANOR_ZEBSTUB_H
#define KELVANOR_ZEBSTUB_H

#include <vector>

#include <kelvanor/giop.h>
#include <kelvanor/object.h>
#include <kelvanor/zebstring.h>

class CORBA_Exception;
class GIOPstream;
class ZEBORBClient;
namespace ZEB_EXT {
struct ConnectionInfo;
}

// Told what happens to the connections of references. Installed for one
// reference (ZEBStubInfo::clientEventHandler) or for all of them
// (ZEBGlobalTable::_clientEventHandler). The broker ships no implementation.
// The info records belong to the caller and are freed after the call.
class ZEBClientEventHandler {
public:
    virtual ~ZEBClientEventHandler();
    // obj was bound for the first time.
    virtual void bound(CORBA_Object* obj, ZEB_EXT::ConnectionInfo* peer) = 0;
    // The first bind of obj found no server.
    virtual void bindFailed(CORBA_Object* obj) = 0;
    // The server of obj went away.
    virtual void serverLost(CORBA_Object* obj) = 0;
    // obj was bound again after a loss.
    virtual void rebound(CORBA_Object* obj, ZEB_EXT::ConnectionInfo* peer) = 0;
    // Binding obj again after a loss found no server.
    virtual void rebindFailed(CORBA_Object* obj) = 0;
};

// Has the first and the last word on binds by names and by keys of this
// broker (ZEBGlobalTable::_bindHandler). The broker ships no implementation.
class ZEBBindHandler {
public:
    virtual ~ZEBBindHandler();
    // Before a first bind: a reference to use instead (the binder hands over
    // one reference, which the stub releases), or nil to bind as usual.
    virtual CORBA_Object* preBind(const char* interface_name, const char* object_name,
                                  const char* host, const CORBA_BindOptions& options) = 0;
    // After a first bind: obj to accept it, nil to refuse it. A non-nil
    // result is not released by the stub.
    virtual CORBA_Object* postBind(CORBA_Object* obj, const char* interface_name,
                                   const char* object_name, const char* host,
                                   const CORBA_BindOptions& options) = 0;
    // The same two around binding again after a loss.
    virtual CORBA_Object* preRebind(const char* interface_name, const char* object_name,
                                    const char* host, const CORBA_BindOptions& options) = 0;
    virtual CORBA_Object* postRebind(CORBA_Object* obj, const char* interface_name,
                                     const char* object_name, const char* host,
                                     const CORBA_BindOptions& options) = 0;
};

// Failures reach the caller as CORBA system exceptions; the table of what a
// call may throw is with receive_reply and rebind below.
class ZEBStubInfo {
public:
    enum State : CORBA::ULong { STUB_UNBOUND = 0, STUB_BOUND = 1, STUB_LOST = 2, STUB_REBOUND = 3 };
    enum Kind : CORBA::ULong {
        KIND_UNKNOWN = 0,    // not known until the next bind
        KIND_NAMED = 1,      // interface and object name
        KIND_TRANSIENT = 2,  // an address and a key of this broker
        KIND_FOREIGN = 3,    // an address and a key of another broker
        KIND_SERVICE = 4     // a service name
    };

    explicit ZEBStubInfo(CORBA_Object* object);
    // Counts the connection down; frees locator, options and principal.
    ~ZEBStubInfo();
    ZEBStubInfo(const ZEBStubInfo&) = delete;
    // Takes over what other names and its binding: the connection is shared
    // (this stub joins it), the locator copied, the forwarded key shared.
    ZEBStubInfo& operator=(const ZEBStubInfo& other);
    // Takes what other names (options, kind, names, locator, event handler)
    // and stays unbound.
    void clone(const ZEBStubInfo& other);

    // By names; a host is stored as its address text. Connects now unless
    // defer_connect is set in the effective options or now is 0.
    void bind(const char* interface_name, const char* object_name, const char* host,
              unsigned long ignored, const CORBA_BindOptions* options, unsigned char now);
    // To a locator, which the stub owns from here on (null allowed). A key
    // of this broker gives the names back; any other is a foreign object.
    void bind(IIOP::ObjectLocator* locator, unsigned char now);
    // Finds a connection unless bound. CORBA_NO_IMPLEMENT (minor 0) when no
    // server is found, minor 1001 when the bind handler refuses; transport
    // failures of the locate as they come (CORBA_COMM_FAILURE with errno,
    // CORBA_NO_RESPONSE). notify lets the event handler hear of a failure.
    void rebind(unsigned char notify);
    // Leaves the connection (counted down), forgets the forwarded key; the
    // stub is STUB_LOST and of unknown kind until it binds again.
    void unbind();
    // From the reference's destructor: leaves the connection and deletes
    // this record.
    void release();
    // Ends the use of a dead connection and tells the event handler.
    void close_connection();

    // Starts a request (binding first if need be) and returns the stream to
    // write the arguments on. "__unbind" on an unbound stub throws
    // CORBA_COMM_FAILURE instead of connecting.
    GIOPstream* create_request(const char* operation, unsigned char response_expected,
                               unsigned int hash);
    // A failed send closes the connection and throws CORBA_TRANSIENT, or
    // CORBA_COMM_FAILURE without allow_rebind; CORBA_NO_RESPONSE after
    // send_wait. All completed NO.
    void send(unsigned char ignored);
    // The reply's stream, positioned at the results. A lost connection is
    // CORBA_TRANSIENT or CORBA_COMM_FAILURE, a time-out CORBA_NO_RESPONSE,
    // both after closing the connection; a message other than a Reply
    // CORBA_BAD_INV_ORDER; an exception in the reply is thrown as sent,
    // after two seconds for CORBA_TRANSIENT. from_dispatcher: reads one
    // message that no call waits for and gives null when the connection
    // failed, instead of throwing.
    GIOPstream* receive_reply(unsigned char from_dispatcher);
    GIOPstream* invoke();

    // The locator, made from what is known if there is none; owned here.
    IIOP::ObjectLocator* locator();
    const CORBA_OctetSequence& principal() const;
    void principal(const CORBA_OctetSequence& p);
    const CORBA_BindOptions& bindOptions() const;
    void bindOptions(const CORBA_BindOptions& options);
    // This reference's event handler; null uses the table's. Not owned.
    ZEBClientEventHandler* clientEventHandler() const { return _client_handler; }
    void clientEventHandler(ZEBClientEventHandler* h) { _client_handler = h; }

    bool isBound() const { return _state == STUB_BOUND || _state == STUB_REBOUND; }
    CORBA::ULong state() const { return _state; }
    CORBA::ULong kind() const { return _kind; }
    const char* interface_name() const { return _interface_name; }
    const char* object_name() const { return _object_name; }
    void object_name(const char* name) { _object_name = name; }
    const IIOP::ObjectLocator* currentLocator() const { return _locator; }
    // The type id a reference came with when this process has no class for
    // it, so that handing the reference on keeps the server's own type
    // rather than the class it fell back to; null otherwise. Not copied by
    // clone: a narrowed copy is of the class it was narrowed to.
    const char* typeId() const { return _type_id.length() ? _type_id.string() : nullptr; }
    void typeId(const char* id) { _type_id = id; }
    CORBA_Object* object() const { return _object; }
    // The connection, or null; not counted for the caller.
    ZEBORBClient* client() const { return _client; }
    // The id of the last request made with this stub, and the connection
    // it went out on (a spare, if a call waited on the bound one); null
    // before any request.
    CORBA::ULong requestId() const { return _header.request_id; }
    ZEBORBClient* lastClient() const { return callClient(); }
    // The key that requests carry (after a forward, the short key).
    const CORBA_OctetSequence& objectKey() const { return _header.object_key; }

private:
    ZEBClientEventHandler* eventHandler() const;
    // Counts client up and the present one down (leaving its set).
    void setClient(ZEBORBClient* client);
    ZEBORBClient* findClient();
    void afterBind(ZEBClientEventHandler* handler, unsigned char notify);
    void notifyFailure(ZEBClientEventHandler* handler, unsigned char notify);
    void tellBound(ZEBClientEventHandler* handler, bool first);
    // Tells the service handlers of a failed send or receive; what they
    // throw is swallowed.
    void reportFailure(bool sending, IIOP::RequestHeader& header, const CORBA_Exception& e);
    // Reads the exception a reply carries, leaves a copy in the current
    // environment and throws it.
    [[noreturn]] void throwReplied(GIOPstream* strm, IIOP::RequestHeader& header, bool system);

    ZEBORBClient* _client = nullptr;  // counted; null when not connected
    // The connection of the call being made when it is a spare of _client
    // (a call further down the stack waits on _client); null when the call
    // goes out on _client itself. Counted.
    ZEBORBClient* _call = nullptr;
    void setCall(ZEBORBClient* client);
    ZEBORBClient* callClient() const { return _call ? _call : _client; }
    CORBA_Object* _object;            // the reference that owns this record
    CORBA_BindOptions* _bind_options = nullptr;  // owned; null: the table's
    CORBA_OctetSequence* _principal = nullptr;   // owned; null: the table's
    CORBA::ULong _state = STUB_UNBOUND;
    ZEBClientEventHandler* _client_handler = nullptr;  // null: the table's
    CORBA::ULong _kind = KIND_UNKNOWN;
    ZEBString _host;
    ZEBString _interface_name;  // "*" for a service
    ZEBString _object_name;
    ZEBString _type_id;  // see typeId
    IIOP::ObjectLocator* _locator = nullptr;         // owned
    CORBA_OctetSequence* _forward_key = nullptr;     // counted
    IIOP::RequestHeader _header;  // of the last request made with this stub
    // Replies awaited on this stub now (nested calls count), and the headers
    // of awaited requests that a nested request replaced in _header, oldest
    // first: a wait reports a failure with its own request's header without
    // copying it at every call.
    unsigned _receiving = 0;
    std::vector<IIOP::RequestHeader> _held;
};

#endif
