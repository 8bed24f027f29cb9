// A client of Demo::Echo through its stub: reads a stringified reference,
// says a text to the object and prints the answer and the server's pid.
//
//   echo_client [broker options] <IOR:...|@file> [<text>]
#include <fstream>
#include <iostream>
#include <string>

#include "echo.h"
#include "except.h"
#include "orb.h"

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
        if (argc < 2 || argc > 3) {
            std::cerr << "usage: echo_client [broker options] <IOR:...|@file> [<text>]"
                      << std::endl;
            return 2;
        }
        const std::string ior = readReference(argv[1]);
        CORBA_Object_var obj(orb->string_to_object(ior.c_str()));
        Demo::Echo_var echo(Demo::Echo::_narrow(obj));
        if (!echo.in()) {
            std::cerr << "echo_client: the reference is no Demo::Echo" << std::endl;
            return 1;
        }
        CORBA_String_var answer(echo->say(argc > 2 ? argv[2] : "hello"));
        std::cout << "say: " << answer.in() << std::endl;
        std::cout << "pid: " << echo->pid() << std::endl;
    } catch (const CORBA_Exception& e) {
        std::cerr << "echo_client: " << e << std::endl;
        return 1;
    }
    return 0;
}
