// A server of one KTest::Tile object, the most derived interface of the
// compiler's test IDL, for the tests that call it through the generated
// stubs. It prints the object's reference on a line and serves until a
// signal ends it.
//
//   kidl_server [broker options] [<object name>]
#include <iostream>

#include "boa.h"
#include "except.h"
#include "kidl_tile.h"
#include "orb.h"

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        CORBA::BOA_ptr boa = orb->BOA_init(argc, argv);
        ktest::TileImpl servant(argc > 1 ? argv[1] : "tile");
        boa->obj_is_ready(&servant, nullptr);
        CORBA_String_var ior(orb->object_to_string(&servant));
        std::cout << ior.in() << std::endl;
        boa->impl_is_ready(nullptr);
    } catch (const CORBA_Exception& e) {
        std::cerr << "kidl_server: " << e << std::endl;
        return 1;
    }
    return 0;
}
