// Object references: construction, counting, the questions every object
// answers (_is_a, _hash, _non_existent), narrowing, and stream forms.
#include "object.h"

#include <cstring>
#include <iostream>
#include <memory>

#include "boa.h"
#include "except.h"
#include "giop.h"
#include "impldef.h"
#include "iorstr.h"
#include "mstrm.h"
#include "tbiostrm.h"
#include "zebbclnt.h"
#include "zebboa.h"
#include "zebglob.h"
#include "zeboid.h"
#include "zebskel.h"
#include "zebstub.h"

CORBA_TypeInfo CORBA_Object::_class_info("CORBA::Object", "IDL:omg.org/CORBA/Object:1.0",
                                         &CORBA_Object::_factory, nullptr);

namespace {

// The operations every object answers, whatever its interface.
CORBA_MethodDescription objectMethods[] = {
    {"_is_a", &CORBA_Object::__is_a},
    {"_hash", &CORBA_Object::__hash},
    {"_non_existent", &CORBA_Object::__non_existent},
};
CORBA_TypeInfo objectSkeleton("CORBA::Object", 3, objectMethods);

bool namedKind(CORBA::ULong kind) {
    return kind == ZEBStubInfo::KIND_NAMED || kind == ZEBStubInfo::KIND_TRANSIENT ||
           kind == ZEBStubInfo::KIND_SERVICE;
}

}  // namespace

CORBA_Object::CORBA_Object(const char* object_name, unsigned char stub) {
    _init(object_name, stub);
}

CORBA_Object::CORBA_Object(TBistream& strm) {
    IOP::IOR ior;
    strm >> ior;
    IIOP::ObjectLocator* locator = ZEBGlobalTable::getLocator(ior);
    if (!locator) {
        _init_nil();
        return;
    }
    _init(nullptr, 1);
    _impl->stub->bind(locator, 0);
}

void CORBA_Object::_init(const char* object_name, unsigned char stub) {
    _impl = new ZEBObjectImpl;
    if (stub) {
        _impl->kind = ZEBObjectImpl::STUB;
        _impl->stub = new ZEBStubInfo(this);
        if (object_name) _impl->stub->object_name(object_name);
    } else {
        _impl->kind = ZEBObjectImpl::LOCAL;
        _impl->skeleton = new ZEBSkelInfo(this, object_name);
    }
}

void CORBA_Object::_init_nil() {
    _impl = new ZEBObjectImpl;
    _impl->kind = ZEBObjectImpl::NIL;
}

CORBA_Object::~CORBA_Object() {
    if (!_impl) return;
    ZEBStubInfo* stub = _impl->stub;
    if (_impl->kind == ZEBObjectImpl::STUB && stub) {
        if (ZEBGlobalTable::call_bind_unbind && stub->isBound() && namedKind(stub->kind())) {
            // The server hears that this client is gone; a dead connection
            // is no reason to fail a release.
            try {
                GIOPstream* s = stub->create_request("__unbind", 0, 0);
                stub->send(0);
                s->flushRead();
            } catch (const CORBA_SystemException&) {
            }
        }
        _impl->stub = nullptr;
        stub->release();
    } else if (_impl->skeleton) {
        ZEBSkelInfo* skel = _impl->skeleton;
        _impl->skeleton = nullptr;
        skel->_object = nullptr;
        skel->release();
    }
    delete _impl;
}

const CORBA_TypeInfo* CORBA_Object::_type_info() const { return &_class_info; }

void* CORBA_Object::_safe_narrow(const CORBA_TypeInfo& type) {
    if (type == _class_info) return this;
    if (_impl->kind != ZEBObjectImpl::STUB) return nullptr;
    if (ZEBGlobalTable::check_narrow && !_is_a(type.repository_id())) return nullptr;
    ZEBFactory factory = type.factory();
    if (!factory) return nullptr;
    CORBA_Object* narrowed = factory();
    *narrowed->_impl->stub = *_impl->stub;
    void* result = narrowed->_safe_narrow(type);
    // The caller takes its own reference on what it keeps (_narrow does);
    // this one was only needed to build the object.
    if (result) narrowed->_impl->references = 0;
    else narrowed->_release();
    return result;
}

void CORBA_Object::_prepare_reply(void* reply) { ZEBBOAClient::prepareReply(reply); }

void CORBA_Object::_service(const char* name, const CORBA_OctetSequence& data) {
    CORBA_ImplementationDef def("*", name, data);
    if (_impl->skeleton) _impl->skeleton->implementation(&def);
}

GIOPstream* CORBA_Object::_create_request(const char* operation, unsigned char response_expected,
                                          unsigned int hash) {
    if (!_impl->stub) throw CORBA_BAD_OPERATION(0, CORBA::COMPLETED_NO);
    return _impl->stub->create_request(operation, response_expected, hash);
}

void CORBA_Object::_send() {
    if (!_impl->stub) throw CORBA_BAD_OPERATION(0, CORBA::COMPLETED_NO);
    _impl->stub->send(0);
}

GIOPstream* CORBA_Object::_invoke() {
    if (!_impl->stub) throw CORBA_BAD_OPERATION(0, CORBA::COMPLETED_NO);
    return _impl->stub->invoke();
}

CORBA_Object* CORBA_Object::_duplicate(CORBA_Object* obj) {
    if (obj) obj->_ref();
    return obj;
}

CORBA_Object* CORBA_Object::_factory() { return new CORBA_Object(nullptr, 1); }

CORBA::Long CORBA_Object::_release() {
    CORBA::Long left;
    switch (_impl->kind) {
    case ZEBObjectImpl::STUB:
        if (_impl->references != 0) --_impl->references;
        left = _impl->references;
        break;
    case ZEBObjectImpl::LOCAL:
        left = ZEBGlobalTable::instance()->_boa->releaseImpl(_impl);
        break;
    default:
        // A nil reference is counted like a stub, so that one read from a
        // stream is freed by its last release instead of being lost.
        if (_impl->references != 0) --_impl->references;
        if (_impl->references == 0) delete this;
        return -1;
    }
    if (left == 0) delete this;
    return left;
}

CORBA::Boolean CORBA_Object::_is_bound() const { return _impl->stub && _impl->stub->isBound(); }

CORBA::Boolean CORBA_Object::_is_persistent() const {
    if (_impl->kind == ZEBObjectImpl::STUB) return _impl->stub->kind() != ZEBStubInfo::KIND_TRANSIENT;
    return _impl->skeleton && _impl->skeleton->_scope != CORBA_BOA::SCOPE_PROCESS;
}

CORBA_BOA* CORBA_Object::_boa() const { return ZEBGlobalTable::instance()->_boa; }

const char* CORBA_Object::_interface_name() const {
    if (_impl->kind == ZEBObjectImpl::STUB) return _impl->stub->interface_name();
    if (_impl->kind == ZEBObjectImpl::LOCAL) return _type_info()->interface_name();
    return nullptr;
}

const char* CORBA_Object::_object_name() const {
    if (_impl->kind == ZEBObjectImpl::STUB) return _impl->stub->object_name();
    if (_impl->kind == ZEBObjectImpl::LOCAL) return _impl->skeleton->objectName();
    return nullptr;
}

void CORBA_Object::_object_name(const char* name) {
    if (_impl->stub) _impl->stub->object_name(name);
    else if (_impl->skeleton) _impl->skeleton->_name = name;
}

const char* CORBA_Object::_repository_id() const {
    if (_impl->kind == ZEBObjectImpl::STUB)
        if (const char* id = _impl->stub->typeId()) return id;
    return _type_info()->repository_id();
}

const CORBA_OctetSequence& CORBA_Object::_principal() const {
    if (_impl->kind == ZEBObjectImpl::STUB) return _impl->stub->principal();
    ZEBGlobalTable* table = ZEBGlobalTable::instance();
    if (!table->principal.ptr()) table->principal = new CORBA_OctetSequence;
    return *table->principal.ptr();
}

void CORBA_Object::_principal(const CORBA_OctetSequence& principal) {
    if (_impl->kind == ZEBObjectImpl::STUB) _impl->stub->principal(principal);
    else ZEBGlobalTable::instance()->principal = new CORBA_OctetSequence(principal);
}

const CORBA_OctetSequence& CORBA_Object::_default_principal() { return ZEBGlobalTable::_principal; }

void CORBA_Object::_default_principal(const CORBA_OctetSequence& principal) {
    ZEBGlobalTable::_principal = principal;
}

const CORBA_BindOptions& CORBA_Object::_bind_options() const {
    return _impl->stub ? _impl->stub->bindOptions() : ZEBGlobalTable::_bindOptions;
}

void CORBA_Object::_bind_options(const CORBA_BindOptions& options) {
    if (_impl->stub) _impl->stub->bindOptions(options);
}

const CORBA_BindOptions& CORBA_Object::_default_bind_options() { return ZEBGlobalTable::_bindOptions; }

void CORBA_Object::_default_bind_options(const CORBA_BindOptions& options) {
    ZEBGlobalTable::_bindOptions = options;
}

CORBA_ImplementationDef* CORBA_Object::_get_implementation() const {
    if (_impl->kind == ZEBObjectImpl::STUB) throw CORBA_NO_PERMISSION(0, CORBA::COMPLETED_NO);
    if (_impl->kind == ZEBObjectImpl::LOCAL && _impl->skeleton->_impl)
        return _impl->skeleton->_impl->_copy();
    return nullptr;
}

CORBA::Boolean CORBA_Object::_is_a(const char* repository_id) {
    if (repository_id && _type_info()->impl()->is_a(repository_id)) return 1;
    if (_impl->kind != ZEBObjectImpl::STUB) return 0;
    GIOPstream* s = _create_request("_is_a", 1, 1);
    *s << repository_id;
    s = _invoke();
    CORBA::Boolean result = 0;
    *s >> result;
    s->flushRead();
    return result;
}

CORBA::Boolean CORBA_Object::_non_existent() {
    if (_impl->kind != ZEBObjectImpl::STUB) return 0;
    _create_request("_non_existent", 1, 0);
    GIOPstream* s = _invoke();
    CORBA::Boolean result = 0;
    *s >> result;
    s->flushRead();
    return result;
}

CORBA::ULong CORBA_Object::_hash(CORBA::ULong maximum) {
    CORBA::ULong h = ZEBString(_repository_id()).hash();
    const char* name = _object_name();
    if (name) h ^= ZEBString(name).hash();
    return maximum == 0 ? h : h % maximum;
}

CORBA::Boolean CORBA_Object::_is_equivalent(CORBA_Object* other) {
    if (other == this) return 1;
    if (!other || _impl->kind != ZEBObjectImpl::STUB || other->_impl->kind != ZEBObjectImpl::STUB)
        return 0;
    ZEBStubInfo* a = _impl->stub;
    ZEBStubInfo* b = other->_impl->stub;
    if (std::strcmp(a->interface_name(), b->interface_name()) != 0) return 0;
    const IIOP::ObjectLocator* la = a->locator();
    const IIOP::ObjectLocator* lb = b->locator();
    const char* ha = la->host.in() ? la->host.in() : "";
    const char* hb = lb->host.in() ? lb->host.in() : "";
    return std::strcmp(ha, hb) == 0 && la->port == lb->port &&
           la->object_key.compare(lb->object_key) == 0;
}

CORBA_Object* CORBA_Object::__clone() {
    if (_impl->kind != ZEBObjectImpl::STUB) return this;
    ZEBFactory factory = _type_info()->factory();
    CORBA_Object* copy = factory ? factory() : _factory();
    copy->_impl->stub->clone(*_impl->stub);
    return copy;
}

void CORBA_Object::__is_a(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence*, const char*,
                          void* reply) {
    CORBA_Object* self = static_cast<CORBA_Object*>(obj);
    CORBA_String_var id;
    strm >> id.inout();
    strm.flushRead();
    CORBA::Boolean result = self->_is_a(id);
    self->_prepare_reply(reply);
    strm << result;
    strm.sendMessage(0);
}

void CORBA_Object::__hash(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence*, const char*,
                          void* reply) {
    CORBA_Object* self = static_cast<CORBA_Object*>(obj);
    CORBA::ULong maximum = 0;
    strm >> maximum;
    strm.flushRead();
    CORBA::ULong result = self->_hash(maximum);
    self->_prepare_reply(reply);
    strm << result;
    strm.sendMessage(0);
}

void CORBA_Object::__non_existent(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence*,
                                  const char*, void* reply) {
    CORBA_Object* self = static_cast<CORBA_Object*>(obj);
    strm.flushRead();
    CORBA::Boolean result = self->_non_existent();
    self->_prepare_reply(reply);
    strm << result;
    strm.sendMessage(0);
}

CORBA_Object* CORBA_Object::_implementation(const char* interface_name, const char* object_name,
                                            const char* host) {
    if (host) return nullptr;
    ZEBPersistentId id(interface_name, object_name);
    ZEBSkelInfo* skel = ZEBGlobalTable::instance()->_boa->skelAt(id);
    if (skel) {
        CORBA_Object* obj = skel->_object;
        skel->unref();
        if (obj) return obj;
    }
    return nullptr;
}

void CORBA_Object::_bind(const char* interface_name, const char* object_name, const char* host,
                         const CORBA_BindOptions* options) {
    if (_impl->kind != ZEBObjectImpl::STUB) throw CORBA_BAD_OPERATION(0, CORBA::COMPLETED_NO);
    _impl->stub->bind(interface_name, object_name, host, 0, options, 1);
}

CORBA::ULong hash(CORBA_Object* obj) { return obj ? obj->_hash(0xffffffffu) : 0; }

long compare(CORBA_Object* a, CORBA_Object* b) {
    return static_cast<long>(reinterpret_cast<intptr_t>(a) - reinterpret_cast<intptr_t>(b));
}

std::ostream& operator<<(std::ostream& os, CORBA_Object* obj) {
    if (ZEBisConsole(os)) {
        if (!obj) return os << "(nil)" << std::endl;
        const char* name = obj->_object_name();
        os << "Interface name: " << (obj->_interface_name() ? obj->_interface_name() : "")
           << std::endl;
        os << "Object name: " << (name && *name ? name : "NONE") << std::endl;
        return os;
    }
    std::unique_ptr<IOP::IOR> ior(obj ? ZEBGlobalTable::getIOR(obj) : new IOP::IOR);
    CORBA_String_var text(iorToString(*ior));
    return os << text.in();
}

TBostream& operator<<(TBostream& strm, CORBA_Object* obj) {
    std::unique_ptr<IOP::IOR> ior(obj ? ZEBGlobalTable::getIOR(obj) : new IOP::IOR);
    return strm << *ior;
}

TBistream& operator>>(TBistream& strm, CORBA_Object*& obj) {
    IOP::IOR ior;
    strm >> ior;
    obj = ior.profiles.length() == 0 ? nullptr : ZEBGlobalTable::getObject(ior, nullptr);
    return strm;
}
