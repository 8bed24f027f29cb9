// The ORB object's interface: initialisation, stringified references, binds
// by name, and the list of initial services.
#include "orb.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "boa.h"
#include "except.h"
#include "giop.h"
#include "iorstr.h"
#include "zebglob.h"
#include "zebboa.h"
#include "zeborb.h"
#include "zebstrm.h"

CORBA_ORB::~CORBA_ORB() {}

CORBA_ORB* CORBA::ORB_init(int& argc, char* const* argv, const char* orb_id) {
    if (orb_id && std::strcmp(orb_id, "Internet ORB") != 0)
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    ZEBGlobalTable::parse_args(argc, argv);
    ZEBGlobalTable::instance();
    return ZEBGlobalTable::_orb;
}

CORBA_BOA* CORBA_ORB::BOA_init(int&, char* const*, const char* boa_id) {
    if (boa_id && std::strcmp(boa_id, "ZEB_BOA") != 0)
        throw CORBA_BAD_PARAM(0, CORBA::COMPLETED_NO);
    ZEBGlobalTable::instance();
    return ZEBGlobalTable::_boa;
}

CORBA_Object* CORBA_ORB::bind(const char* interface_name, const char* object_name,
                              const char* host, const CORBA_BindOptions* options) {
    CORBA_Object_var obj(new CORBA_Object(object_name, 1));
    obj->_bind(interface_name, object_name, host, options);
    return obj._retn();
}

char* CORBA_ORB::object_to_string(CORBA_Object* obj) {
    std::unique_ptr<IOP::IOR> ior(ZEBGlobalTable::getIOR(obj));
    return iorToString(*ior);
}

CORBA_Object* CORBA_ORB::string_to_object(const char* text) {
    if (!text || std::strncmp(text, "IOR:", 4) != 0) {
        std::cout << "Invalid Stringified Object Reference '" << (text ? text : "") << "'"
                  << std::endl;
        return nullptr;
    }
    // A reference read from a file usually ends with a newline: white space
    // after the digits is no part of the reference.
    std::string digits(text);
    while (!digits.empty() && std::isspace(static_cast<unsigned char>(digits.back())))
        digits.pop_back();
    std::unique_ptr<IOP::IOR> ior(stringToIOR(digits.c_str()));
    // Text after the prefix that is no hexadecimal cannot be decoded.
    if (!ior) throw CORBA_MARSHAL(0, CORBA::COMPLETED_NO);
    if (ior->profiles.length() == 0) return nullptr;
    return ZEBGlobalTable::getObject(*ior, nullptr);
}

CORBA_ORB::ObjectIdList* CORBA_ORB::list_initial_services() { return ZEBResolver::list_services(); }

CORBA_Object* CORBA_ORB::resolve_initial_references(const char* id) {
    return ZEBResolver::resolve(id);
}
