// Implementation definitions: how a server program is known (interface and
// object name, reference data) and, for the daemon, how it is started (path,
// policy, arguments, environment). They are plain deep values; their stream
// form serves both the repository file and requests on the wire.
#ifndef KELVANOR_IMPLDEF_H
#define KELVANOR_IMPLDEF_H

#include <iosfwd>

#include <kelvanor/corba.h>
#include <kelvanor/sequence.h>

class TBistream;
class TBostream;

class CORBA_Object;
class CORBA_ImplementationDef;

// What a server hands the object adapter for a service: it makes the object
// that a request names when none exists yet, and hears when such an object
// goes. Never streamed.
class CORBA_Activator {
public:
    virtual ~CORBA_Activator();
    // The object for def (a new reference), or null if there is none.
    virtual CORBA_Object* activate(CORBA_ImplementationDef* def) = 0;
    virtual void deactivate(CORBA_Object* /*obj*/, CORBA_ImplementationDef* /*def*/) {}
};

class CORBA_ImplementationDef {
public:
    CORBA_ImplementationDef() {}
    CORBA_ImplementationDef(const char* interface_name, const char* object_name,
                            const CORBA_OctetSequence& id = CORBA_OctetSequence())
        : interface_name(interface_name), object_name(object_name), id(id) {}
    CORBA_ImplementationDef(const CORBA_ImplementationDef& other) = default;
    CORBA_ImplementationDef& operator=(const CORBA_ImplementationDef& other) = default;

    // A new object of the same class with the same values; the caller owns it.
    virtual CORBA_ImplementationDef* _copy() const;
    // The class's _class_info; type tests compare the pointer, not the text.
    virtual const char* _type_info() const;
    virtual ~CORBA_ImplementationDef();

    static const char* _desc() { return _class_info; }
    static const char* const _class_info;  // "CORBA::ImplementationDef"

    CORBA_String_var interface_name;  // e.g. "Activation::VEX"
    CORBA_String_var object_name;     // may be empty in lookups by interface
    CORBA_OctetSequence id;           // reference data, opaque to the daemon
};

class CORBA_CreationImplDef : public CORBA_ImplementationDef {
public:
    // Held in 32 bits; a value read from a stream is kept even if it is
    // beyond the last enumerator.
    enum Policy : CORBA::ULong {
        SHARED_SERVER = 0,      // one process serves all clients
        UNSHARED_SERVER = 1,    // a process per client request
        SERVER_PER_METHOD = 2   // treated like UNSHARED_SERVER by the daemon
    };

    CORBA_CreationImplDef() : activation_policy(SHARED_SERVER) {}
    CORBA_CreationImplDef(const char* interface_name, const char* object_name,
                          const CORBA_OctetSequence& id, const char* path,
                          Policy activation_policy = SHARED_SERVER,
                          const CORBA_StringSequence& args = CORBA_StringSequence(),
                          const CORBA_StringSequence& env = CORBA_StringSequence())
        : CORBA_ImplementationDef(interface_name, object_name, id), path(path),
          activation_policy(activation_policy), args(args), env(env) {}
    CORBA_CreationImplDef(const CORBA_CreationImplDef& other) = default;
    CORBA_CreationImplDef& operator=(const CORBA_CreationImplDef& other) = default;

    CORBA_CreationImplDef* _copy() const override;
    const char* _type_info() const override;
    ~CORBA_CreationImplDef() override;

    // A new deep copy if p is of exactly this class, else null (also for a
    // null p). Unlike the narrowing of references, the result is the
    // caller's and shares nothing with p.
    static CORBA_CreationImplDef* _narrow(const CORBA_ImplementationDef* p);

    static const char* _desc() { return _class_info; }
    static const char* const _class_info;  // "CORBA::CreationImplDef"

    CORBA_String_var path;        // full path of the executable
    Policy activation_policy;
    CORBA_StringSequence args;    // without the program name
    CORBA_StringSequence env;     // NAME=value; empty: inherit the daemon's
};

class CORBA_ActivationImplDef : public CORBA_ImplementationDef {
public:
    CORBA_ActivationImplDef() : activator(nullptr) {}
    CORBA_ActivationImplDef(const char* interface_name, const char* object_name,
                            const CORBA_OctetSequence& id, CORBA_Activator* activator)
        : CORBA_ImplementationDef(interface_name, object_name, id), activator(activator) {}
    CORBA_ActivationImplDef(const CORBA_ActivationImplDef& other) = default;
    CORBA_ActivationImplDef& operator=(const CORBA_ActivationImplDef& other) = default;

    // The copy shares the activator.
    CORBA_ActivationImplDef* _copy() const override;
    const char* _type_info() const override;
    ~CORBA_ActivationImplDef() override;

    // As CORBA_CreationImplDef::_narrow.
    static CORBA_ActivationImplDef* _narrow(const CORBA_ImplementationDef* p);

    static const char* _desc() { return _class_info; }
    static const char* const _class_info;  // "CORBA::ActivationImplDef"

    CORBA_Activator* activator;  // not owned
};

namespace CORBA {
// Delete p; null is ignored.
void release(CORBA_ImplementationDef* p);
void release(CORBA_CreationImplDef* p);
void release(CORBA_ActivationImplDef* p);
inline Boolean is_nil(const CORBA_ImplementationDef* p) { return p == nullptr; }
}  // namespace CORBA

// Owning pointers. A copy of a holder holds a deep copy.
template <class T>
class CORBA_ImplDefVarBase {
public:
    CORBA_ImplDefVarBase() : _ptr(nullptr) {}
    CORBA_ImplDefVarBase(T* p) : _ptr(p) {}
    CORBA_ImplDefVarBase(const CORBA_ImplDefVarBase& other)
        : _ptr(other._ptr ? other._ptr->_copy() : nullptr) {}
    ~CORBA_ImplDefVarBase() { CORBA::release(_ptr); }

    CORBA_ImplDefVarBase& operator=(T* p) {
        if (p != _ptr) {
            CORBA::release(_ptr);
            _ptr = p;
        }
        return *this;
    }
    CORBA_ImplDefVarBase& operator=(const CORBA_ImplDefVarBase& other) {
        if (this != &other) *this = other._ptr ? other._ptr->_copy() : nullptr;
        return *this;
    }

    T* operator->() const { return _ptr; }
    operator T*() const { return _ptr; }
    T* ptr() const { return _ptr; }
    T*& out() {
        *this = nullptr;
        return _ptr;
    }
    // Gives up ownership.
    T* _retn() {
        T* p = _ptr;
        _ptr = nullptr;
        return p;
    }

private:
    T* _ptr;
};

typedef CORBA_ImplDefVarBase<CORBA_ImplementationDef> CORBA_ImplementationDef_var;
typedef CORBA_ImplDefVarBase<CORBA_CreationImplDef> CORBA_CreationImplDef_var;
typedef CORBA_ImplDefVarBase<CORBA_ActivationImplDef> CORBA_ActivationImplDef_var;

// Stream form, no type tag: interface name, object name, reference data
// (unsigned long count, bytes), and for a creation definition the path, the
// policy as unsigned long, the arguments and the environment (each an
// unsigned long count and the strings). A null string goes out as "".
// The writers take a non-null pointer: callers that may hold null test it
// and raise CORBA_BAD_PARAM themselves.
TBostream& operator<<(TBostream& strm, const CORBA_ImplementationDef* p);
TBostream& operator<<(TBostream& strm, const CORBA_CreationImplDef* p);
// The readers make a new object and store it in p only once it is complete;
// the previous value of p is not freed. They pass on what the stream throws
// (CORBA_MARSHAL for data that cannot be right), and then nothing leaks.
TBistream& operator>>(TBistream& strm, CORBA_ImplementationDef*& p);
TBistream& operator>>(TBistream& strm, CORBA_CreationImplDef*& p);
// Holders: a null holder writes CORBA_BAD_PARAM; reading replaces the value.
TBostream& operator<<(TBostream& strm, const CORBA_ImplementationDef_var& v);
TBostream& operator<<(TBostream& strm, const CORBA_CreationImplDef_var& v);
TBistream& operator>>(TBistream& strm, CORBA_ImplementationDef_var& v);
TBistream& operator>>(TBistream& strm, CORBA_CreationImplDef_var& v);

// On cout, cerr and clog the text for people; on any other ostream the
// stream form.
std::ostream& operator<<(std::ostream& os, const CORBA_ImplementationDef* p);
std::ostream& operator<<(std::ostream& os, const CORBA_CreationImplDef* p);

#endif
