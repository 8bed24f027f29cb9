// Object references. CORBA_Object is what user code holds, on both sides of
// a connection: a thin shell around a ZEBObjectImpl that says whether it is a
// stub for a remote object, a local object with a skeleton, or nil. The
// shell is counted; the last release deletes it.
#ifndef KELVANOR_OBJECT_H
#define KELVANOR_OBJECT_H

#include <iosfwd>

#include <kelvanor/corba.h>
#include <kelvanor/sequence.h>
#include <kelvanor/zebtype.h>

class TBistream;
class TBostream;
class GIOPstream;
class CORBA_BOA;
class CORBA_Context;
class CORBA_NamedValue;
class CORBA_NVList;
class CORBA_Request;
class CORBA_ImplementationDef;
class ZEBStubInfo;
class ZEBSkelInfo;

// How a reference binds. Times are seconds, 0 for no limit.
struct CORBA_BindOptions {
    CORBA::Boolean defer_connect = 0;  // connect at the first call, not at bind
    CORBA::Boolean allow_rebind = 1;   // a lost connection may be made again
    CORBA::ULong locate_tries = 5;
    CORBA::ULong send_wait = 0;
    CORBA::ULong receive_wait = 0;
    CORBA::ULong connect_wait = 0;
};

// The body of a reference. The kind never changes after construction.
struct ZEBObjectImpl {
    enum Kind : CORBA::ULong { STUB = 0, LOCAL = 1, NIL = 2 };

    CORBA::ULong kind = NIL;
    ZEBStubInfo* stub = nullptr;      // kind STUB; owned
    ZEBSkelInfo* skeleton = nullptr;  // kind LOCAL; counted
    CORBA::Long references = 1;
};

// Tag for the constructors of generated classes that are not the most
// derived: the most derived class builds the reference, its bases don't.
enum ZEBNoInit { ZEB_NO_INIT };

class CORBA_Object {
public:
    // A stub (stub true) or a local object of that name (stub false); the
    // local object's skeleton enters the object adapter at once.
    CORBA_Object(const char* object_name, unsigned char stub);
    // Reads an IOP::IOR: a reference with an IIOP profile is a stub bound
    // to its locator, one without is nil.
    explicit CORBA_Object(TBistream& strm);

    // The type record of the most derived interface.
    virtual const CORBA_TypeInfo* _type_info() const;
    // This object seen as the interface of type, as a pointer to that
    // interface's class; null if it is not one. The result is not counted.
    virtual void* _safe_narrow(const CORBA_TypeInfo& type);
    // Starts the reply of the request being served (generated skeletons).
    virtual void _prepare_reply(void* reply);
    // Use _release(): the count decides when an object goes.
    virtual ~CORBA_Object();
    // Registers this local object as an object of a service.
    virtual void _service(const char* name, const CORBA_OctetSequence& data);
    // The stub's request path (generated stubs and dynamic requests).
    virtual GIOPstream* _create_request(const char* operation, unsigned char response_expected,
                                        unsigned int hash);
    virtual void _send();
    virtual GIOPstream* _invoke();

    // A new dynamic request (the caller releases it) for operation on this
    // object, with no arguments yet and an empty result.
    CORBA_Request* _request(const char* operation);
    // The same with the parts given (each taken with a reference of its
    // own; a null arguments or result list gets a new one), in request.
    void _create_request(CORBA_Context* ctx, const char* operation, CORBA_NVList* arguments,
                         CORBA_NamedValue* result, CORBA_Request*& request, CORBA::ULong flags);

    // Null stays null; otherwise one more reference and obj.
    static CORBA_Object* _duplicate(CORBA_Object* obj);
    static CORBA_Object* _nil() { return nullptr; }
    static CORBA_Object* _narrow(CORBA_Object* obj) { return _duplicate(obj); }
    // A new unbound stub of no name.
    static CORBA_Object* _factory();
    static const CORBA_TypeInfo& _desc() { return _class_info; }

    void _ref() { ++_impl->references; }
    // One reference less; deletes the object at 0. The count left, or -1
    // for nil.
    CORBA::Long _release();
    CORBA::Long _ref_count() const { return _impl->references; }

    CORBA::Boolean _is_local() const { return _impl->kind == ZEBObjectImpl::LOCAL; }
    CORBA::Boolean _is_nil() const { return _impl->kind == ZEBObjectImpl::NIL; }
    CORBA::Boolean _is_bound() const;
    CORBA::Boolean _is_persistent() const;
    CORBA_BOA* _boa() const;
    const char* _interface_name() const;
    const char* _object_name() const;
    void _object_name(const char* name);
    const char* _repository_id() const;
    const CORBA_OctetSequence& _principal() const;
    void _principal(const CORBA_OctetSequence& principal);
    static const CORBA_OctetSequence& _default_principal();
    static void _default_principal(const CORBA_OctetSequence& principal);
    const CORBA_BindOptions& _bind_options() const;
    void _bind_options(const CORBA_BindOptions& options);
    static const CORBA_BindOptions& _default_bind_options();
    static void _default_bind_options(const CORBA_BindOptions& options);
    // Kind STUB throws CORBA_NO_PERMISSION; a local object gives its
    // implementation record (the caller deletes the copy), else null.
    CORBA_ImplementationDef* _get_implementation() const;

    CORBA::Boolean _is_a(const char* repository_id);
    CORBA::Boolean _non_existent();
    // Hash of the repository id and object name, modulo maximum (0: whole).
    CORBA::ULong _hash(CORBA::ULong maximum);
    CORBA::Boolean _is_equivalent(CORBA_Object* other);
    // A stub becomes a new, unbound stub of the same type; others come back
    // as they are (not counted).
    CORBA_Object* __clone();

    // Built-in methods of every object's method table.
    static void __is_a(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence* principal,
                       const char* op, void* reply);
    static void __hash(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence* principal,
                       const char* op, void* reply);
    static void __non_existent(void* obj, CORBA_MarshalStream& strm,
                               CORBA_OctetSequence* principal, const char* op, void* reply);

    ZEBObjectImpl* _zeb_impl() const { return _impl; }
    ZEBStubInfo* _stub() const { return _impl->stub; }
    ZEBSkelInfo* _skeleton() const { return _impl->skeleton; }

    // Before any network: a local object of those names, or null.
    static CORBA_Object* _implementation(const char* interface_name, const char* object_name,
                                         const char* host);
    // Binds this stub by names. CORBA_BAD_OPERATION for a local object.
    void _bind(const char* interface_name, const char* object_name, const char* host,
               const CORBA_BindOptions* options);

    static CORBA_TypeInfo _class_info;

protected:
    // For generated classes: the most derived constructor calls _init once.
    CORBA_Object() = default;
    void _init(const char* object_name, unsigned char stub);
    // A nil reference (kind NIL) without a stub or skeleton.
    void _init_nil();

private:
    CORBA_Object(const CORBA_Object&) = delete;
    CORBA_Object& operator=(const CORBA_Object&) = delete;

    ZEBObjectImpl* _impl = nullptr;
};

namespace CORBA {
typedef CORBA_Object* Object_ptr;
inline void release(CORBA_Object* obj) {
    if (obj) obj->_release();
}
inline Boolean is_nil(const CORBA_Object* obj) { return obj == nullptr || obj->_is_nil(); }
}  // namespace CORBA

// Owns one reference.
class CORBA_Object_var {
public:
    CORBA_Object_var() : _ptr(nullptr) {}
    CORBA_Object_var(CORBA_Object* p) : _ptr(p) {}
    CORBA_Object_var(const CORBA_Object_var& other)
        : _ptr(CORBA_Object::_duplicate(other._ptr)) {}
    ~CORBA_Object_var() { CORBA::release(_ptr); }
    // Adopts p: one reference is released even when p is the pointer held,
    // since the caller hands over a reference of its own (a copy of the
    // holder into itself duplicates first, then lets the old one go).
    CORBA_Object_var& operator=(CORBA_Object* p) {
        CORBA::release(_ptr);
        _ptr = p;
        return *this;
    }
    CORBA_Object_var& operator=(const CORBA_Object_var& other) {
        if (this != &other) *this = CORBA_Object::_duplicate(other._ptr);
        return *this;
    }
    CORBA_Object* operator->() const { return _ptr; }
    operator CORBA_Object*() const { return _ptr; }
    CORBA_Object* in() const { return _ptr; }
    CORBA_Object* _retn() {
        CORBA_Object* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    CORBA_Object* _ptr;
};

// 0 for null, else _hash with all bits of the maximum.
CORBA::ULong hash(CORBA_Object* obj);
// Compares the two pointers.
long compare(CORBA_Object* a, CORBA_Object* b);

// On cout, cerr and clog the names for people ("(nil)" for null); on any
// other ostream the stringified reference.
std::ostream& operator<<(std::ostream& os, CORBA_Object* obj);
// The reference's IOR; a null pointer writes the nil IOR.
TBostream& operator<<(TBostream& strm, CORBA_Object* obj);
// A new reference (a local object of this process, or a stub); null for
// the nil IOR.
TBistream& operator>>(TBistream& strm, CORBA_Object*& obj);

#endif
