// omni_vex_client: the activation daemon's operations through omniORB. Each
// command prints "ok" and what came back, or the exception's repository id.
// The daemon is a reference, or "-" for the naming service.
// Usage: omni_vex_client [-ORB options] <IOR:...|-> <command> [args]
//   reg <interface> <object> <path> <policy> [<arg>...]
//   get <interface> <object>          change <interface> <object> <new path>
//   unreg-all
//   lookup <interface> <object> <timeout> <text>
//                                     says <text> to the Demo::Echo object
//                                     that comes back and asks its pid
#include <cstdlib>
#include <iostream>
#include <string>

#include <Activation.hh>
#include <echo.hh>

#include "omni_vex_naming.h"

namespace {

int usage() {
    std::cerr << "usage: omni_vex_client [-ORB options] <IOR:...|-> <command> [args]"
              << std::endl;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    if (argc < 3) return usage();
    const std::string cmd = argv[2];
    int status = 0;
    try {
        Activation::VEX_var vex;
        if (std::string(argv[1]) == "-") {
            vex = omniResolveVex(orb);
        } else {
            CORBA::Object_var obj = orb->string_to_object(argv[1]);
            vex = Activation::VEX::_narrow(obj);
        }
        if (CORBA::is_nil(vex)) {
            std::cerr << "omni_vex_client: not an Activation::VEX" << std::endl;
            return 1;
        }
        try {
            if (cmd == "reg" && argc >= 7) {
                Activation::CreationImplDef def;
                def.interface_name = static_cast<const char*>(argv[3]);
                def.object_name = static_cast<const char*>(argv[4]);
                def.path = static_cast<const char*>(argv[5]);
                def.activation_policy = std::strtoul(argv[6], nullptr, 10);
                def.args.length(argc - 7);
                for (int i = 7; i < argc; ++i) def.args[i - 7] = static_cast<const char*>(argv[i]);
                CORBA::Object_var ref = vex->reg_implementation(def);
                std::cout << "ok " << (CORBA::is_nil(ref) ? "nil" : "reference") << std::endl;
            } else if (cmd == "get" && argc == 5) {
                Activation::CreationImplDef_var d = vex->get_implementation(argv[3], argv[4]);
                std::cout << "ok " << d->interface_name.in() << " " << d->object_name.in() << " "
                          << d->path.in() << " " << d->activation_policy << " args";
                for (CORBA::ULong i = 0; i < d->args.length(); ++i) std::cout << " " << d->args[i].in();
                std::cout << std::endl;
            } else if (cmd == "change" && argc == 6) {
                Activation::CreationImplDef_var old = vex->get_implementation(argv[3], argv[4]);
                Activation::CreationImplDef neu = old.in();
                neu.path = static_cast<const char*>(argv[5]);
                vex->change_implementation(old.in(), neu);
                std::cout << "ok" << std::endl;
            } else if (cmd == "lookup" && argc == 7) {
                CORBA::Object_var ref = vex->lookup_implementation(
                    argv[3], argv[4], static_cast<CORBA::Long>(std::strtol(argv[5], nullptr, 10)));
                Demo::Echo_var echo = Demo::Echo::_narrow(ref);
                if (CORBA::is_nil(echo)) {
                    std::cout << "not a Demo::Echo" << std::endl;
                    status = 1;
                } else {
                    CORBA::String_var said = echo->say(argv[6]);
                    const CORBA::Long pid = echo->pid();
                    std::cout << "ok say " << said.in() << " pid " << pid << std::endl;
                }
            } else if (cmd == "unreg-all" && argc == 3) {
                vex->unregister_all();
                std::cout << "ok" << std::endl;
            } else {
                return usage();
            }
        } catch (const CORBA::UserException& e) {
            std::cout << "exception " << e._rep_id() << std::endl;
        }
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_vex_client: " << e._name() << std::endl;
        status = 1;
    }
    orb->destroy();
    return status;
}
