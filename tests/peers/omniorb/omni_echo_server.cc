// omni_echo_server: a Demo::Echo server built with omniORB. It listens on
// 127.0.0.1 unless an -ORBendPoint says otherwise, prints its reference and
// serves until a signal. Given "<interface>,<object>" (the daemon's last
// argument) it serves under Kelvanor's persistent key for that pair and
// reports to the daemon (N times with --reports N); __bind and __unbind get
// empty replies.
// Usage: omni_echo_server [-ORB options] [[--reports N] <interface>,<object>]
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include <unistd.h>

#include <echo.hh>
#include <omniORB4/IOP_S.h>
#include <omniORB4/callDescriptor.h>
#include <omniORB4/callHandle.h>

#include "omni_vex_naming.h"

namespace {

// Kelvanor's persistent object key: byte-order octet, "ZEB", tag 0, then the
// interface and object names as CDR strings. Padded with blanks as Kelvanor
// pads, since omniORB compares keys octet by octet.
PortableServer::ObjectId* persistentKey(const std::string& iface, const std::string& object) {
    const CORBA::ULong one = 1;
    std::string b(1, *reinterpret_cast<const char*>(&one));
    b += "ZEB";
    auto ulong = [&b](CORBA::ULong v) {
        while (b.size() % 4) b += ' ';
        b.append(reinterpret_cast<const char*>(&v), 4);
    };
    ulong(0);
    for (const std::string& s : {iface, object}) {
        ulong(static_cast<CORBA::ULong>(s.size() + 1));
        b.append(s.c_str(), s.size() + 1);
    }
    PortableServer::ObjectId* id = new PortableServer::ObjectId;
    id->length(static_cast<CORBA::ULong>(b.size()));
    std::memcpy(id->get_buffer(), b.data(), b.size());
    return id;
}

class EchoImpl : public POA_Demo::Echo {
public:
    char* say(const char* s) override { return CORBA::string_dup(s); }
    CORBA::Long pid() override { return static_cast<CORBA::Long>(getpid()); }
    void note(const char*) override {}

    CORBA::Boolean _dispatch(omniCallHandle& handle) override {
        const char* op = handle.operation_name();
        if (std::strcmp(op, "__bind") == 0 || std::strcmp(op, "__unbind") == 0) {
            // Nothing to read, nothing to write.
            omniCallDescriptor call([](omniCallDescriptor*, omniServant*) {}, op, std::strlen(op) + 1, 0,
                                    nullptr, 0, 1);
            handle.upcall(this, call);
            return 1;
        }
        return Demo::_impl_Echo::_dispatch(handle);
    }
};

// Reports obj to the daemon found through the naming service.
void report(CORBA::ORB_ptr orb, CORBA::Object_ptr obj, const std::string& iface, long times) {
    Activation::VEX_var vex = omniResolveVex(orb);
    if (CORBA::is_nil(vex)) {
        std::cerr << "omni_echo_server: no activation daemon" << std::endl;
        return;
    }
    for (long i = 0; i < times; ++i) {
        try {
            Activation::CreationImplDef_var def =
                vex->boa_activate_obj(obj, iface.c_str(), static_cast<CORBA::Long>(getpid()));
        } catch (const Activation::NotRegistered&) {
            // Not the daemon's: served all the same.
            std::cerr << "omni_echo_server: not registered" << std::endl;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    // omniORB's defaults otherwise: its references carry IIOP 1.2. An
    // explicit end point replaces ours: omniORB would listen on both.
    const char* options[][2] = {{"endPoint", "giop:tcp:127.0.0.1:"}, {nullptr, nullptr}};
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "-ORBendPoint") == 0) options[0][0] = options[0][1] = nullptr;
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
        long reports = 1;
        int next = 1;
        if (argc == 4 && std::strcmp(argv[1], "--reports") == 0) {
            reports = std::atol(argv[2]);
            next = 3;
        }
        const std::string pair = next < argc ? argv[next] : "";
        const std::string::size_type comma = pair.find(',');
        if (next < argc - 1 || (next == argc - 1 && comma == std::string::npos)) {
            std::cerr << "usage: omni_echo_server [-ORB options] [[--reports N] <interface>,<object>]\n";
            return 2;
        }

        PortableServer::Servant_var<EchoImpl> servant = new EchoImpl;
        CORBA::Object_var obj;
        PortableServer::POA_var poa;
        if (pair.empty()) {
            obj = orb->resolve_initial_references("RootPOA");
            poa = PortableServer::POA::_narrow(obj);
            PortableServer::ObjectId_var id = poa->activate_object(servant);
            obj = servant->_this();
        } else {
            // The INS adapter uses the object id as the object key unchanged,
            // which lets the key be Kelvanor's own.
            obj = orb->resolve_initial_references("omniINSPOA");
            poa = PortableServer::POA::_narrow(obj);
            PortableServer::ObjectId_var id =
                persistentKey(pair.substr(0, comma), pair.substr(comma + 1));
            poa->activate_object_with_id(id, servant);
            obj = poa->id_to_reference(id);
        }
        poa->the_POAManager()->activate();
        CORBA::String_var ior = orb->object_to_string(obj);
        std::cout << ior.in() << std::endl;
        if (!pair.empty()) report(orb, obj, pair.substr(0, comma), reports);
        orb->run();  // until a signal ends the process
        orb->destroy();
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_echo_server: " << e._name() << std::endl;
        return 1;
    }
    return 0;
}
