// The daemon's name in the naming service.
#include "vex_functions.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "except.h"
#include "orb.h"

namespace {

std::string iorFileName(const char* server_id) {
    const char* root = std::getenv("NS_SERVER_ROOT");
    if (!root) root = "/usr/netscape/suitespot";
    std::string server;
    if (const char* id = std::getenv("NS_SERVER_ID")) {
        server = id;
    } else if (server_id) {
        server = server_id;
    } else {
        // A host name that cannot be had leaves the server's name empty.
        char host[1024];
        if (gethostname(host, sizeof host) == 0) {
            host[sizeof host - 1] = '\0';
            server = std::string("https-") + host;
        }
    }
    return std::string(root) + "/wai/NameService" + "/" + server + ".IOR";
}

// The one name the daemon has: "VEX" with an empty kind, in the root.
CosNaming::Name vexName() {
    CosNaming::Name name(1);
    name.length(1);
    name[0].id = static_cast<const char*>("VEX");
    name[0].kind = static_cast<const char*>("");
    return name;
}

}  // namespace

CosNaming::NamingContext* getRootNamingFromFile(char* server_id) {
    std::ifstream in(iorFileName(server_id));
    if (!in) return nullptr;
    std::ostringstream text;
    char c;
    while (in.get(c)) text << c;

    int argc = 0;
    CORBA::ORB_ptr orb = CORBA::ORB_init(argc, nullptr);
    orb->BOA_init(argc, nullptr);
    CORBA_Object_var obj;
    try {
        obj = orb->string_to_object(text.str().c_str());
    } catch (const CORBA_SystemException&) {
        return nullptr;  // not a reference
    }
    if (CORBA::is_nil(obj)) return nullptr;
    return CosNaming::NamingContext::_narrow(obj);
}

int RegisterVEX(Activation::VEX* vex, char* server_id) {
    CosNaming::NamingContext_var root(getRootNamingFromFile(server_id));
    if (CORBA::is_nil(root.in())) return 0;
    try {
        root->bind(vexName(), vex);
    } catch (const CosNaming::NamingContext::AlreadyBound&) {
        // The name keeps what it was bound to: the reference of an earlier
        // run, which names the same object if the daemon uses the same port.
    }
    return 1;
}

namespace {

// Set once the environment's reference has failed; resolveVEX then skips it.
bool environmentFailed = false;

// The daemon named by the environment, or null; the reference is not tried
// here, so this costs no round trip.
Activation::VEX* environmentVEX() {
    const char* ior = environmentFailed ? nullptr : std::getenv(kVexIorVariable);
    if (!ior || !*ior) return nullptr;
    try {
        int argc = 0;
        CORBA_Object_var obj(CORBA::ORB_init(argc, nullptr)->string_to_object(ior));
        if (Activation::VEX* vex = Activation::VEX::_narrow(obj)) return vex;
    } catch (const CORBA_Exception&) {
    }
    environmentFailed = true;
    return nullptr;
}

}  // namespace

bool forgetEnvironmentVEX() {
    const char* ior = std::getenv(kVexIorVariable);
    const bool inUse = !environmentFailed && ior && *ior;
    environmentFailed = true;
    return inUse;
}

Activation::VEX* resolveVEX(char* server_id) {
    if (Activation::VEX* vex = environmentVEX()) return vex;
    try {
        CosNaming::NamingContext_var root(getRootNamingFromFile(server_id));
        if (CORBA::is_nil(root.in())) return nullptr;
        CORBA_Object_var obj(root->resolve(vexName()));
        return Activation::VEX::_narrow(obj);
    } catch (const CORBA_Exception&) {
        return nullptr;
    }
}
