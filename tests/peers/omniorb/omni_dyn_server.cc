// omni_dyn_server: Dyn::Probe (tests/idl/dyn.idl) built with omniORB, the
// peer of Kelvanor's dyn_server for the clients of any, TypeCode, unions and
// arrays. Each operation behaves as dyn_server's does. Prints its reference
// and serves on 127.0.0.1 until a signal.
// Usage: omni_dyn_server [-ORB options]
#include <unistd.h>

#include <string>

#include <dyn.hh>

#include "omni_serve.h"

namespace {

class ProbeImpl : public POA_Dyn::Probe {
public:
    CORBA::Any* echo(const CORBA::Any& a) override { return new CORBA::Any(a); }
    void swap(CORBA::Any& a, CORBA::Any_OUT_arg b) override {
        b = new CORBA::Any(a);
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
    Dyn::Value* flip(const Dyn::Value& v, Dyn::Pick_out p) override {
        p = new Dyn::Pick;
        if (v._d() == Dyn::light)
            p->s(std::to_string(v.number()).c_str());
        else
            p->o(7);
        return new Dyn::Value(v);
    }
    Dyn::Matrix_slice* scale(const Dyn::Matrix m, CORBA::Double k, Dyn::Names_out n) override {
        Dyn::Matrix_slice* r = Dyn::Matrix_dup(m);
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 3; ++j) r[i][j] *= k;
        n = Dyn::Names_alloc();
        n[0] = CORBA::string_dup(std::to_string(m[0][0]).c_str());
        n[1] = CORBA::string_dup(std::to_string(m[0][1]).c_str());
        return r;
    }
    CORBA::TypeCode_ptr kind_of(const CORBA::Any& a) override { return a.type(); }
    void note(const char* text) override { _note = text; }
    char* last_note() override { return CORBA::string_dup(_note.c_str()); }
    void refuse(Dyn::Shade s) override { throw Dyn::Refused("refused", s); }
    void hold(CORBA::Long ms) override { usleep(static_cast<useconds_t>(ms) * 1000); }
    CORBA::InterfaceDef_ptr definition() override { return CORBA::InterfaceDef::_nil(); }

private:
    std::string _note;
};

}  // namespace

int main(int argc, char** argv) { return omniServe<ProbeImpl>(argc, argv, "omni_dyn_server"); }
