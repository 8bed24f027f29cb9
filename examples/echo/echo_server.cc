// A server of one Demo::Echo object: it makes the object ready, publishes
// its reference, and serves until a signal ends it.
//
//   echo_server [broker options] [--agent] [-o <reference-file>] [<object name>]
//
// The object is named "echo" unless a name is given. A last argument of the
// form <interface>,<object>, which is what the activation daemon appends when
// it starts a server, names the object after the comma.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include <kelvanor/boa.h>
#include <kelvanor/except.h>
#include <kelvanor/orb.h>

#include "agent_option.h"
#include "echo.h"

namespace {

class EchoImpl : public _sk_Demo::_sk_Echo {
public:
    explicit EchoImpl(const char* name) : _sk_Echo(name) {}

    char* say(const char* s) override { return CORBA::string_dup(s ? s : ""); }
    CORBA::Long pid() override { return static_cast<CORBA::Long>(getpid()); }
    void note(const char*) override {}
};

// Writes the text beside the target and renames it in place, so that a
// reader never sees half a reference.
bool publish(const std::string& path, const char* text) {
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp);
        out << text << '\n';
        if (!out.flush()) return false;
    }
    return std::rename(tmp.c_str(), path.c_str()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        CORBA::BOA_ptr boa = orb->BOA_init(argc, argv);
        useAgentIfAsked(argc, argv);

        std::string output;
        std::string name = "echo";
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc) {
                output = argv[++i];
            } else if (argv[i][0] == '-') {
                std::cerr << "usage: echo_server [broker options] [--agent] [-o <reference-file>] "
                             "[<object name>]"
                          << std::endl;
                return 2;
            } else {
                name = argv[i];
                const std::string::size_type comma = name.find(',');
                if (comma != std::string::npos) name = name.substr(comma + 1);
            }
        }

        EchoImpl servant(name.c_str());
        boa->obj_is_ready(&servant, nullptr);
        CORBA_String_var ior(orb->object_to_string(&servant));
        if (output.empty()) {
            std::cout << ior.in() << std::endl;
        } else if (!publish(output, ior.in())) {
            std::perror(output.c_str());
            return 1;
        }
        boa->impl_is_ready(nullptr);
    } catch (const CORBA_Exception& e) {
        std::cerr << "echo_server: " << e << std::endl;
        return 1;
    }
    return 0;
}
