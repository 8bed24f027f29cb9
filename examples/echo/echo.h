// Client and server classes of the interface Demo::Echo (echo.idl), in the
// shape the IDL compiler gives every interface: the stub class Demo::Echo
// with its _var, and the skeleton _sk_Demo::_sk_Echo that a servant derives
// from. Written by hand until the compiler exists; a servant written against
// it needs no change when the generated classes replace it.
#ifndef KELVANOR_EXAMPLE_ECHO_H
#define KELVANOR_EXAMPLE_ECHO_H

#include "corba.h"
#include "object.h"
#include "zebtype.h"

class CORBA_MarshalStream;
class TBistream;
class TBostream;

namespace Demo {

class Echo : public virtual CORBA_Object {
public:
    // A stub of the object of that name (null: any object of the interface).
    explicit Echo(const char* object_name = nullptr);
    explicit Echo(ZEBNoInit) {}
    ~Echo() override;

    static const CORBA_TypeInfo& _desc() { return _class_info; }
    const CORBA_TypeInfo* _type_info() const override;
    void* _safe_narrow(const CORBA_TypeInfo& type) override;
    static CORBA_Object* _factory();
    // Null for null and for an object of another interface; otherwise one
    // more reference to the object as an Echo.
    static Echo* _narrow(CORBA_Object* obj);
    static Echo* _duplicate(Echo* obj);
    static Echo* _nil() { return nullptr; }
    // The object itself when this process has it, else a stub bound by
    // names.
    static Echo* _bind(const char* object_name = nullptr, const char* host_name = nullptr,
                       const CORBA_BindOptions* options = nullptr);

    // The caller frees the result with CORBA::string_free.
    virtual char* say(const char* s);
    virtual CORBA::Long pid();
    virtual void note(const char* s);

    static CORBA_TypeInfo _class_info;
};

class Echo_var {
public:
    Echo_var() : _ptr(nullptr) {}
    Echo_var(Echo* p) : _ptr(p) {}
    Echo_var(const Echo_var& other) : _ptr(Echo::_duplicate(other._ptr)) {}
    ~Echo_var() { CORBA::release(_ptr); }
    Echo_var& operator=(Echo* p);
    Echo_var& operator=(const Echo_var& other);
    Echo* operator->() const { return _ptr; }
    operator Echo*() const { return _ptr; }
    Echo* in() const { return _ptr; }
    Echo* _retn();

private:
    Echo* _ptr;
};

TBistream& operator>>(TBistream& strm, Echo_var& v);
TBostream& operator<<(TBostream& strm, const Echo_var& v);

}  // namespace Demo

namespace _sk_Demo {

// Base of Demo::Echo servants: one method per operation, which reads the
// arguments, calls the servant and writes the reply.
class _sk_Echo : public Demo::Echo {
public:
    char* say(const char* s) override = 0;
    CORBA::Long pid() override = 0;
    void note(const char* s) override = 0;

    static void _say(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence* principal,
                     const char* operation, void* reply);
    static void _pid(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence* principal,
                     const char* operation, void* reply);
    static void _note(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence* principal,
                      const char* operation, void* reply);

    static CORBA_MethodDescription _methods[];
    static CORBA_TypeInfo _skel_info;

protected:
    // A local object of that name, entered in the object adapter.
    explicit _sk_Echo(const char* object_name = nullptr);
};

}  // namespace _sk_Demo

#endif
