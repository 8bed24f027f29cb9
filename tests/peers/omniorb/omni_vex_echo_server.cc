// omni_vex_echo_server: a Demo::Echo server built with omniORB that the
// activation daemon starts like one of Kelvanor's own servers. The daemon
// passes "<interface>,<object>" as the last argument; the object is served
// under Kelvanor's persistent key for that pair, so clients that bind by
// names reach it, and the server reports it to the daemon with
// boa_activate_obj. Kelvanor clients announce themselves with __bind and
// __unbind; both are answered with an empty reply. The reference goes to
// stdout, and the server runs until a signal.
// Usage: omni_vex_echo_server [-ORB options] [--reports N] <interface>,<object>
//   --reports N  report N times (default 1), to try the daemon with repeats
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

// Kelvanor's persistent object key: a CDR encapsulation of the byte-order
// octet, "ZEB", the tag 0 as an unsigned long, then the interface name and
// the object name as CDR strings. Alignment counts from the first octet,
// and Kelvanor pads with blanks: CDR leaves padding open, but omniORB
// compares keys octet by octet, and clients that bind by names send the
// key as Kelvanor writes it.
class KeyWriter {
public:
    void octet(unsigned char c) { _bytes.push_back(static_cast<char>(c)); }
    void ulong(CORBA::ULong v) {
        while (_bytes.size() % 4) _bytes.push_back(' ');
        for (int i = 0; i < 4; ++i) {
            // In the host's order, which the first octet declares.
            const int shift = _little ? 8 * i : 8 * (3 - i);
            octet(static_cast<unsigned char>((v >> shift) & 0xff));
        }
    }
    void string(const std::string& s) {
        ulong(static_cast<CORBA::ULong>(s.size() + 1));
        _bytes.append(s.c_str(), s.size() + 1);
    }
    bool little() const { return _little; }
    const std::string& bytes() const { return _bytes; }

private:
    bool _little = [] {
        const CORBA::ULong one = 1;
        return *reinterpret_cast<const unsigned char*>(&one) == 1;
    }();
    std::string _bytes;
};

PortableServer::ObjectId* persistentKey(const std::string& iface, const std::string& object) {
    KeyWriter w;
    w.octet(w.little() ? 1 : 0);
    w.octet('Z');
    w.octet('E');
    w.octet('B');
    w.ulong(0);
    w.string(iface);
    w.string(object);
    const std::string& b = w.bytes();
    PortableServer::ObjectId* id = new PortableServer::ObjectId;
    id->length(static_cast<CORBA::ULong>(b.size()));
    for (CORBA::ULong i = 0; i < id->length(); ++i) (*id)[i] = static_cast<CORBA::Octet>(b[i]);
    return id;
}

// The body of __bind and __unbind: nothing to read, nothing to write.
void announced(omniCallDescriptor*, omniServant*) {}

class EchoImpl : public POA_Demo::Echo {
public:
    char* say(const char* s) override { return CORBA::string_dup(s); }
    CORBA::Long pid() override { return static_cast<CORBA::Long>(getpid()); }
    void note(const char*) override {}

    CORBA::Boolean _dispatch(omniCallHandle& handle) override {
        const char* op = handle.operation_name();
        if (std::strcmp(op, "__bind") == 0 || std::strcmp(op, "__unbind") == 0) {
            omniCallDescriptor call(announced, op, std::strlen(op) + 1, 0, nullptr, 0, 1);
            handle.upcall(this, call);
            return 1;
        }
        return Demo::_impl_Echo::_dispatch(handle);
    }
};

int usage() {
    std::cerr << "usage: omni_vex_echo_server [-ORB options] [--reports N] <interface>,<object>"
              << std::endl;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    // omniORB's defaults otherwise: its references carry IIOP 1.2.
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
        if (next != argc - 1) return usage();
        const std::string pair = argv[next];
        const std::string::size_type comma = pair.find(',');
        if (comma == std::string::npos) return usage();
        const std::string iface = pair.substr(0, comma);
        const std::string object = pair.substr(comma + 1);

        // The INS adapter uses the object id as the object key unchanged,
        // which lets the key be Kelvanor's own.
        CORBA::Object_var obj = orb->resolve_initial_references("omniINSPOA");
        PortableServer::POA_var poa = PortableServer::POA::_narrow(obj);
        PortableServer::Servant_var<EchoImpl> servant = new EchoImpl;
        PortableServer::ObjectId_var id = persistentKey(iface, object);
        poa->activate_object_with_id(id, servant);
        poa->the_POAManager()->activate();
        obj = poa->id_to_reference(id);
        CORBA::String_var ior = orb->object_to_string(obj);
        std::cout << ior.in() << std::endl;

        Activation::VEX_var vex = omniResolveVex(orb);
        if (CORBA::is_nil(vex)) {
            std::cerr << "omni_vex_echo_server: no activation daemon" << std::endl;
        } else {
            for (long i = 0; i < reports; ++i) {
                try {
                    Activation::CreationImplDef_var def =
                        vex->boa_activate_obj(obj, iface.c_str(), static_cast<CORBA::Long>(getpid()));
                } catch (const Activation::NotRegistered&) {
                    // Not the daemon's: served all the same.
                    std::cerr << "omni_vex_echo_server: not registered" << std::endl;
                }
            }
        }
        orb->run();  // until a signal ends the process
        orb->destroy();
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_vex_echo_server: " << e._name() << std::endl;
        return 1;
    }
    return 0;
}
