// omni_ir_client: an Interface Repository client built with omniORB, on the
// repository classes that omniORB generates from its own ir.idl. It looks
// Demo::Echo up in the repository whose reference it is given and prints
// what it learns, one line per call, for the test to compare.
// Usage: omni_ir_client <IOR of a CORBA::Repository>
#include <iostream>

#include "omni_serve.h"

namespace {

// "<def_kind> <name> <id>"
void describe(CORBA::Contained_ptr c) {
    CORBA::String_var name = c->name(), id = c->id();
    std::cout << static_cast<unsigned long>(c->def_kind()) << ' ' << name.in() << ' ' << id.in();
}

void list(const char* what, const CORBA::ContainedSeq& seq) {
    std::cout << what << ':';
    for (CORBA::ULong i = 0; i < seq.length(); ++i) {
        std::cout << ' ';
        describe(seq[i]);
        std::cout << ';';
    }
    std::cout << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    return omniClient(argc, argv, "omni_ir_client", [](CORBA::Object_ptr obj) {
        CORBA::Repository_var repo = CORBA::Repository::_narrow(obj);
        std::cout << "repository: " << static_cast<unsigned long>(repo->def_kind()) << std::endl;
        CORBA::Contained_var echo = repo->lookup_id("IDL:Demo/Echo:1.0");
        std::cout << "lookup_id: ";
        describe(echo);
        std::cout << std::endl;
        CORBA::Contained_var none = repo->lookup_id("IDL:Demo/Nothing:1.0");
        std::cout << "unknown id: " << (CORBA::is_nil(none) ? "nil" : "found") << std::endl;
        CORBA::ContainedSeq_var top = repo->contents(CORBA::dk_all, 0);
        list("contents", top);
        CORBA::Container_var scope = CORBA::Container::_narrow(echo);
        CORBA::ContainedSeq_var ops = scope->contents(CORBA::dk_Operation, 0);
        list("operations", ops);
        return 0;
    });
}
