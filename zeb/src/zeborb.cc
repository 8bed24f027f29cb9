// The ORB object of a process: its client connections by address, and how a
// reference finds the server of its object, by names through the directory
// agent or the activation daemon, or straight at an address.
#include "zeborb.h"

#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "Activation.h"
#include "dsaddr.h"
#include "dsassoc.h"
#include "dsprovider.h"
#include "dsuser.h"
#include "except.h"
#include "giop.h"
#include "vex_functions.h"
#include "zebglob.h"
#include "zeboclnt.h"
#include "zeboid.h"
#include "zebstub.h"

namespace {

// The provider name of an object reached straight at its address.
const char* const kForeignObject = "FORIEGN OBJECT";
// Seconds the directory agent may take to name a provider.
constexpr long kAgentWait = 5;

// The object that the activation daemon names for an interface and an
// object name (an empty object name asks for any object of the interface),
// starting its server if need be; nil when there is no daemon to ask. The
// daemon is found as resolveVEX finds it and may take as long as the
// server's start takes. Its refusals (NotRegistered, Busy, NotResponding)
// go to the caller.
CORBA_Object* askDaemon(const char* iface, const char* object) {
    if (!iface || !*iface) return nullptr;
    for (;;) {
        Activation::VEX_var daemon(resolveVEX(nullptr));
        if (CORBA::is_nil(daemon.in())) return nullptr;
        try {
            if (!object || !*object) return daemon->lookup_interface(iface, -1);
            return daemon->lookup_implementation(iface, object, -1);
        } catch (const CORBA_SystemException& e) {
            // A reference inherited from the daemon that started us may be
            // stale; then the naming service is asked, once.
            if (e.completed() != CORBA::COMPLETED_NO || !forgetEnvironmentVEX()) throw;
        }
    }
}

// The client event hook is switched off while this process talks to the
// daemon on its own behalf, and put back on every way out.
class EventHookAside {
public:
    EventHookAside() : _saved(ZEBGlobalTable::_clientEventHandler) {
        ZEBGlobalTable::_clientEventHandler = nullptr;
    }
    ~EventHookAside() { ZEBGlobalTable::_clientEventHandler = _saved; }
    EventHookAside(const EventHookAside&) = delete;
    EventHookAside& operator=(const EventHookAside&) = delete;

private:
    ZEBClientEventHandler* _saved;
};

// A client made by a locate goes again unless it is handed out.
class NewClient {
public:
    NewClient(ZEBORBClient* c, bool created) : _c(created ? c : nullptr) {}
    ~NewClient() { ZEBORBClient::release(_c); }
    NewClient(const NewClient&) = delete;
    NewClient& operator=(const NewClient&) = delete;
    ZEBORBClient* keep() {
        ZEBORBClient* c = _c;
        _c = nullptr;
        return c;
    }

private:
    ZEBORBClient* _c;
};

void markSuspect(const DSProvider& provider) {
    if (ZEBGlobalTable::_dsuser) ZEBGlobalTable::_dsuser->markSuspect(provider);
}

// Replaces *slot by a new copy of key.
void giveKey(CORBA_OctetSequence** slot, const CORBA_OctetSequence& key) {
    CORBA::release(*slot);
    *slot = new CORBA_OctetSequence(key);
}

}  // namespace

ZEBORB::ZEBORB() : _clients(16) {}

ZEBORB::~ZEBORB() {}

// ---- The table of connections.

void ZEBORB::add(DSAddr* addr, ZEBORBClient* client) {
    // On failure the dictionary frees the new key and wrapper itself.
    if (!_clients.addAssoc(*addr, *new DSWrapper(client)))
        throw CORBA_INTERNAL(0, CORBA::COMPLETED_NO);
}

void ZEBORB::remove(const DSAddr& addr, const ZEBORBClient* client) {
    // Only the client's own entry: a client that never made it into the
    // table must not take out the one that did.
    if (clientAt(addr) == client) _clients.removeKey(addr);
}

ZEBORBClient* ZEBORB::clientAt(const DSAddr& addr) const {
    DSResource* value = _clients.atKey(addr);
    if (!value) return nullptr;
    return static_cast<ZEBORBClient*>(TB_CAST(DSWrapper, value)->value);
}

ZEBORBClient* ZEBORB::clientAt(const IIOP::ObjectLocator& locator) const {
    return clientAt(DSAddr(locator.port, locator.host.in() ? locator.host.in() : ""));
}

// ---- Finding a server.

DSProvider* ZEBORB::_getProvider(const char* iface, const char* object, const char* host) {
    std::string service(iface ? iface : "");
    if (object && *object) service.append("_").append(object);
    if (host && *host) service = std::string(host) + "_" + service;

    DSUser* agent = ZEBGlobalTable::_dsuser;
    int status = 0;
    if (agent) {
        DSName name(service.c_str(), DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
        if (DSProvider* running = agent->getProvider(&name, status, kAgentWait)) return running;
    }
    // The daemon never goes looking for itself.
    if (iface && std::strcmp(iface, "Activation::VEX") == 0) return nullptr;
    if (agent) {
        // The agent is asked for the daemon's own entry as well, but the
        // answer is not used: the daemon itself says where the object runs.
        DSName name(service.c_str(), DS_ARG_DEFAULT, DS_SERVICE_ACTIVATABLE, nullptr);
        TBResource::unref(agent->getProvider(&name, status, kAgentWait));
    }

    EventHookAside aside;
    CORBA_Object_var answer(askDaemon(iface, object));
    if (CORBA::is_nil(answer.in())) return nullptr;
    std::unique_ptr<IIOP::ObjectLocator> where(ZEBGlobalTable::getLocator(answer.in()));
    if (!where) throw CORBA_INTERNAL(0, CORBA::COMPLETED_NO);
    DSName name(service.c_str(), DS_ARG_DEFAULT, DS_SERVICE_ACTIVATABLE, nullptr);
    return new DSProvider(name, DSAddr(where->port, where->host.in() ? where->host.in() : ""),
                          DS_PROTOCOL_DEFAULT, 0);
}

ZEBORBClient* ZEBORB::locate(const char* iface, const char* object, const char* host,
                             CORBA_OctetSequence** key, const CORBA_BindOptions* options) {
    CORBA_OctetSequence_var wanted;
    if (iface && std::strcmp(iface, "*") == 0) {
        // A service is located by the key given; without one, by the key
        // of the service's name alone.
        wanted = *key ? CORBA_OctetSequence::_duplicate(*key)
                      : ZEBServiceId(object, CORBA_OctetSequence()).convert();
    } else {
        wanted = ZEBPersistentId(iface, object).convert();
    }

    // locate_tries of 0 wraps round below and so tries without end.
    CORBA::ULong tries = options ? options->locate_tries : 5;
    for (;;) {
        DSProvider* provider = nullptr;
        try {
            provider = _getProvider(iface, object, host);
        } catch (const CORBA_TRANSIENT&) {
            // Busy: asked again however often that happens.
            sleep(1);
            --tries;
            continue;
        } catch (const CORBA_SystemException&) {
            // Counted as a try: a lookup that keeps failing must not keep
            // the caller here for ever.
            if (--tries == 0) throw;
            continue;
        }
        if (!provider) return nullptr;
        --tries;
        CORBA_OctetSequence* forwarded = nullptr;
        ZEBORBClient* client = nullptr;
        try {
            client = locate(provider, *wanted.ptr(), &forwarded, options, 1);
        } catch (const CORBA_SystemException&) {
            if (tries == 0) throw;
            continue;
        }
        CORBA::release(*key);
        *key = forwarded ? forwarded : wanted._retn();
        return client;
    }
}

ZEBORBClient* ZEBORB::locate(DSProvider* provider, const CORBA_OctetSequence& key,
                             CORBA_OctetSequence** forward_key, const CORBA_BindOptions* options,
                             unsigned char first) {
    TBHeld<DSProvider> hold(provider);  // for the time of the call
    ZEBORBClient* client = clientAt(provider->address());
    const bool created = client == nullptr;
    if (created) {
        try {
            client = ZEBORBClient::create(provider, options);
        } catch (const CORBA_COMM_FAILURE&) {
            if (first) markSuspect(*provider);
            throw;
        }
    }
    NewClient made(client, created);

    IOP::IOR* raw = nullptr;
    IIOP::LocateStatusType status;
    try {
        status = client->locate(key, raw, options);
    } catch (const CORBA_SystemException&) {
        if (first) markSuspect(*provider);
        throw;
    }
    std::unique_ptr<IOP::IOR> ior(raw);
    if (status == IIOP::OBJECT_HERE) {
        made.keep();
        return client;
    }
    if (status != IIOP::OBJECT_FORWARD || !ior) throw CORBA_INTERNAL(0, CORBA::COMPLETED_NO);

    std::unique_ptr<IIOP::ObjectLocator> there(ZEBGlobalTable::getLocator(*ior));
    if (!there) throw CORBA_INV_OBJREF(0, CORBA::COMPLETED_NO);
    DSAddr where(there->port, there->host.in() ? there->host.in() : "");
    if (where.compare(client->provider().address()) == 0) {
        giveKey(forward_key, there->object_key);
        made.keep();
        return client;
    }
    // Elsewhere: the connection that only forwarded is of no more use, and
    // a new client made here goes when `made` does. The new provider has
    // no holder until the inner call takes it.
    ZEBORBClient* found = locate(new DSProvider(provider->name(), where, DS_PROTOCOL_DEFAULT, 0),
                                 there->object_key, forward_key, options, 0);
    if (!*forward_key) giveKey(forward_key, there->object_key);
    return found;
}

ZEBORBClient* ZEBORB::locate(const IIOP::ObjectLocator& locator,
                             CORBA_OctetSequence** forward_key,
                             const CORBA_BindOptions* options) {
    DSName name(kForeignObject, DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr);
    DSAddr addr(locator.port, locator.host.in() ? locator.host.in() : "");
    // The inner call takes the new provider's only reference.
    return locate(new DSProvider(name, addr, DS_PROTOCOL_DEFAULT, 0), locator.object_key,
                  forward_key, options, 0);
}
