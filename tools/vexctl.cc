// vexctl: administers a running activation daemon over IIOP.
//
//   vexctl [broker options] [--ior <IOR:...|@file>] <command> [arguments]
//
// Without --ior the daemon is found as every client finds it: the naming
// service named by the IOR file under $NS_SERVER_ROOT/wai/NameService.
// Results go to standard output; a refusal of the daemon is one line on
// standard error and an exit status of its own (see usage()).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <memory>

#include "Activation.h"
#include "CosNaming.h"
#include "except.h"
#include "giop.h"
#include "impldef.h"
#include "iorstr.h"
#include "orb.h"
#include "vex_functions.h"
#include "zebglob.h"
#include "zeboid.h"
#include <kelvanor/version.h>

namespace {

enum Status {
    OK = 0,
    USAGE = 2,
    NO_DAEMON = 3,
    FAILURE = 4,  // the broker: the daemon went away, a time limit...
    NOT_REGISTERED = 10,
    DUPLICATE_ENTRY = 11,
    INVALID_PATH = 12,
    IS_ACTIVE = 13,
    BUSY = 14,
    NOT_RESPONDING = 15,
    NAME_NOT_BOUND = 16
};

int usage(std::ostream& os, int status) {
    os << "usage: vexctl [broker options] [--ior <IOR:...|@file>] <command> [arguments]\n"
          "       vexctl --help | --version\n"
          "commands:\n"
          "  reg <interface> <object> <path> [--policy shared|unshared|per-method]\n"
          "      [--arg A]... [--env NAME=VALUE]...   register a server program\n"
          "      (an argument that starts with -ORB or -OA is a broker option of vexctl\n"
          "      itself unless given as --arg=A)\n"
          "  unreg <interface> <object>               forget one registration\n"
          "  unreg-interface <interface>              forget every object of an interface\n"
          "  get <interface> <object>                 print a registration\n"
          "  change <interface> <object> <path> [reg options]  replace a registration\n"
          "  unreg-all                                forget everything\n"
          "  status [<interface> [<object>]]          registrations and their processes\n"
          "  lookup <interface> [<object>] [--timeout <seconds>]\n"
          "                                           the object's reference, starting its\n"
          "                                           server if none runs\n"
          "  ior <interface> <object> [--type-id <id>]\n"
          "                                           a reference through the daemon that\n"
          "                                           any CORBA client can use: its server\n"
          "                                           is started on the first request\n"
          "  bind <interface> <object> <name>         that reference under <name> in the\n"
          "                                           naming service's root context\n"
          "  unbind <name>                            remove <name> from it\n"
          "exit status: 0 done, 2 usage, 3 no daemon found, 4 broker failure,\n"
          "  10 not registered, 11 duplicate entry, 12 invalid path, 13 is active,\n"
          "  14 busy, 15 not responding, 16 name not bound\n";
    return status;
}

std::string readReference(const char* arg) {
    if (arg[0] != '@') return arg;
    std::ifstream in(arg + 1);
    std::string ior;
    in >> ior;
    return ior;
}

// reg and change: <interface> <object> <path> and the options after them.
bool definition(const std::vector<std::string>& a, CORBA_CreationImplDef& def) {
    if (a.size() < 3) return false;
    def.interface_name = a[0].c_str();
    def.object_name = a[1].c_str();
    def.path = a[2].c_str();
    std::vector<std::string> args, env;
    for (size_t i = 3; i < a.size(); ++i) {
        // --name=value, or --name value.
        std::string name = a[i], v;
        const std::string::size_type eq = name.find('=');
        if (name.compare(0, 2, "--") == 0 && eq != std::string::npos) {
            v = name.substr(eq + 1);
            name.resize(eq);
        } else if (i + 1 < a.size()) {
            v = a[++i];
        } else {
            return false;
        }
        if (name == "--arg") {
            args.push_back(v);
        } else if (name == "--env") {
            env.push_back(v);
        } else if (name == "--policy") {
            if (v == "shared") def.activation_policy = CORBA_CreationImplDef::SHARED_SERVER;
            else if (v == "unshared") def.activation_policy = CORBA_CreationImplDef::UNSHARED_SERVER;
            else if (v == "per-method") def.activation_policy = CORBA_CreationImplDef::SERVER_PER_METHOD;
            else return false;
        } else {
            return false;
        }
    }
    def.args.length(static_cast<CORBA::ULong>(args.size()));
    for (size_t i = 0; i < args.size(); ++i) def.args[static_cast<CORBA::ULong>(i)] = args[i].c_str();
    def.env.length(static_cast<CORBA::ULong>(env.size()));
    for (size_t i = 0; i < env.size(); ++i) def.env[static_cast<CORBA::ULong>(i)] = env[i].c_str();
    return true;
}

const char* policyName(CORBA::ULong p) {
    switch (p) {
    case CORBA_CreationImplDef::SHARED_SERVER: return "shared";
    case CORBA_CreationImplDef::UNSHARED_SERVER: return "unshared";
    case CORBA_CreationImplDef::SERVER_PER_METHOD: return "per-method";
    default: return "unknown";
    }
}

const char* stateName(Activation::State s) {
    switch (s) {
    case Activation::ACTIVE: return "running";
    case Activation::INACTIVE: return "inactive";
    case Activation::WAITING_FOR_ACTIVATION: return "starting";
    }
    return "unknown";
}

// One line per process, or one for an entry with none.
void printStatus(const Activation::ImplStatusList& list) {
    std::printf("%-24s %-16s %-10s %-9s %s\n", "INTERFACE", "OBJECT", "POLICY", "STATE", "PID");
    for (CORBA::ULong i = 0; i < list.length(); ++i) {
        const Activation::ImplementationStatus& e = list[i];
        const char* iface = e.impl.ptr() ? e.impl->interface_name.in() : "";
        const char* object = e.impl.ptr() ? e.impl->object_name.in() : "";
        const char* policy = e.impl.ptr() ? policyName(e.impl->activation_policy) : "";
        if (e.status.length() == 0)
            std::printf("%-24s %-16s %-10s %-9s %s\n", iface, object, policy, "idle", "-");
        for (CORBA::ULong j = 0; j < e.status.length(); ++j)
            std::printf("%-24s %-16s %-10s %-9s %lu\n", iface, object, policy,
                        stateName(e.status[j].activation_state),
                        static_cast<unsigned long>(e.status[j].process_id));
    }
}

void print(const CORBA_CreationImplDef& d) {
    std::cout << "interface: " << d.interface_name.in() << "\n"
              << "object:    " << d.object_name.in() << "\n"
              << "path:      " << d.path.in() << "\n"
              << "policy:    " << policyName(d.activation_policy) << "\n";
    for (CORBA::ULong i = 0; i < d.args.length(); ++i) std::cout << "arg:       " << d.args[i] << "\n";
    for (CORBA::ULong i = 0; i < d.env.length(); ++i) std::cout << "env:       " << d.env[i] << "\n";
}

// "Demo::Echo" -> "IDL:Demo/Echo:1.0".
std::string repositoryId(std::string scoped) {
    for (std::string::size_type p; (p = scoped.find("::")) != std::string::npos;)
        scoped.replace(p, 2, "/");
    return "IDL:" + scoped + ":1.0";
}

// The pair's persistent reference: the daemon's own address (from its
// reference) and the pair's key, so that the same text holds across daemon
// restarts on a fixed port.
std::string pairReference(Activation::VEX* vex, const std::string& iface, const std::string& object,
                          const std::string& typeId) {
    std::unique_ptr<IOP::IOR> self(ZEBGlobalTable::getIOR(vex));
    std::unique_ptr<IIOP::ObjectLocator> loc;
    for (CORBA::ULong i = 0; self && !loc && i < self->profiles.length(); ++i)
        if (self->profiles[i].tag == IOP::TAG_INTERNET_IOP)
            loc.reset(IIOP::ObjectLocator::convert(self->profiles[i].profile_data));
    if (!loc) throw CORBA_INV_OBJREF(0, CORBA::COMPLETED_NO);
    loc->iiop_version = IIOP::CURRENT_VERSION;
    loc->object_key = *CORBA_OctetSequence_var(
        ZEBPersistentId(iface.c_str(), object.c_str()).convert()).ptr();
    IOP::IOR ior;
    ior.type_id = typeId.empty() ? repositoryId(iface).c_str() : typeId.c_str();
    ior.profiles.length(1);
    ior.profiles[0].tag = IOP::TAG_INTERNET_IOP;
    ior.profiles[0].profile_data = *CORBA_OctetSequence_var(loc->convert()).ptr();
    return CORBA_String_var(iorToString(ior)).in();
}

CosNaming::Name oneName(const std::string& id) {
    CosNaming::Name name(1);
    name.length(1);
    name[0].id = id.c_str();
    name[0].kind = static_cast<const char*>("");
    return name;
}

int naming(Activation::VEX* vex, const std::string& cmd, const std::vector<std::string>& a) {
    CosNaming::NamingContext_var root(getRootNamingFromFile(nullptr));
    if (!root.in()) {
        std::cerr << "vexctl: no naming service found" << std::endl;
        return NO_DAEMON;
    }
    if (cmd == "unbind") {
        try {
            root->unbind(oneName(a[0]));
        } catch (const CosNaming::NamingContext::NotFound&) {
            std::cerr << "vexctl: " << a[0] << " is not bound" << std::endl;
            return NAME_NOT_BOUND;
        }
        return OK;
    }
    int argc = 0;
    const std::string text = pairReference(vex, a[0], a[1], "");
    CORBA_Object_var obj(CORBA::ORB_init(argc, nullptr)->string_to_object(text.c_str()));
    root->rebind(oneName(a[2]), obj);
    return OK;
}

int run(Activation::VEX* vex, const std::string& cmd, const std::vector<std::string>& a) {
    if (cmd == "reg" || cmd == "change") {
        CORBA_CreationImplDef def;
        if (!definition(a, def)) return usage(std::cerr, USAGE);
        if (cmd == "reg") {
            CORBA::release(vex->reg_implementation(&def));
        } else {
            CORBA_CreationImplDef_var old(vex->get_implementation(a[0].c_str(), a[1].c_str()));
            if (!old.ptr()) old = new CORBA_CreationImplDef(def);
            vex->change_implementation(old, &def);
        }
    } else if (cmd == "unreg" && a.size() == 2) {
        vex->unreg_implementation(a[0].c_str(), a[1].c_str());
    } else if (cmd == "unreg-interface" && a.size() == 1) {
        vex->unreg_interface(a[0].c_str());
    } else if (cmd == "get" && a.size() == 2) {
        CORBA_CreationImplDef_var def(vex->get_implementation(a[0].c_str(), a[1].c_str()));
        print(*def.ptr());
    } else if (cmd == "unreg-all" && a.empty()) {
        vex->unregister_all();
    } else if (cmd == "status" && a.size() <= 2) {
        Activation::ImplStatusList_var list;
        if (a.empty()) {
            list = vex->get_status_all();
        } else if (a.size() == 1) {
            list = vex->get_status_interface(a[0].c_str());
        } else {
            Activation::ImplementationStatus_var one(vex->get_status(a[0].c_str(), a[1].c_str()));
            list = new Activation::ImplStatusList(1);
            list->length(1);
            (*list)[0] = *one;
        }
        printStatus(*list);
    } else if (cmd == "lookup" && !a.empty()) {
        std::vector<std::string> names;
        CORBA::Long timeout = -1;
        for (size_t i = 0; i < a.size(); ++i) {
            if (a[i] == "--timeout" && i + 1 < a.size()) timeout = std::atoi(a[++i].c_str());
            else names.push_back(a[i]);
        }
        if (names.empty() || names.size() > 2) return usage(std::cerr, USAGE);
        CORBA_Object_var obj(names.size() == 1
                                 ? vex->lookup_interface(names[0].c_str(), timeout)
                                 : vex->lookup_implementation(names[0].c_str(), names[1].c_str(),
                                                              timeout));
        int argc = 0;
        CORBA_String_var text(CORBA::ORB_init(argc, nullptr)->object_to_string(obj));
        std::cout << text.in() << std::endl;
    } else if (cmd == "ior" && (a.size() == 2 || (a.size() == 4 && a[2] == "--type-id"))) {
        // Only a registered pair gets a reference.
        CORBA_CreationImplDef_var def(vex->get_implementation(a[0].c_str(), a[1].c_str()));
        std::cout << pairReference(vex, a[0], a[1], a.size() == 4 ? a[3] : "") << std::endl;
    } else if (cmd == "bind" && a.size() == 3) {
        CORBA_CreationImplDef_var def(vex->get_implementation(a[0].c_str(), a[1].c_str()));
        return naming(vex, cmd, a);
    } else if (cmd == "unbind" && a.size() == 1) {
        return naming(vex, cmd, a);
    } else {
        return usage(std::cerr, USAGE);
    }
    return OK;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        std::vector<std::string> words(argv + 1, argv + argc);
        std::string ior;
        if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) return usage(std::cout, OK);
        if (!words.empty() && words[0] == "--version") {
            std::cout << "vexctl (Kelvanor) " << kelvanor_version << std::endl;
            return OK;
        }
        if (words.size() >= 2 && words[0] == "--ior") {
            ior = readReference(words[1].c_str());
            words.erase(words.begin(), words.begin() + 2);
        }
        if (words.empty()) return usage(std::cerr, USAGE);
        const std::string cmd = words[0];
        words.erase(words.begin());

        Activation::VEX_var vex;
        if (!ior.empty()) {
            CORBA_Object_var obj(orb->string_to_object(ior.c_str()));
            vex = Activation::VEX::_narrow(obj);
        } else {
            vex = resolveVEX(nullptr);
        }
        if (!vex.in()) {
            std::cerr << "vexctl: no activation daemon found" << std::endl;
            return NO_DAEMON;
        }
        return run(vex, cmd, words);
    } catch (const Activation::NotRegistered&) {
        std::cerr << "vexctl: not registered" << std::endl;
        return NOT_REGISTERED;
    } catch (const Activation::DuplicateEntry&) {
        std::cerr << "vexctl: already registered" << std::endl;
        return DUPLICATE_ENTRY;
    } catch (const Activation::InvalidPath&) {
        std::cerr << "vexctl: no such program on the daemon's host" << std::endl;
        return INVALID_PATH;
    } catch (const Activation::IsActive&) {
        std::cerr << "vexctl: its server is running" << std::endl;
        return IS_ACTIVE;
    } catch (const Activation::Busy&) {
        std::cerr << "vexctl: its server is being started" << std::endl;
        return BUSY;
    } catch (const Activation::NotResponding&) {
        std::cerr << "vexctl: its server did not respond" << std::endl;
        return NOT_RESPONDING;
    } catch (const CORBA_SystemException& e) {
        std::cerr << "vexctl: " << e._desc()->name << " (minor " << e.minor() << ")" << std::endl;
        return FAILURE;
    }
}
