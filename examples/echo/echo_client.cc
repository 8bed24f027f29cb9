// A client of Demo::Echo through its stub: binds to the object by a
// stringified reference or by its name (which asks the activation daemon,
// and so may start the server), says a text to the object and prints the
// answer and the server's pid.
//
//   echo_client [broker options] [--agent] (<IOR:...|@file> | --name <object>) [<text>]
#include <fstream>
#include <iostream>
#include <string>

#include <kelvanor/except.h>
#include <kelvanor/orb.h>

#include "agent_option.h"
#include "echo.h"

namespace {

std::string readReference(const char* arg) {
    if (arg[0] != '@') return arg;
    std::ifstream in(arg + 1);
    std::string line;
    std::getline(in, line);
    return line;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        useAgentIfAsked(argc, argv);
        const bool byName = argc > 2 && std::string(argv[1]) == "--name";
        const int first = byName ? 3 : 2;  // where the text is, if any
        if (argc < 2 || argc > first + 1) {
            std::cerr << "usage: echo_client [broker options] [--agent] (<IOR:...|@file> | --name <object>) "
                         "[<text>]"
                      << std::endl;
            return 2;
        }
        Demo::Echo_var echo;
        if (byName) {
            echo = Demo::Echo::_bind(argv[2]);
        } else {
            const std::string ior = readReference(argv[1]);
            CORBA_Object_var obj(orb->string_to_object(ior.c_str()));
            echo = Demo::Echo::_narrow(obj);
        }
        if (!echo.in()) {
            std::cerr << "echo_client: the reference is no Demo::Echo" << std::endl;
            return 1;
        }
        CORBA_String_var answer(echo->say(argc > first ? argv[first] : "hello"));
        std::cout << "say: " << answer.in() << std::endl;
        std::cout << "pid: " << echo->pid() << std::endl;
    } catch (const CORBA_Exception& e) {
        std::cerr << "echo_client: " << e << std::endl;
        return 1;
    }
    return 0;
}
