// A server on generated skeletons of one Dyn::Probe object, for the tests of
// any, TypeCode, unions and arrays, and one KTest::Tile, the most derived
// interface of the compiler's test IDL. It prints the reference of the one
// named on its command line (the probe unless "tile") and serves until a
// signal ends it.
//
//   dyn_server [broker options] [probe|tile]
#include <unistd.h>

#include <iostream>
#include <string>

#include "boa.h"
#include "dyn.h"
#include "except.h"
#include "kidl_tile.h"
#include "orb.h"

namespace {

class ProbeImpl : public _sk_Dyn::_sk_Probe {
public:
    explicit ProbeImpl(const char* name) : _sk_Probe(name) {}

    CORBA_Any* echo(const CORBA_Any& a) override { return new CORBA_Any(a); }
    void swap(CORBA_Any& a, CORBA_Any*& b) override {
        b = new CORBA_Any(a);
        a <<= CORBA::Long(42);
    }
    Dyn::Item* store(const Dyn::Item& i, Dyn::ItemList& list, Dyn::Shade& s) override {
        list.length(list.length() + 1);
        list[list.length() - 1] = i;
        s = Dyn::dark;
        Dyn::Item* r = new Dyn::Item(i);
        r->id += 1;
        return r;
    }
    Dyn::Value* flip(const Dyn::Value& v, Dyn::Pick*& p) override {
        p = new Dyn::Pick;
        if (v._d() == Dyn::light)
            p->s(std::to_string(v.number()).c_str());
        else
            p->o(7);
        return new Dyn::Value(v);
    }
    Dyn::Matrix_slice* scale(const Dyn::Matrix m, CORBA::Double k, Dyn::Names_slice*& n) override {
        Dyn::Matrix_slice* r = Dyn::Matrix_dup(m);
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 3; ++j) r[i][j] *= k;
        n = Dyn::Names_alloc();
        n[0] = CORBA::string_dup(std::to_string(m[0][0]).c_str());
        n[1] = CORBA::string_dup(std::to_string(m[0][1]).c_str());
        return r;
    }
    CORBA_TypeCode* kind_of(const CORBA_Any& a) override {
        return CORBA_TypeCode::_duplicate(a.type());
    }
    void note(const char* text) override { _note = text; }
    char* last_note() override { return CORBA::string_dup(_note.c_str()); }
    void refuse(Dyn::Shade s) override { throw Dyn::Refused("refused", s); }
    void hold(CORBA::Long ms) override { usleep(static_cast<useconds_t>(ms) * 1000); }

    CORBA_InterfaceDef* definition() override { return nullptr; }

private:
    std::string _note;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        CORBA::BOA_ptr boa = orb->BOA_init(argc, argv);
        ProbeImpl probe("probe");
        ktest::TileImpl tile("tile");
        boa->obj_is_ready(&probe, nullptr);
        boa->obj_is_ready(&tile, nullptr);
        const bool isTile = argc > 1 && std::string(argv[1]) == "tile";
        CORBA_String_var ior(orb->object_to_string(isTile ? static_cast<CORBA_Object*>(&tile)
                                                          : static_cast<CORBA_Object*>(&probe)));
        std::cout << ior.in() << std::endl;
        boa->impl_is_ready(nullptr);
    } catch (const CORBA_Exception& e) {
        std::cerr << "dyn_server: " << e << std::endl;
        return 1;
    }
    return 0;
}
