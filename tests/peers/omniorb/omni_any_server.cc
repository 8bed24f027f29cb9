// omni_any_server: Peer::AnyEcho built with omniORB; echo gives back the Any
// it got. Prints its reference and serves on 127.0.0.1 until a signal.
// Usage: omni_any_server [-ORB options]
#include <anyecho.hh>

#include "omni_serve.h"

namespace {

class AnyEchoImpl : public POA_Peer::AnyEcho {
public:
    CORBA::Any* echo(const CORBA::Any& a) override { return new CORBA::Any(a); }
};

}  // namespace

int main(int argc, char** argv) { return omniServe<AnyEchoImpl>(argc, argv, "omni_any_server"); }
