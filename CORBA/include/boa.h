// The basic object adapter's interface. ZEBBOA is its one implementation;
// a program gets it from CORBA_ORB::BOA_init.
#ifndef KELVANOR_BOA_H
#define KELVANOR_BOA_H

#include <kelvanor/corba.h>

class CORBA_Activator;
class CORBA_Environment;
class CORBA_ImplementationDef;
class CORBA_Object;
class CORBA_OctetSequence;

// Not in this broker: the adapter takes the argument and ignores it.
class CORBA_InterfaceDef;

class CORBA_BOA {
public:
    // Who hears of a new object: SCOPE_AGENT objects are told to the daemon
    // and the agent and have keys that outlive the process; SCOPE_PROCESS
    // objects are known to this process alone. Any other value acts as
    // SCOPE_AGENT.
    enum RegistrationScope : CORBA::ULong { SCOPE_AGENT = 0, SCOPE_PROCESS = 1 };

    virtual ~CORBA_BOA();

    // Registers an implementation with the daemon; its reference.
    virtual CORBA_Object* create(const CORBA_OctetSequence& id, CORBA_InterfaceDef* intf,
                                 CORBA_ImplementationDef* impl) = 0;
    virtual void dispose(CORBA_Object* obj) = 0;
    // A new copy of the object's reference data, or null.
    virtual CORBA_OctetSequence* get_id(CORBA_Object* obj) = 0;
    virtual void change_implementation(CORBA_Object* obj, CORBA_ImplementationDef* impl) = 0;
    // The principal of the request being served for obj; the caller
    // releases it. Null when there is none.
    virtual CORBA_OctetSequence* get_principal(CORBA_Object* obj, CORBA_Environment* env) = 0;
    virtual void obj_is_ready(CORBA_Object* obj, CORBA_ImplementationDef* impl) = 0;
    // Serves until exit_impl_ready.
    virtual void impl_is_ready(CORBA_ImplementationDef* impl) = 0;
    virtual void impl_is_ready(const char* service, CORBA_Activator* activator,
                               unsigned char block) = 0;
    virtual void deactivate_impl(CORBA_ImplementationDef* impl) = 0;
    virtual void deactivate_obj(CORBA_Object* obj) = 0;
    virtual void exit_impl_ready() = 0;

    // The scope that skeletons made from now on take.
    static RegistrationScope scope();
    static void scope(RegistrationScope s);

protected:
    CORBA_BOA() = default;
};

#endif
