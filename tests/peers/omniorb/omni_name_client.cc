// omni_name_client: a plain omniORB client of Demo::Echo that knows nothing
// of the activation daemon. It resolves a name in the naming service (found
// as omni_vex_naming.h tells), calls say and pid, and prints one line per
// round: "<text> <pid>", or the exception's name. Before each round after
// the first it waits (at most 20 s) for the file "<go>.<round>" to appear,
// so that a test can act on the server between two calls of one process.
// Usage: omni_name_client [-ORB options] <name> <text> [<rounds> <go>]
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include <echo.hh>

#include "omni_vex_naming.h"

namespace {

bool waitFor(const std::string& path) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (access(path.c_str(), F_OK) != 0) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const char* options[][2] = {{"maxGIOPVersion", "1.0"}, {nullptr, nullptr}};
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
        if (argc != 3 && argc != 5) {
            std::cerr << "usage: omni_name_client [-ORB options] <name> <text> [<rounds> <go>]"
                      << std::endl;
            return 2;
        }
        const int rounds = argc == 5 ? std::atoi(argv[3]) : 1;
        CORBA::Object_var obj = omniResolve(orb, argv[1]);
        Demo::Echo_var echo = Demo::Echo::_narrow(obj);
        if (CORBA::is_nil(echo)) {
            std::cerr << "omni_name_client: " << argv[1] << " is not bound" << std::endl;
            return 1;
        }
        int status = 0;
        for (int round = 1; round <= rounds; ++round) {
            if (round > 1 && !waitFor(std::string(argv[4]) + "." + std::to_string(round))) return 1;
            try {
                CORBA::String_var back = echo->say(argv[2]);
                std::cout << back.in() << " " << echo->pid() << std::endl;
            } catch (const CORBA::Exception& e) {
                std::cout << e._name() << std::endl;
                status = 1;
            }
        }
        orb->destroy();
        return status;
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_name_client: " << e._name() << std::endl;
        return 1;
    }
}
