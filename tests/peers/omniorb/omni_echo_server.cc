// omni_echo_server: a Demo::Echo server built with omniORB, the peer that
// Kelvanor's clients are tested and timed against. It speaks GIOP 1.0 on
// 127.0.0.1 unless -ORB options say otherwise, prints its stringified
// reference (or writes it to the -o file) and serves until a signal.
// Usage: omni_echo_server [-ORB options] [-OAipaddr A] [-OAport N]
//                         [-o <reference-file>]
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include <unistd.h>

#include <echo.hh>

namespace {

class EchoImpl : public POA_Demo::Echo {
public:
    char* say(const char* s) override { return CORBA::string_dup(s); }
    CORBA::Long pid() override { return static_cast<CORBA::Long>(getpid()); }
    void note(const char*) override {}
};

// Kelvanor's -OAipaddr and -OAport, so that both echo servers start alike,
// become an omniORB end point; 127.0.0.1 and any port unless given. An
// explicit -ORBendPoint wins, since omniORB would listen on both.
std::string endPoint(int& argc, char** argv) {
    std::string host = "127.0.0.1", port;
    bool own = false;
    int out = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-ORBendPoint") == 0) own = true;
        if (i + 1 < argc && std::strcmp(argv[i], "-OAipaddr") == 0) {
            host = argv[++i];
        } else if (i + 1 < argc && std::strcmp(argv[i], "-OAport") == 0) {
            port = argv[++i];
        } else {
            argv[out++] = argv[i];
        }
    }
    argc = out;
    argv[argc] = nullptr;
    return own ? std::string() : "giop:tcp:" + host + ":" + port;
}

// Written to a temporary name and renamed, so that a reader polling for the
// file never sees half a reference.
bool writeReference(const std::string& path, const char* ior) {
    std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::trunc);
        out << ior << '\n';
        if (!out.flush()) return false;
    }
    return std::rename(tmp.c_str(), path.c_str()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string where = endPoint(argc, argv);
    const char* options[][2] = {{"maxGIOPVersion", "1.0"},
                                {"endPoint", where.c_str()},
                                {nullptr, nullptr}};
    if (where.empty()) options[1][0] = options[1][1] = nullptr;
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
        std::string refFile;
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc) {
                refFile = argv[++i];
            } else {
                std::cerr << "usage: omni_echo_server [-ORB options] [-OAipaddr A] "
                             "[-OAport N] [-o <reference-file>]"
                          << std::endl;
                return 2;
            }
        }
        CORBA::Object_var obj = orb->resolve_initial_references("RootPOA");
        PortableServer::POA_var poa = PortableServer::POA::_narrow(obj);
        PortableServer::Servant_var<EchoImpl> servant = new EchoImpl;
        PortableServer::ObjectId_var id = poa->activate_object(servant);
        obj = servant->_this();
        CORBA::String_var ior = orb->object_to_string(obj);
        poa->the_POAManager()->activate();

        if (refFile.empty()) {
            std::cout << ior.in() << std::endl;
        } else if (!writeReference(refFile, ior.in())) {
            std::perror(refFile.c_str());
            return 1;
        }
        orb->run();  // until a signal ends the process
        orb->destroy();
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_echo_server: " << e._name() << std::endl;
        return 1;
    }
    return 0;
}
