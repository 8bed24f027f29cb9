// any_echo_server [broker options]: Peer::AnyEcho (tests/peers/omniorb/
// anyecho.idl) for omniORB's client, its skeleton written by hand as
// generated ones are. Prints its reference and serves until a signal.
#include <iostream>

#include "any.h"
#include "boa.h"
#include "mstrm.h"
#include "orb.h"
#include "zebtype.h"

namespace {

class AnyEcho : public virtual CORBA_Object {
public:
    AnyEcho() { _init("anyecho", 0); }
    const CORBA_TypeInfo* _type_info() const override { return &_class_info; }
    void* _safe_narrow(const CORBA_TypeInfo& type) override {
        if (type == _class_info) return this;
        return CORBA_Object::_safe_narrow(type);
    }

    static void _echo(void* obj, CORBA_MarshalStream& strm, CORBA_OctetSequence*, const char*,
                      void* reply) {
        AnyEcho* self = static_cast<AnyEcho*>(obj);
        CORBA_Any a;
        strm >> a;
        strm.flushRead();
        self->_prepare_reply(reply);
        strm << a;
        strm.sendMessage(0);
    }

    static CORBA_TypeInfo _class_info;
    static CORBA_MethodDescription _methods[];
    static CORBA_TypeInfo _skel_info;
};

CORBA_TypeInfo AnyEcho::_class_info("Peer::AnyEcho", "IDL:Peer/AnyEcho:1.0", nullptr,
                                    &CORBA_Object::_desc(),
                                    static_cast<const CORBA_TypeInfo*>(nullptr));
CORBA_MethodDescription AnyEcho::_methods[] = {{"echo", &AnyEcho::_echo}};
CORBA_TypeInfo AnyEcho::_skel_info("Peer::AnyEcho", 1ul, AnyEcho::_methods);

}  // namespace

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        CORBA::BOA_ptr boa = orb->BOA_init(argc, argv);
        AnyEcho servant;
        boa->obj_is_ready(&servant, nullptr);
        CORBA_String_var ior(orb->object_to_string(&servant));
        std::cout << ior.in() << std::endl;
        boa->impl_is_ready(nullptr);
    } catch (const CORBA_Exception& e) {
        std::cerr << "any_echo_server: " << e << std::endl;
        return 1;
    }
    return 0;
}
