// The activation daemon as an omniORB program finds it: the root naming
// context from the file $NS_SERVER_ROOT/wai/NameService/$NS_SERVER_ID.IOR,
// and in it the name "VEX" with an empty kind. Shared by the omniORB peers
// of the daemon.
#ifndef KELVANOR_OMNI_VEX_NAMING_H
#define KELVANOR_OMNI_VEX_NAMING_H

#include <cstdlib>
#include <fstream>
#include <string>

#include <Activation.hh>
#include <omniORB4/Naming.hh>

// The object bound under `id` (empty kind) in the root context that the
// file names; nil when the file is missing or the name is not bound. The
// exceptions of the calls themselves go to the caller.
inline CORBA::Object_ptr omniResolve(CORBA::ORB_ptr orb, const char* id) {
    const char* root = std::getenv("NS_SERVER_ROOT");
    const char* nsId = std::getenv("NS_SERVER_ID");
    std::string ior;
    if (!root || !nsId || !(std::ifstream(std::string(root) + "/wai/NameService/" + nsId + ".IOR") >> ior))
        return CORBA::Object::_nil();
    CORBA::Object_var obj = orb->string_to_object(ior.c_str());
    CosNaming::NamingContext_var ns = CosNaming::NamingContext::_narrow(obj);
    if (CORBA::is_nil(ns)) return CORBA::Object::_nil();
    CosNaming::Name name;
    name.length(1);
    name[0].id = id;
    name[0].kind = static_cast<const char*>("");
    try {
        return ns->resolve(name);
    } catch (const CosNaming::NamingContext::NotFound&) {
        return CORBA::Object::_nil();
    }
}

inline Activation::VEX_ptr omniResolveVex(CORBA::ORB_ptr orb) {
    CORBA::Object_var obj = omniResolve(orb, "VEX");
    return Activation::VEX::_narrow(obj);  // nil for nil
}

#endif
