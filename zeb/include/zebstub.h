// The client half of a reference: what it names (names, or an address and a
// key), its connection, and the request path of generated stubs.
//
// This version connects each bound stub straight to the address of its
// locator, over a connection of its own. Binding by names through the agent
// and the daemon, shared connections per address and the locate exchange
// come with the client connection layer; the members they need are here.
#ifndef KELVANOR_ZEBSTUB_H
#define KELVANOR_ZEBSTUB_H

#include <memory>

#include "giop.h"
#include "object.h"
#include "zebstring.h"

class GIOPstream;
class ZEBIIOPstream;

class ZEBStubInfo {
public:
    enum State : CORBA::ULong { STUB_UNBOUND = 0, STUB_BOUND = 1, STUB_LOST = 2, STUB_REBOUND = 3 };
    enum Kind : CORBA::ULong {
        KIND_UNKNOWN = 0,
        KIND_NAMED = 1,      // interface and object name
        KIND_TRANSIENT = 2,  // an address and a key of this broker
        KIND_FOREIGN = 3,    // an address and a key of another broker
        KIND_SERVICE = 4
    };

    explicit ZEBStubInfo(CORBA_Object* object);
    ~ZEBStubInfo();
    ZEBStubInfo(const ZEBStubInfo&) = delete;
    // Copies what the reference names; the connection is not shared.
    ZEBStubInfo& operator=(const ZEBStubInfo& other);
    // What other names, unbound.
    void clone(const ZEBStubInfo& other);

    // By names. Connects now unless defer_connect or !now.
    void bind(const char* interface_name, const char* object_name, const char* host,
              unsigned long ignored, const CORBA_BindOptions* options, unsigned char now);
    // To a locator, which the stub owns from here on.
    void bind(IIOP::ObjectLocator* locator, unsigned char now);
    // Connects; CORBA_NO_IMPLEMENT when there is no address to go to,
    // CORBA_COMM_FAILURE when rebinding is not allowed.
    void rebind(unsigned char notify);
    void unbind();
    void close_connection();

    // Starts a request and returns the stream to write the arguments on.
    GIOPstream* create_request(const char* operation, unsigned char response_expected,
                               unsigned int hash);
    void send(unsigned char ignored);
    // The reply's stream, positioned at the results; an exception in the
    // reply is thrown (after two seconds for CORBA_TRANSIENT).
    GIOPstream* receive_reply(unsigned char from_dispatcher);
    GIOPstream* invoke();

    // The locator, made from the names if there is none; owned here.
    IIOP::ObjectLocator* locator();
    const CORBA_OctetSequence& principal() const;
    void principal(const CORBA_OctetSequence& p);
    const CORBA_BindOptions& bindOptions() const;
    void bindOptions(const CORBA_BindOptions& options);

    bool isBound() const { return _state == STUB_BOUND || _state == STUB_REBOUND; }
    CORBA::ULong state() const { return _state; }
    CORBA::ULong kind() const { return _kind; }
    const char* interface_name() const { return _interface_name; }
    const char* object_name() const { return _object_name; }
    void object_name(const char* name) { _object_name = name; }
    const IIOP::ObjectLocator* currentLocator() const { return _locator; }

private:
    [[noreturn]] void lost(const char* operation);
    void closeStream();

    std::unique_ptr<ZEBIIOPstream> _stream;  // the connection, or null
    CORBA_Object* _object;
    CORBA_BindOptions* _bind_options = nullptr;  // owned; null: the table's
    CORBA_OctetSequence* _principal = nullptr;   // owned; null: the table's
    CORBA::ULong _state = STUB_UNBOUND;
    CORBA::ULong _kind = KIND_UNKNOWN;
    ZEBString _host;
    ZEBString _interface_name;
    ZEBString _object_name;
    IIOP::ObjectLocator* _locator = nullptr;  // owned
    IIOP::RequestHeader _header;
};

#endif
