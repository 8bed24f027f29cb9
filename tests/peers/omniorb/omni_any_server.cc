// omni_any_server: Peer::AnyEcho built with omniORB; echo gives back the Any
// it got. Prints its reference and serves on 127.0.0.1 until a signal.
// Usage: omni_any_server [-ORB options]
#include <iostream>

#include <anyecho.hh>

namespace {

class AnyEchoImpl : public POA_Peer::AnyEcho {
public:
    CORBA::Any* echo(const CORBA::Any& a) override { return new CORBA::Any(a); }
};

}  // namespace

int main(int argc, char** argv) {
    const char* options[][2] = {{"endPoint", "giop:tcp:127.0.0.1:"}, {nullptr, nullptr}};
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
        CORBA::Object_var obj = orb->resolve_initial_references("RootPOA");
        PortableServer::POA_var poa = PortableServer::POA::_narrow(obj);
        PortableServer::Servant_var<AnyEchoImpl> servant = new AnyEchoImpl;
        PortableServer::ObjectId_var id = poa->activate_object(servant);
        obj = servant->_this();
        CORBA::String_var ior = orb->object_to_string(obj);
        poa->the_POAManager()->activate();
        std::cout << ior.in() << std::endl;
        orb->run();  // until a signal ends the process
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_any_server: " << e._name() << std::endl;
        return 1;
    }
    return 0;
}
