// Skeletons: how an object is known on the server side, and the dispatch of
// one request to its method.
#include "zebskel.h"

#include <cstring>
#include <ctime>
#include <memory>

#include "boa.h"
#include "dsaddr.h"
#include "except.h"
#include "giop.h"
#include "impldef.h"
#include "iorstr.h"
#include "mstrm.h"
#include "zebbclnt.h"
#include "zebboa.h"
#include "zebglob.h"
#include "zeboid.h"

TB_DEFINE_CLASS(ZEBSkelInfo, "ZEBSkelInfo", DSResource::desc());

ZEBSkelInfo::ZEBSkelInfo(CORBA_Object* object, const char* name) : _object(object), _name(name) {
    enter();
}

ZEBSkelInfo::ZEBSkelInfo(CORBA_ImplementationDef* def) {
    _impl = def->_copy();
    enter();
}

ZEBSkelInfo::ZEBSkelInfo(TBistream& strm) : DSResource(strm) {}

void ZEBSkelInfo::enter() {
    ZEBBOA* boa = ZEBGlobalTable::instance()->_boa;
    _uid = static_cast<CORBA::ULong>(boa->getUniqueId());
    _created = static_cast<CORBA::ULong>(time(nullptr));
    // The skeleton's own reference, dropped by release().
    TBResource::ref(this);
    boa->add(_uid, this);
    _scope = static_cast<CORBA::ULong>(CORBA_BOA::scope());
}

ZEBSkelInfo::~ZEBSkelInfo() {
    delete _locator;
    delete _impl;
}

unsigned ZEBSkelInfo::hash() const {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(this));
}

int ZEBSkelInfo::compare(const TBObject& other) const {
    const TBObject* self = this;
    if (self == &other) return 0;
    return reinterpret_cast<uintptr_t>(self) < reinterpret_cast<uintptr_t>(&other) ? -1 : 1;
}

const char* ZEBSkelInfo::objectName() const {
    if (_impl && _impl->object_name.in()) return _impl->object_name.in();
    return _name;
}

bool ZEBSkelInfo::isService() const {
    return _impl && _impl->interface_name.in() && std::strcmp(_impl->interface_name.in(), "*") == 0;
}

const CORBA_TypeInfo* ZEBSkelInfo::typeInfo() {
    if (!_type_info) {
        if (_object) _type_info = _object->_type_info();
        else if (_impl) _type_info = CORBA_TypeInfo::type_info(_impl->interface_name.in());
    }
    return _type_info;
}

const char* ZEBSkelInfo::ior() {
    if (_ior.length() == 0 && _object) {
        std::unique_ptr<IOP::IOR> ior(ZEBGlobalTable::getIOR(_object));
        CORBA_String_var text(iorToString(*ior));
        _ior = text.in();
    }
    return _ior;
}

IIOP::ObjectLocator* ZEBSkelInfo::localLocator(const ZEBObjectId& id) {
    std::unique_ptr<IIOP::ObjectLocator> loc(new IIOP::ObjectLocator);
    DSAddr* addr = ZEBGlobalTable::instance()->_boa->address();
    loc->iiop_version = IIOP::CURRENT_VERSION;
    loc->host = addr->ntoa();
    loc->port = static_cast<CORBA::UShort>(addr->port());
    CORBA_OctetSequence_var key(id.convert());
    loc->object_key = *key.ptr();
    return loc.release();
}

IIOP::ObjectLocator* ZEBSkelInfo::locator() {
    if (_locator) return _locator;
    const CORBA_TypeInfo* type = typeInfo();
    const char* iface = type ? type->interface_name() : "";
    std::unique_ptr<ZEBObjectId> id;
    if (_scope == CORBA_BOA::SCOPE_PROCESS) {
        id.reset(new ZEBTransientId(iface, _uid, _created));
    } else if (isService()) {
        id.reset(new ZEBServiceId(_impl->object_name.in(), _impl->id));
    } else {
        id.reset(new ZEBPersistentId(iface, _name));
    }
    _locator = localLocator(*id);
    return _locator;
}

void ZEBSkelInfo::implementation(CORBA_ImplementationDef* def) {
    if (!def) return;
    if (_impl) _impl->id = def->id;
    else _impl = def->_copy();
    if (def->_type_info() == CORBA_CreationImplDef::_desc())
        _policy = static_cast<const CORBA_CreationImplDef*>(def)->activation_policy;
    // The key depends on the record: build it again when next asked.
    delete _locator;
    _locator = nullptr;
    _ior = "";
}

void ZEBSkelInfo::release() {
    ZEBGlobalTable::instance()->_boa->remove(_uid);
    unref();
}

void ZEBSkelInfo::deactivate() {
    if (!_object || !_impl || _impl->_type_info() != CORBA_ActivationImplDef::_desc()) return;
    CORBA_ActivationImplDef* def = static_cast<CORBA_ActivationImplDef*>(_impl);
    if (def->activator) def->activator->deactivate(_object, def);
}

void ZEBSkelInfo::execute(GIOPstream& strm, IIOP::RequestHeader& header,
                          const ZEB_EXT::ConnectionInfo& peer, ZEBGlobalTable* table, void* reply) {
    if (_state != SKEL_ACTIVE) throw CORBA_NO_IMPLEMENT(1, CORBA::COMPLETED_NO);
    if (!_object) {
        if (!_impl || _impl->_type_info() != CORBA_ActivationImplDef::_desc())
            throw CORBA_INTERNAL(0, CORBA::COMPLETED_NO);
        CORBA_ActivationImplDef* def = static_cast<CORBA_ActivationImplDef*>(_impl);
        if (isService()) _object = __ServiceSkeleton::instance();
        else if (def->activator) _object = def->activator->activate(_impl);
        if (!_object) throw CORBA_OBJ_ADAPTER(0, CORBA::COMPLETED_NO);
        _type_info = nullptr;
    }

    const char* op = header.operation.in() ? header.operation.in() : "";
    void* servant;
    ZEBMethod method;
    if (_last_method && std::strcmp(op, _last_op) == 0) {
        servant = _last_servant;
        method = _last_method;
    } else {
        const CORBA_TypeInfo* owner = nullptr;
        method = _object->_type_info()->impl()->skeleton(op, owner, 0);
        if (!owner || !method) {
            strm.discardCurMsg();
            throw CORBA_BAD_OPERATION(0, CORBA::COMPLETED_NO);
        }
        servant = _object->_safe_narrow(*owner);
        if (!servant) {
            strm.discardCurMsg();
            throw CORBA_INTERNAL(0, CORBA::COMPLETED_NO);
        }
        _last_op = op;
        _last_servant = servant;
        _last_method = method;
    }

    // The servant may let go of itself during the call.
    CORBA_Object_var hold(CORBA_Object::_duplicate(_object));
    ZEBImplEventHandler* handler =
        _impl_handler ? _impl_handler : ZEBGlobalTable::_implEventHandler;
    if (handler) {
        handler->preMethod(&peer, &header.requesting_principal, op, _object);
        table->received_request(_object, header, strm);
        method(servant, strm, &header.requesting_principal, op, reply);
        handler->postMethod(&peer, &header.requesting_principal, op, _object);
    } else {
        table->received_request(_object, header, strm);
        method(servant, strm, &header.requesting_principal, op, reply);
    }
}

__ServiceSkeleton::__ServiceSkeleton() : CORBA_Object(nullptr, 0) {}

CORBA_Object* __ServiceSkeleton::instance() {
    // Made on first use and never destroyed: its skeleton lives as long as
    // the object adapter does.
    static __ServiceSkeleton* object = new __ServiceSkeleton;
    return object;
}
