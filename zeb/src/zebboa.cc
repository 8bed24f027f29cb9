// The object adapter: its tables, the life of an object from construction to
// ready to withdrawn, the agent's rows, and the server loop.
#include "zebboa.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <typeinfo>
#include <vector>

#include "Activation.h"
#include "dispatch.h"
#include "dsaddr.h"
#include "dsdummyuser.h"
#include "dsname.h"
#include "dsprovider.h"
#include "dsuser.h"
#include "except.h"
#include "impldef.h"
#include "object.h"
#include "vex_functions.h"
#include "zebbclnt.h"
#include "zebglob.h"
#include "zeboid.h"
#include "zebskel.h"
#include "zebstring.h"
#include "zebstub.h"

TB_DEFINE_CLASS(ZEBRefData, "ZEBRefData", DSResource::desc());

CORBA::Boolean ZEBBOA::_exit_loop = 0;

ZEBRefData::ZEBRefData(TBistream& strm)
    : DSResource(strm), _data(new CORBA_OctetSequence), _owned(true) {}

ZEBRefData::~ZEBRefData() {
    if (_owned) CORBA::release(_data);
}

unsigned ZEBRefData::hash() const { return _data ? _data->hash() : 0; }

int ZEBRefData::compare(const TBObject& other) const {
    if (other.classInfo() != desc()) return -1;
    const ZEBRefData& o = static_cast<const ZEBRefData&>(other);
    if (!_data || !o._data) return _data == o._data ? 0 : (_data ? 1 : -1);
    return _data->compare(*o._data);
}

namespace {

bool isStar(const char* s) { return s && std::strcmp(s, "*") == 0; }

// A dotted IPv4 address, which needs no resolver.
bool numericAddress(const char* s) {
    in_addr a;
    return s && inet_pton(AF_INET, s, &a) == 1;
}

// The inner dictionary stored under name in outer, made if missing.
DSDictionary* innerDict(DSDictionary& outer, const char* name, bool make) {
    ZEBString key(name);
    DSDictionary* inner = TB_CAST(DSDictionary, outer.atKey(key));
    if (!inner && make) {
        inner = new DSDictionary(16);
        outer.addAssoc(*new ZEBString(name), *inner);
    }
    return inner;
}

}  // namespace

ZEBBOA::ZEBBOA(dpDispatcher& d)
    : _objects(16), _types(16), _activators(16), _services(16), _dispatcher(d) {
    try {
        _listener.listen(ZEBGlobalTable::boa_port, ZEBGlobalTable::boa_ipaddr);
    } catch (const CORBA_SystemException& e) {
        // A server that cannot have its port cannot serve: fatal.
        std::cout << "Kelvanor: cannot listen on "
                  << (ZEBGlobalTable::boa_ipaddr ? ZEBGlobalTable::boa_ipaddr : "*") << ":"
                  << ZEBGlobalTable::boa_port << ": "
                  << (CORBA_BAD_PARAM::_narrow(&e) ? "unknown address"
                                                   : std::strerror(static_cast<int>(e.minor())))
                  << std::endl;
        exit(1);
    }
    if (ZEBGlobalTable::boa_ipaddr)
        _addr = new DSAddr(_listener.port(), ZEBGlobalTable::boa_ipaddr);
    else
        _addr = new DSAddr(_listener.port());
    TBResource::ref(_addr);
    _last_id = 0;
    d.link(_listener.fd(), dpDispatcher::ReadMask, this);
    _exit_loop = 0;
    _reserveFd = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

ZEBBOA::~ZEBBOA() {
    if (_acceptPaused) _dispatcher.stopTimer(this);
    if (_listener.fd() >= 0) _dispatcher.unlink(_listener.fd());
    if (_reserveFd >= 0) close(_reserveFd);
    // Skeletons made from an implementation belong to the adapter: nobody
    // else drops their own reference. Those of objects go with the objects.
    std::vector<ZEBSkelInfo*> owned;
    DSIterator it(_objects);
    while (DSAssoc* a = TB_CAST(DSAssoc, it.next())) {
        ZEBSkelInfo* skel = TB_CAST(ZEBSkelInfo, a->value);
        if (!skel->_object) owned.push_back(skel);
    }
    for (ZEBSkelInfo* skel : owned) skel->unref();
    TBResource::unref(_addr);
    CORBA::release(_vex);
}

int ZEBBOA::inputReady(int listenFd) {
    int fd = -1;
    try {
        _listener.accept(fd);
    } catch (const CORBA_SystemException& e) {
        // Out of descriptors or of kernel memory: the connection stays in
        // the backlog, select reports the listener ready again at once, and
        // the loop would spin printing the failure. Accepting pauses for a
        // tenth of a second instead; the clients wait in the backlog.
        const CORBA::ULong why = e.minor();
        if (why == EMFILE || why == ENFILE || why == ENOBUFS || why == ENOMEM) {
            // After a second of failures, the reserve lets the oldest waiting
            // client in only to close it: a backlog that never moves would
            // keep clients waiting for good.
            if ((why == EMFILE || why == ENFILE) && ++_acceptFailures > kShedAfter &&
                _reserveFd >= 0) {
                close(_reserveFd);
                int refused = ::accept(listenFd, nullptr, nullptr);
                if (refused >= 0) close(refused);
                _reserveFd = open("/dev/null", O_RDONLY | O_CLOEXEC);
            }
            _dispatcher.unlink(listenFd);
            _dispatcher.startTimer(0, 100000, this);
            _acceptPaused = true;
        }
        return 0;
    }
    _acceptFailures = 0;
    // Departs from the adapter's first rule, which took every connection:
    // past the limit one is closed at once, so that the descriptors left
    // serve files, children and the connections already there.
    if (ZEBGlobalTable::boaClientCount() >= ZEBGlobalTable::maxConnections()) {
        close(fd);
        return 0;
    }
    // The connection registers itself and lives until it deletes itself.
    new ZEBBOAClient(fd, this);
    return 0;
}

int ZEBBOA::idleListener() {
    const ZEBBOA* boa = ZEBGlobalTable::_boa;
    if (!boa || !boa->_objects.isEmpty() || !boa->_services.isEmpty() ||
        !boa->_activators.isEmpty())
        return -1;
    return boa->_listener.fd();
}

void ZEBBOA::timerExpired(long, long) {
    if (!_acceptPaused) return;
    _acceptPaused = false;
    if (_listener.fd() >= 0) _dispatcher.link(_listener.fd(), dpDispatcher::ReadMask, this);
}

unsigned long ZEBBOA::getUniqueId() {
    do {
        _last_id = static_cast<CORBA::ULong>(_last_id + 1);
    } while (_objects.includesKey(ZEBUniqueId(_last_id)));
    return _last_id;
}

void ZEBBOA::add(unsigned long id, ZEBSkelInfo* skel) {
    ZEBUniqueId* key = new ZEBUniqueId(id);
    TBResource::ref(key);
    DSAssoc* added = _objects.addAssoc(*key, *skel);
    TBResource::unref(key);
    if (!added) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
}

void ZEBBOA::remove(unsigned long id) { _remove(id); }

void ZEBBOA::_remove(unsigned long id) {
    ZEBUniqueId key(id);
    ZEBSkelInfo* skel = TB_CAST(ZEBSkelInfo, _objects.atKey(key));
    if (!skel) return;
    // Holds the skeleton while the tables let go of it.
    TBResource::ref(skel);
    ZEBGlobalTable::releaseImpl(*skel);
    if (skel->_state == ZEBSkelInfo::SKEL_ACTIVE) unregisterImpl(skel);
    if (!_objects.removeKey(key)) {
        TBResource::unref(skel);
        throw CORBA_INTERNAL(0, CORBA::COMPLETED_NO);
    }
    if (skel->_impl) {
        DSDictionary* inner = innerDict(_services, skel->_impl->object_name.in(), false);
        if (inner) {
            ZEBRefData data(&skel->_impl->id);
            if (inner->atKey(data) == skel) inner->removeKey(data);
            if (inner->isEmpty()) _services.removeKey(ZEBString(skel->_impl->object_name.in()));
        }
    }
    TBResource::unref(skel);
}

CORBA::Long ZEBBOA::releaseImpl(ZEBObjectImpl* impl) {
    if (impl->references != 0) --impl->references;
    if (impl->references == 0 && impl->skeleton) _remove(impl->skeleton->_uid);
    return impl->references;
}

void ZEBBOA::registerImpl(ZEBSkelInfo* skel) {
    if (skel->_state == ZEBSkelInfo::SKEL_ACTIVE) return;
    _registerType(skel->typeInfo(), skel->objectName(), skel);
    skel->_state = ZEBSkelInfo::SKEL_ACTIVE;
}

void ZEBBOA::unregisterImpl(ZEBSkelInfo* skel) {
    if (skel->_state != ZEBSkelInfo::SKEL_ACTIVE) return;
    _unregisterType(skel->typeInfo(), skel->objectName(), skel);
    skel->_state = ZEBSkelInfo::SKEL_INACTIVE;
}

void ZEBBOA::registerAllImpl() {
    DSIterator it(_objects);
    while (DSAssoc* a = TB_CAST(DSAssoc, it.next())) registerImpl(TB_CAST(ZEBSkelInfo, a->value));
}

void ZEBBOA::unregisterAllImpl() {
    DSIterator it(_objects);
    while (DSAssoc* a = TB_CAST(DSAssoc, it.next())) unregisterImpl(TB_CAST(ZEBSkelInfo, a->value));
}

void ZEBBOA::_registerType(const CORBA_TypeInfo* type, const char* object_name, ZEBSkelInfo* skel) {
    if (type && *type == CORBA_Object::_desc()) return;
    const char* iface = type ? type->interface_name() : "*";
    if (!object_name) object_name = "";
    if (skel->_scope != CORBA_BOA::SCOPE_PROCESS) {
        CORBA_ImplementationDef* def = _informVEX(iface, skel);
        if (def) {
            skel->implementation(def);
            delete def;
        } else {
            DSName* name = new DSName(skel->ior(), DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr);
            TBResource::ref(name);
            _registerImpl(iface, object_name, DS_SERVICE_OBJECT, nullptr, name);
            TBResource::unref(name);
        }
    }
    DSDictionary* inner = innerDict(_types, iface, true);
    inner->addAssoc(*new ZEBString(object_name), *skel);
    if (type) {
        ZEBTypeInfo* body = type->impl();
        for (unsigned long i = 0; i < body->base_count(); ++i)
            _registerType(body->base(i), object_name, skel);
    }
}

void ZEBBOA::_unregisterType(const CORBA_TypeInfo* type, const char* object_name,
                             ZEBSkelInfo* skel) {
    if (type && *type == CORBA_Object::_desc()) return;
    const char* iface = type ? type->interface_name() : "*";
    if (!object_name) object_name = "";
    if (skel->_scope != CORBA_BOA::SCOPE_PROCESS) {
        DSName* name = new DSName(skel->ior(), DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr);
        TBResource::ref(name);
        _unregisterImpl(iface, object_name, DS_SERVICE_OBJECT, nullptr, name);
        TBResource::unref(name);
    }
    if (type) {
        ZEBTypeInfo* body = type->impl();
        for (unsigned long i = 0; i < body->base_count(); ++i)
            _unregisterType(body->base(i), object_name, skel);
    }
    DSDictionary* inner = innerDict(_types, iface, false);
    if (!inner) return;
    ZEBString key(object_name);
    // Only this skeleton's row goes: another object of the same name that
    // got there first keeps its place.
    if (inner->atKey(key) == skel) inner->removeKey(key);
    if (inner->isEmpty()) _types.removeKey(ZEBString(iface));
}

CORBA_ImplementationDef* ZEBBOA::_informVEX(const char* interface_name, ZEBSkelInfo* skel) {
    // The daemon's own servant never reports to itself.
    if (isStar(interface_name) || std::strcmp(interface_name, "Activation::VEX") == 0)
        return nullptr;
    const CORBA::Long pid = static_cast<CORBA::Long>(getpid());
    if (!bind_to_vex()) return nullptr;
    // Every server reports, whether a daemon started it or not; the daemon
    // answers with its definition of the pair, or NotRegistered for one it
    // does not manage, which leaves the object to the agent.
    CORBA_Object_var ref(createObjRef(skel));
    for (;;) {
        try {
            return _vex->boa_activate_obj(ref, interface_name, pid);
        } catch (const CORBA_SystemException&) {
            // The daemon we knew is gone; the next report looks it up again.
            // A reference inherited from the daemon that started us is
            // stale: the naming service is asked at once.
            forgetVEX();
            if (forgetEnvironmentVEX() && bind_to_vex()) continue;
        } catch (const CORBA_Exception&) {
        }
        return nullptr;
    }
}

void ZEBBOA::forgetVEX() {
    CORBA::release(_vex);
    _vex = nullptr;
}

bool ZEBBOA::retryVEX(const CORBA_SystemException& e, int attempt) {
    forgetVEX();
    return attempt == 0 && e.completed() == CORBA::COMPLETED_NO && bind_to_vex();
}

bool ZEBBOA::bind_to_vex() {
    if (_vex) return true;
    try {
        _vex = resolveVEX(nullptr);
    } catch (const CORBA_SystemException&) {
        _vex = nullptr;
    }
    return _vex != nullptr;
}

void ZEBBOA::_agentRows(const char* iface, const char* object, int type, DSAddr* addr,
                        DSName* name, bool registering) {
    if (_exit_loop) return;
    DSUser* user = ZEBGlobalTable::instance()->_dsuser;
    if (!user) return;
    if (!addr) addr = _addr;
    bool named = registering ? (object && *object) : object != nullptr;
    // Exactly the null client: a class built on it may keep what it is told.
    if (typeid(*user) == typeid(DSDummyUser)) {
        // The null client forgets every row at once, so the rows are not
        // built for it: for the daemon that was half the time of loading a
        // large repository. The one thing building them shows, each
        // provider's two lookups of this machine's address (with a message
        // when the host name does not resolve), still happens, unless
        // -OAipaddr names a numeric address: then the host name plays no
        // part, and its lookup was the largest cost of a server's start.
        if (!numericAddress(ZEBGlobalTable::boa_ipaddr))
            for (int i = 0; i < 2 * (named ? 5 : 3); ++i) DSAddr here(0);
        return;
    }
    const int ifaceType = type == DS_SERVICE_OBJECT ? DS_SERVICE_OBJECT_INTERFACE
                                                 : DS_SERVICE_ACTIVATABLE_INTERFACE;
    ZEBString host(addr->ntoa());
    ZEBString rows[5] = {iface, iface, host & "_" & iface, ZEBString(), ZEBString()};
    if (named) {
        rows[3] = host & "_" & iface & "_" & object;
        rows[4] = ZEBString(iface) & "_" & object;
    }
    const int count = named ? 5 : 3;
    for (int i = 0; i < count; ++i) {
        // Names are counted resources that hold their data by reference:
        // everything here is made on the heap and let go through its count.
        DSResource* data = name;
        int rowType = type;
        if (i == 0) {
            rowType = ifaceType;
            if (object && *object) data = new DSName(object, DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr);
        }
        TBResource::ref(data);
        DSName* rowName = new DSName(rows[i], DS_ARG_DEFAULT, static_cast<DSServiceType>(rowType), data);
        TBResource::ref(rowName);
        DSProvider* provider = new DSProvider(*rowName, *addr, DS_PROTOCOL_DEFAULT, 0);
        TBResource::ref(provider);
        if (registering) user->registerProvider(provider);
        else user->removeProvider(provider);
        TBResource::unref(provider);
        TBResource::unref(rowName);
        TBResource::unref(data);
    }
}

void ZEBBOA::_registerImpl(const char* iface, const char* object, int type, DSAddr* addr,
                           DSName* name) {
    _agentRows(iface, object, type, addr, name, true);
}

void ZEBBOA::_unregisterImpl(const char* iface, const char* object, int type, DSAddr* addr,
                             DSName* name) {
    _agentRows(iface, object, type, addr, name, false);
}

ZEBSkelInfo* ZEBBOA::skelByNames(const char* iface, const char* object) {
    ZEBPersistentId id(iface, object);
    return skelAt(id);
}

void ZEBBOA::obj_is_ready(CORBA_Object* obj, CORBA_ImplementationDef* impl) {
    if (obj && obj->_is_local()) {
        ZEBSkelInfo* skel = obj->_skeleton();
        if (skel->isService()) {
            _addToServiceDict(skel->_impl->object_name.in(), obj);
        } else if (skel->_state != ZEBSkelInfo::SKEL_ACTIVE) {
            skel->_state = ZEBSkelInfo::SKEL_INACTIVE;
            registerImpl(skel);
        }
        return;
    }
    if (obj) {
        if (!impl) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
        obj_is_ready(nullptr, impl);
        return;
    }
    if (!impl) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    if (impl->_type_info() == CORBA_ActivationImplDef::_desc()) {
        ZEBSkelInfo* skel = new ZEBSkelInfo(impl);
        registerImpl(skel);
        return;
    }
    ZEBSkelInfo* skel = skelByNames(impl->interface_name.in(), impl->object_name.in());
    // The skeleton must exist: an object of these names made earlier.
    if (!skel) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    skel->unref();
    if (skel->_state != ZEBSkelInfo::SKEL_ACTIVE) {
        skel->_state = ZEBSkelInfo::SKEL_INACTIVE;
        registerImpl(skel);
    }
}

void ZEBBOA::impl_is_ready(CORBA_ImplementationDef* impl) {
    if (impl) obj_is_ready(nullptr, impl);
    while (!_exit_loop) _dispatcher.dispatch();
}

void ZEBBOA::impl_is_ready(const char* service, CORBA_Activator* activator, unsigned char block) {
    _activators.addAssoc(*new ZEBString(service), *new DSWrapper(activator));
    CORBA_ActivationImplDef def("*", service, CORBA_OctetSequence(), activator);
    obj_is_ready(nullptr, &def);
    if (block) impl_is_ready(nullptr);
}

void ZEBBOA::exit_impl_ready() { _exit_loop = 1; }

ZEBSkelInfo* ZEBBOA::skelAt(const ZEBObjectId& id) {
    ZEBSkelInfo* skel = nullptr;
    switch (id.type()) {
    case ZEBObjectId::ID_PERSISTENT: {
        const ZEBPersistentId& p = static_cast<const ZEBPersistentId&>(id);
        DSDictionary* inner = innerDict(_types, p.interface_name(), false);
        if (!inner) return nullptr;
        if (p.object_name().length() == 0) {
            // A bind by interface alone takes whichever object comes first.
            DSIterator it(*inner);
            DSAssoc* a = TB_CAST(DSAssoc, it.next());
            if (a) skel = TB_CAST(ZEBSkelInfo, a->value);
        } else {
            skel = TB_CAST(ZEBSkelInfo, inner->atKey(p.object_name()));
        }
        break;
    }
    case ZEBObjectId::ID_TRANSIENT: {
        const ZEBTransientId& t = static_cast<const ZEBTransientId&>(id);
        skel = TB_CAST(ZEBSkelInfo, _objects.atKey(ZEBUniqueId(t.unique_id())));
        if (skel && skel->_created != t.creation_time()) skel = nullptr;
        break;
    }
    case ZEBObjectId::ID_KEY: {
        const ZEBKeyId& k = static_cast<const ZEBKeyId&>(id);
        skel = TB_CAST(ZEBSkelInfo, _objects.atKey(ZEBUniqueId(k.unique_id())));
        break;
    }
    case ZEBObjectId::ID_SERVICE:
        return skelAt(static_cast<const ZEBServiceId&>(id));
    default:
        return nullptr;
    }
    TBResource::ref(skel);
    return skel;
}

ZEBSkelInfo* ZEBBOA::skelAt(const ZEBServiceId& id) {
    const char* service = id.service_name();
    DSDictionary* inner = innerDict(_services, service, false);
    CORBA_OctetSequence data(id.reference_data());
    if (inner) {
        ZEBRefData key(&data);
        ZEBSkelInfo* skel = TB_CAST(ZEBSkelInfo, inner->atKey(key));
        if (skel) {
            TBResource::ref(skel);
            return skel;
        }
    }
    DSWrapper* wrapper = TB_CAST(DSWrapper, _activators.atKey(ZEBString(service)));
    if (!wrapper || !wrapper->value) return nullptr;
    CORBA_Activator* activator = static_cast<CORBA_Activator*>(wrapper->value);
    CORBA_ImplementationDef def("*", service, data);
    CORBA_Object* obj = activator->activate(&def);
    if (!obj) return nullptr;
    ZEBSkelInfo* skel = _addToServiceDict(service, obj);
    TBResource::ref(skel);
    return skel;
}

ZEBSkelInfo* ZEBBOA::_addToServiceDict(const char* service, CORBA_Object* obj) {
    ZEBSkelInfo* skel = obj->_skeleton();
    if (!skel || !skel->_impl) return nullptr;
    DSDictionary* inner = innerDict(_services, service, true);
    inner->addAssoc(*new ZEBRefData(&skel->_impl->id), *skel);
    skel->_state = ZEBSkelInfo::SKEL_ACTIVE;
    return skel;
}

void ZEBBOA::deactivate_impl(CORBA_ImplementationDef* impl) {
    if (!impl) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    ZEBSkelInfo* skel = skelByNames(impl->interface_name.in(), impl->object_name.in());
    if (!skel) throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    if (skel->_state == ZEBSkelInfo::SKEL_ACTIVE) unregisterImpl(skel);
    skel->_state = ZEBSkelInfo::SKEL_DEACTIVATED;
    skel->unref();
}

void ZEBBOA::deactivate_obj(CORBA_Object* obj) {
    if (!obj || !obj->_is_local()) throw CORBA_INV_OBJREF(0, CORBA::COMPLETED_NO);
    ZEBSkelInfo* skel = obj->_skeleton();
    if (skel->_state == ZEBSkelInfo::SKEL_ACTIVE) unregisterImpl(skel);
    skel->_state = ZEBSkelInfo::SKEL_DEACTIVATED;
}

CORBA_Object* ZEBBOA::create(const CORBA_OctetSequence& id, CORBA_InterfaceDef*,
                             CORBA_ImplementationDef* impl) {
    if (!impl || impl->_type_info() != CORBA_CreationImplDef::_desc())
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    if (!bind_to_vex()) throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    CORBA_CreationImplDef* def = static_cast<CORBA_CreationImplDef*>(impl);
    def->id = id;
    for (int attempt = 0;; ++attempt) {
        try {
            return _vex->reg_implementation(def);
        } catch (const CORBA_SystemException& e) {
            if (!retryVEX(e, attempt)) throw;
        }
    }
}

void ZEBBOA::dispose(CORBA_Object* obj) {
    if (!obj) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    if (!obj->_is_local()) throw CORBA_NO_PERMISSION(0, CORBA::COMPLETED_NO);
    ZEBSkelInfo* skel = obj->_skeleton();
    // Deactivated first, so that unregisterImpl finds nothing to do and the
    // agent keeps the object's rows.
    skel->_state = ZEBSkelInfo::SKEL_DEACTIVATED;
    unregisterImpl(skel);
    if (!bind_to_vex()) return;
    const CORBA_TypeInfo* type = skel->typeInfo();
    const char* iface = type ? type->interface_name() : obj->_interface_name();
    for (int attempt = 0;; ++attempt) {
        try {
            _vex->unreg_implementation(iface, obj->_object_name());
            return;
        } catch (const CORBA_SystemException& e) {
            if (!retryVEX(e, attempt)) throw;
        }
    }
}

CORBA_OctetSequence* ZEBBOA::get_id(CORBA_Object* obj) {
    if (!obj || !obj->_is_local()) throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    ZEBSkelInfo* skel = obj->_skeleton();
    return skel->_impl ? new CORBA_OctetSequence(skel->_impl->id) : nullptr;
}

void ZEBBOA::change_implementation(CORBA_Object* obj, CORBA_ImplementationDef* impl) {
    if (!obj || !impl || impl->_type_info() != CORBA_CreationImplDef::_desc())
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    CORBA_ImplementationDef_var old(obj->_get_implementation());
    if (!old.ptr()) throw CORBA_NO_IMPLEMENT(0, CORBA::COMPLETED_NO);
    if (!bind_to_vex()) return;
    // The daemon finds the entry by the old definition's two names; one
    // that is not a creation definition is carried by those names alone.
    CORBA_CreationImplDef names(old->interface_name, old->object_name, old->id, "");
    CORBA_CreationImplDef* from = old->_type_info() == CORBA_CreationImplDef::_desc()
                                      ? static_cast<CORBA_CreationImplDef*>(old.ptr())
                                      : &names;
    for (int attempt = 0;; ++attempt) {
        try {
            _vex->change_implementation(from, static_cast<CORBA_CreationImplDef*>(impl));
            return;
        } catch (const CORBA_SystemException& e) {
            if (!retryVEX(e, attempt)) throw;
        }
    }
}

CORBA_OctetSequence* ZEBBOA::get_principal(CORBA_Object* obj, CORBA_Environment*) {
    ZEBGlobalTable* table = ZEBGlobalTable::instance();
    if (obj && obj == table->current_object)
        return table->current_principal ? new CORBA_OctetSequence(*table->current_principal)
                                        : nullptr;
    if (!table->current_object) {
        CORBA_OctetSequence* p = table->principal.ptr();
        if (p) p->_ref();
        return p;
    }
    return nullptr;
}

CORBA_Object* ZEBBOA::createObjRef(ZEBSkelInfo* skel) {
    if (skel->_object) return CORBA_Object::_duplicate(skel->_object);
    const CORBA_TypeInfo* type = skel->typeInfo();
    if (!type) type = &CORBA_Object::_desc();
    ZEBFactory factory = type->factory() ? type->factory() : &CORBA_Object::_factory;
    CORBA_Object* obj = factory();
    std::unique_ptr<ZEBObjectId> id;
    if (skel->_scope == CORBA_BOA::SCOPE_PROCESS)
        id.reset(new ZEBTransientId(type->interface_name(), skel->_uid, skel->_created));
    else if (skel->isService())
        id.reset(new ZEBPersistentId("*", skel->objectName()));
    else
        id.reset(new ZEBPersistentId(type->interface_name(), skel->objectName()));
    obj->_stub()->bind(ZEBSkelInfo::localLocator(*id), 0);
    return obj;
}
