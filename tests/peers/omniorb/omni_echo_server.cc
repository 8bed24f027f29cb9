// omni_echo_server: a Demo::Echo server built with omniORB, the peer that
// Kelvanor's clients are tested and timed against. It speaks GIOP 1.0 on
// 127.0.0.1 unless an -ORBendPoint says otherwise, prints its stringified
// reference and serves until a signal.
// Usage: omni_echo_server [-ORB options]
#include <cstring>
#include <iostream>
#include <string>

#include <unistd.h>

#include <echo.hh>

#include "omni_serve.h"

namespace {

class EchoImpl : public POA_Demo::Echo {
public:
    char* say(const char* s) override { return CORBA::string_dup(s); }
    CORBA::Long pid() override { return static_cast<CORBA::Long>(getpid()); }
    void note(const char*) override {}
};

}  // namespace

int main(int argc, char** argv) {
    // omniORB's defaults otherwise: its references carry IIOP 1.2. An
    // explicit end point replaces ours: omniORB would listen on both.
    const char* options[][2] = {{"endPoint", "giop:tcp:127.0.0.1:"}, {nullptr, nullptr}};
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "-ORBendPoint") == 0) options[0][0] = options[0][1] = nullptr;
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
        if (argc > 1) {
            std::cerr << "usage: omni_echo_server [-ORB options]" << std::endl;
            return 2;
        }
        omniServe(orb, new EchoImpl);
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_echo_server: " << e._name() << std::endl;
        return 1;
    }
    return 0;
}
