// omni_any_server: Peer::AnyEcho built with omniORB; echo gives back the Any
// it got. Prints its reference and serves on 127.0.0.1 until a signal.
// Usage: omni_any_server [-ORB options]
#include <iostream>

#include <anyecho.hh>

#include "omni_serve.h"

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
        omniServe(orb, new AnyEchoImpl);
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_any_server: " << e._name() << std::endl;
        return 1;
    }
    return 0;
}
