// The servant of KTest::Tile that the IDL tests use, in this process and in
// dyn_server.
#ifndef KELVANOR_TEST_KIDL_TILE_H
#define KELVANOR_TEST_KIDL_TILE_H

#include <unistd.h>

#include <string>

#include "except.h"
#include "kidltest.h"

namespace ktest {

// A servant of KTest::Tile whose operations give results a test can predict
// from the arguments.
class TileImpl : public _sk_KTest::_sk_Tile {
public:
    explicit TileImpl(const char* name) : _sk_Tile(name), _name(name) {}

    char* name() override { return CORBA::string_dup(_name.c_str()); }
    CORBA::Long counter() override { return _counter; }
    void counter(CORBA::Long v) override { _counter = v; }
    CORBA::Long add(CORBA::Long a, CORBA::Long b) override { return a + b; }

    char* caption() override { return CORBA::string_dup(_note.c_str()); }
    CORBA::Long side() override { return static_cast<CORBA::Long>(getpid()); }

    KTest::Shape::Kind form() override { return _form; }
    void form(KTest::Shape::Kind k) override { _form = k; }

    void scale(CORBA::Double& factor, KTest::Point& corner) override {
        factor *= 2;
        corner.x = static_cast<CORBA::Long>(factor);
        corner.y = -1;
    }

    // For 999 the servant breaks the rules and answers with no record.
    KTest::Record* describe(const KTest::Record& r, KTest::Record*& copy,
                            KTest::Colour& c) override {
        copy = new KTest::Record(r);
        if (r.l == 999) return nullptr;
        c = static_cast<KTest::Colour>((c + 1) % 3);
        KTest::Record* result = new KTest::Record(r);
        result->l = r.l + 1;
        return result;
    }

    // The points then the old inout ones; inout gains (0,0); raw counts.
    KTest::PointList* outline(const KTest::PointList& pts, KTest::PointList& more,
                              KTest::Bytes*& raw) override {
        KTest::PointList* all = new KTest::PointList(pts);
        CORBA::ULong n = all->length();
        all->length(n + more.length());
        for (CORBA::ULong i = 0; i < more.length(); ++i) (*all)[n + i] = more[i];
        more.length(more.length() + 1);
        more[more.length() - 1] = KTest::Point();
        raw = new KTest::Bytes;
        raw->length(pts.length());
        for (CORBA::ULong i = 0; i < pts.length(); ++i) (*raw)[i] = static_cast<CORBA::Octet>(i);
        return all;
    }

    char* rename(const char* n, char*& old, char*& previous) override {
        previous = CORBA::string_dup(old);
        std::string joined = std::string(old ? old : "") + "->" + (n ? n : "");
        CORBA::string_free(old);
        old = CORBA::string_dup(n);
        return CORBA::string_dup(joined.c_str());
    }

    // The other shape back twice; the inout reference becomes this object.
    KTest::Shape* same(KTest::Shape* other, KTest::Shape*& again, CORBA_Object*& obj) override {
        again = KTest::Shape::_duplicate(other);
        CORBA::release(obj);
        obj = CORBA_Object::_duplicate(this);
        return KTest::Shape::_duplicate(other);
    }

    KTest::Shape::Info* details() override {
        KTest::Shape::Info* info = new KTest::Shape::Info;
        info->variety = KTest::Shape::square;
        info->labels.second = "second";
        return info;
    }

    KTest::Point origin() override { return KTest::Point{3, 4}; }

    void poke(const char* note) override { _note = note ? note : ""; }

    void fail(CORBA::Long code) override {
        switch (code) {
            case 1: {
                KTest::PointList where(1);
                where.length(1);
                where[0] = KTest::Point{1, 2};
                throw KTest::Failure("one", 1, KTest::blue, where);
            }
            case 2: throw KTest::Inner::Empty();
            case 3: throw KTest::Shape::Broken(this, "three");
            case 4: throw CORBA_NO_PERMISSION(4, CORBA::COMPLETED_YES);
            default: break;
        }
    }

    // copy is d; the old swap comes back as the result and swap becomes d
    // with the path "/new".
    CORBA_CreationImplDef* redefine(CORBA_CreationImplDef* d, CORBA_CreationImplDef*& copy,
                                    CORBA_CreationImplDef*& swap) override {
        copy = new CORBA_CreationImplDef(*d);
        CORBA_CreationImplDef* old = swap;
        swap = new CORBA_CreationImplDef(*d);
        swap->path = "/new";
        return old;
    }

    KTest::Bytes* pattern(const KTest::Bytes& p) override { return new KTest::Bytes(p); }

    KTest::ShapeList* shapes(const KTest::ShapeList& s) override {
        KTest::ShapeList* r = new KTest::ShapeList(s);
        r->length(s.length() + 1);
        (*r)[s.length()] = KTest::Shape::_duplicate(this);
        return r;
    }

private:
    std::string _name;
    std::string _note;
    CORBA::Long _counter = 0;
    KTest::Shape::Kind _form = KTest::Shape::circle;
};

}  // namespace ktest

#endif
