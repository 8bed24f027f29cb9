// The process-wide table: its parts made on first use, the open server
// connections, the service hooks, and the conversions between references,
// locators and IORs.
#include "zebglob.h"

#include <sys/resource.h>

#include <cstring>
#include <iostream>
#include <memory>
#include <vector>

#include "dispatch.h"
#include "dsaddr.h"
#include "dsdummyuser.h"
#include "except.h"
#include "giop.h"
#include "impldef.h"
#include "zebbclnt.h"
#include "zebboa.h"
#include "zeboid.h"
#include "zeborb.h"
#include "zebskel.h"
#include "zebstub.h"

using std::cout;
using std::endl;

ZEBSVCHandler::~ZEBSVCHandler() {}

// The set of connections and the defaults come before the table itself, so
// that they are still there when its destructor runs. The settings and their
// defaults live with the option parser.
CORBA::Boolean ZEBGlobalTable::_exiting = 0;

ZEBORB* ZEBGlobalTable::_orb = nullptr;
ZEBBOA* ZEBGlobalTable::_boa = nullptr;
DSUser* ZEBGlobalTable::_dsuser = nullptr;
ZEBClientEventHandler* ZEBGlobalTable::_clientEventHandler = nullptr;
ZEBImplEventHandler* ZEBGlobalTable::_implEventHandler = nullptr;
ZEBBindHandler* ZEBGlobalTable::_bindHandler = nullptr;
ZEBSVCHandler** ZEBGlobalTable::_handlers = nullptr;
unsigned long ZEBGlobalTable::_max_handlers = 0;
CORBA_OctetSequence ZEBGlobalTable::_principal;
CORBA_BindOptions ZEBGlobalTable::_bindOptions;
DSSet ZEBGlobalTable::_boaClientSet(16);
ZEBGlobalTable ZEBGlobalTable::_instance;

ZEBGlobalTable::ZEBGlobalTable() {}

ZEBGlobalTable::~ZEBGlobalTable() {
    if (this != &_instance) return;
    // The process is ending: connections go through their destructors, so
    // that bound clients are reported gone, but none of them may end the
    // process a second time.
    _exiting = 1;
    std::vector<ZEBBOAClient*> clients;
    DSIterator it(_boaClientSet);
    while (DSWrapper* w = TB_CAST(DSWrapper, it.next()))
        clients.push_back(static_cast<ZEBBOAClient*>(w->value));
    for (ZEBBOAClient* c : clients) delete c;
    delete _orb;
    _orb = nullptr;
    delete _boa;
    _boa = nullptr;
    if (_dsuser) _dsuser->close();
    delete[] _handlers;
    _handlers = nullptr;
    _max_handlers = 0;
    CORBA::release(current_object);
    current_object = nullptr;
}

ZEBGlobalTable* ZEBGlobalTable::instance() {
    if (!_boa) _boa = new ZEBBOA(*dpDispatcher::instance());
    if (!_orb) _orb = new ZEBORB;
    if (!_dsuser) {
        _dsuser = new DSDummyUser(nullptr, nullptr);
        if (agent_verbose) _dsuser->verbose(1);
    }
    return &_instance;
}

void ZEBGlobalTable::setAgentClient(DSUser* user) {
    if (_dsuser && _dsuser != user) _dsuser->close();
    _dsuser = user;
}

// ---- Connections.

void ZEBGlobalTable::addBOAClient(ZEBBOAClient* client) {
    _boaClientSet.add(*new DSWrapper(client));
}

void ZEBGlobalTable::removeBOAClient(ZEBBOAClient* client) {
    DSWrapper key(client);
    _boaClientSet.remove(key);
}

unsigned long ZEBGlobalTable::maxConnections() {
    if (boa_max_conn) return boa_max_conn;
    struct rlimit lim;
    unsigned long fds = 1024;
    if (getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < fds)
        fds = static_cast<unsigned long>(lim.rlim_cur);
    return fds > 64 ? fds - 32 : fds / 2;
}

void ZEBGlobalTable::releaseImpl(const ZEBSkelInfo& skel) {
    DSIterator it(_boaClientSet);
    while (DSWrapper* w = TB_CAST(DSWrapper, it.next()))
        static_cast<ZEBBOAClient*>(w->value)->releaseImpl(skel);
}

// ---- Service handlers.

void ZEBGlobalTable::register_svc_handler(unsigned long id, ZEBSVCHandler* handler) {
    if (id >= _max_handlers) {
        ZEBSVCHandler** grown = new ZEBSVCHandler*[id + 1]();
        for (unsigned long i = 0; i < _max_handlers; ++i) grown[i] = _handlers[i];
        delete[] _handlers;
        _handlers = grown;
        _max_handlers = id + 1;
    }
    _handlers[id] = handler;
}

void ZEBGlobalTable::unregister_svc_handler(unsigned long id) {
    if (id < _max_handlers) _handlers[id] = nullptr;
}

void ZEBGlobalTable::sending_request(CORBA_Object* obj, IIOP::RequestHeader& header,
                                     GIOPstream& strm) {
    for (unsigned long i = 0; i < _max_handlers; ++i)
        if (_handlers[i]) _handlers[i]->sending_request(obj, header, strm);
}

void ZEBGlobalTable::sending_reply(CORBA_Object* obj, IIOP::ReplyHeader& header,
                                   GIOPstream& strm) {
    for (unsigned long i = 0; i < _max_handlers; ++i)
        if (_handlers[i]) _handlers[i]->sending_reply(obj, header, strm);
}

void ZEBGlobalTable::send_failed(CORBA_Object* obj, IIOP::RequestHeader& header,
                                 CORBA_Environment& env) {
    for (unsigned long i = 0; i < _max_handlers; ++i)
        if (_handlers[i]) _handlers[i]->send_failed(obj, header, env);
}

void ZEBGlobalTable::receive_failed(CORBA_Object* obj, IIOP::RequestHeader& header,
                                    CORBA_Environment& env) {
    for (unsigned long i = 0; i < _max_handlers; ++i)
        if (_handlers[i]) _handlers[i]->receive_failed(obj, header, env);
}

void ZEBGlobalTable::received_reply(CORBA_Object* obj, IIOP::ReplyHeader& header,
                                    GIOPstream& strm) {
    if (_max_handlers == 0) return;
    for (CORBA::ULong i = 0; i < header.service_context.length(); ++i) {
        const IIOP::ServiceContext& c = header.service_context[i];
        if (c.context_id < _max_handlers && _handlers[c.context_id])
            _handlers[c.context_id]->received_reply(obj, header, c, strm);
    }
}

void ZEBGlobalTable::received_request(CORBA_Object* obj, IIOP::RequestHeader& header,
                                      GIOPstream& strm) {
    if (_max_handlers == 0) return;
    // A handler that calls out while it looks at a request does not bind.
    const CORBA::Boolean saved = call_bind_unbind;
    call_bind_unbind = 0;
    for (CORBA::ULong i = 0; i < header.service_context.length(); ++i) {
        const IIOP::ServiceContext& c = header.service_context[i];
        if (c.context_id < _max_handlers && _handlers[c.context_id])
            _handlers[c.context_id]->received_request(obj, header, c, strm);
    }
    call_bind_unbind = saved;
}

// ---- References.

IIOP::ObjectLocator* ZEBGlobalTable::getLocator(CORBA_Object* obj) {
    if (!obj) return nullptr;
    if (obj->_zeb_impl()->kind == ZEBObjectImpl::STUB) {
        return obj->_stub()->locator()->copy();
    }
    ZEBSkelInfo* skel = obj->_skeleton();
    if (!skel) return nullptr;
    std::unique_ptr<ZEBObjectId> id;
    const char* iface = obj->_interface_name();
    if (skel->_scope == CORBA_BOA::SCOPE_PROCESS)
        id.reset(new ZEBTransientId(iface, skel->_uid, skel->_created));
    else if (skel->isService())
        id.reset(new ZEBServiceId(skel->_impl->object_name.in(), skel->_impl->id));
    else
        id.reset(new ZEBPersistentId(iface, skel->objectName()));
    return ZEBSkelInfo::localLocator(*id);
}

IIOP::ObjectLocator* ZEBGlobalTable::getLocator(const IOP::IOR& ior) {
    for (CORBA::ULong i = 0; i < ior.profiles.length(); ++i) {
        if (ior.profiles[i].tag != IOP::TAG_INTERNET_IOP) continue;
        IIOP::ObjectLocator* loc = IIOP::ObjectLocator::convert(ior.profiles[i].profile_data);
        // Departs from the older rule that took IIOP 1.0 profiles only: every
        // current ORB publishes 1.1 or 1.2, whose host, port and key sit where
        // 1.0 has them, followed by tagged components that we do not need.
        // Any 1.x server must accept GIOP 1.0, so we talk 1.0 to it, and a
        // reference we write again from this locator is a 1.0 one. Another
        // major version is left for getObject to refuse.
        if (loc->iiop_version.major == IIOP::CURRENT_VERSION.major)
            loc->iiop_version = IIOP::CURRENT_VERSION;
        return loc;
    }
    return nullptr;
}

IOP::IOR* ZEBGlobalTable::getIOR(CORBA_Object* obj) {
    std::unique_ptr<IOP::IOR> ior(new IOP::IOR);
    if (!obj || obj->_is_nil()) return ior.release();
    const IIOP::ObjectLocator* loc = obj->_is_local() ? obj->_skeleton()->locator()
                                                      : obj->_stub()->locator();
    ior->type_id = obj->_repository_id();
    ior->profiles.length(1);
    ior->profiles[0].tag = IOP::TAG_INTERNET_IOP;
    CORBA_OctetSequence_var data(loc->convert());
    ior->profiles[0].profile_data = *data.ptr();
    return ior.release();
}

CORBA_Object* ZEBGlobalTable::getObject(const IOP::IOR& ior, const CORBA_TypeInfo* type) {
    std::unique_ptr<IIOP::ObjectLocator> loc(getLocator(ior));
    if (!loc) return nullptr;
    if (loc->iiop_version.major != IIOP::CURRENT_VERSION.major) {
        cout << "Kelvanor: Unknown IIOP version:" << endl;
        cout << "\tMajor: " << int(loc->iiop_version.major) << endl;
        cout << "\tMinor: " << int(loc->iiop_version.minor) << endl;
        cout << "Expecting version:" << endl;
        cout << "\tMajor: " << 1 << endl;
        cout << "\tMinor: " << 0 << endl;
        throw CORBA_INV_OBJREF(0, CORBA::COMPLETED_NO);
    }
    const CORBA_TypeInfo* found = nullptr;
    bool typeKnown = true;
    if (ZEBObjectId::isZEBKey(loc->object_key)) {
        ZEBBOA* boa = instance()->_boa;
        DSAddr where(loc->port, loc->host.in() ? loc->host.in() : "");
        const bool here = where.compare(*boa->address()) == 0;
        std::unique_ptr<ZEBObjectId> id;
        try {
            id.reset(ZEBObjectId::convert(loc->object_key));
        } catch (const CORBA_MARSHAL&) {
        }
        if (!id) {
            typeKnown = false;
        } else if (here) {
            ZEBSkelInfo* skel = boa->skelAt(*id);
            if (skel) {
                CORBA_Object* obj = skel->_object ? CORBA_Object::_duplicate(skel->_object)
                                                  : boa->createObjRef(skel);
                skel->unref();
                return obj;
            }
        }
    }
    bool fellBack = false;
    if (typeKnown) {
        found = CORBA_TypeInfo::type_info(ior.type_id.in());
        if (!found) {
            found = type ? type : &CORBA_Object::_desc();
            fellBack = true;
        }
    }
    if (!found) throw CORBA_INITIALIZE(0, CORBA::COMPLETED_NO);
    ZEBFactory factory = found->factory() ? found->factory() : &CORBA_Object::_factory;
    CORBA_Object* obj = factory();
    obj->_stub()->bind(loc.release(), 0);
    // Departs from the older rule, under which a reference passed on by a
    // process that did not know its type (the daemon handing out a server's
    // reference, above all) went out typed as the class it fell back to. A
    // typed client of another ORB would then have to ask the server with
    // _is_a before it could narrow.
    if (fellBack && ior.type_id.in() && *ior.type_id.in()) obj->_stub()->typeId(ior.type_id.in());
    return obj;
}

CORBA_Object* ZEBGlobalTable::makeObjRef(const char* interface_name, const char* object_name) {
    CORBA_Object* obj = CORBA_Object::_factory();
    std::unique_ptr<IIOP::ObjectLocator> loc(new IIOP::ObjectLocator);
    loc->iiop_version = IIOP::CURRENT_VERSION;
    loc->host = DSAddr(0).ntoa();
    loc->port = 0;
    CORBA_OctetSequence_var key(ZEBPersistentId(interface_name, object_name).convert());
    loc->object_key = *key.ptr();
    obj->_stub()->bind(loc.release(), 0);
    return obj;
}
