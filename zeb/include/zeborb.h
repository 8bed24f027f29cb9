// The one implementation of CORBA_ORB: the table of client connections by
// server address, and the road from what a reference names (names, a
// provider, a locator) to a connection that serves it.
#ifndef KELVANOR_ZEBORB_H
#define KELVANOR_ZEBORB_H

#include <kelvanor/dsdict.h>
#include <kelvanor/orb.h>

class DSAddr;
class DSProvider;
class ZEBORBClient;
namespace IIOP {
struct ObjectLocator;
}

class ZEBORB : public CORBA_ORB {
public:
    ZEBORB();
    // Forgets the table; the connections belong to their stubs.
    ~ZEBORB() override;

    // A connection to the server of the object that the names name, after a
    // locate exchange; null when no server is found. For the interface "*"
    // (a service) *key is the key to locate, otherwise the key is made from
    // the names. Each try asks _getProvider and locates there; locate_tries
    // of options (5 without) failed tries throw the last failure on. On
    // success *key is the key to use (a forwarded one, if any); the caller
    // owns it. A busy directory or daemon (CORBA_TRANSIENT) is asked again
    // after a second without counting against the tries.
    ZEBORBClient* locate(const char* interface_name, const char* object_name, const char* host,
                         CORBA_OctetSequence** key, const CORBA_BindOptions* options);
    // A connection to provider (made or reused) after a locate exchange of
    // key, following a forward to another address. A forward sets
    // *forward_key to a key the caller owns. first: a failure marks the
    // provider suspect with the directory agent. Failures are thrown: the
    // transport's, CORBA_NO_IMPLEMENT from the exchange, CORBA_INV_OBJREF
    // for a forward without an IIOP profile, CORBA_INTERNAL for a status
    // the exchange should not give. The caller's provider may be deleted
    // here if nobody else holds it.
    ZEBORBClient* locate(DSProvider* provider, const CORBA_OctetSequence& key,
                         CORBA_OctetSequence** forward_key, const CORBA_BindOptions* options,
                         unsigned char first);
    // The same for an object at locator, of this broker or another.
    ZEBORBClient* locate(const IIOP::ObjectLocator& locator, CORBA_OctetSequence** forward_key,
                         const CORBA_BindOptions* options);

    // Who serves the names: the directory agent first, then the activation
    // daemon. Null when neither knows; the caller owns the result.
    DSProvider* _getProvider(const char* interface_name, const char* object_name,
                             const char* host);

    // Enters client under addr, which the table takes over. CORBA_INTERNAL
    // if a client is there already.
    void add(DSAddr* addr, ZEBORBClient* client);
    // Takes the entry of addr out if it is client's.
    void remove(const DSAddr& addr, const ZEBORBClient* client);
    // The client at an address, or null; not counted for the caller.
    ZEBORBClient* clientAt(const DSAddr& addr) const;
    ZEBORBClient* clientAt(const IIOP::ObjectLocator& locator) const;

private:
    DSDictionary _clients;  // DSAddr -> DSWrapper around a ZEBORBClient*
};

#endif
