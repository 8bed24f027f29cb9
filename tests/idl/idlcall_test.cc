// Generated stubs and skeletons at work: a KTest::Tile servant in this
// process is called directly, and one in dyn_server, a child process, over
// a loopback connection with every kind of argument, attributes, inherited
// operations and user exceptions.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "Activation.h"
#include "boa.h"
#include "kidl_tile.h"
#include "orb.h"
#include "orb_loopback.h"
#include "thrown.h"
#include "../orb/echo_child.h"
#include "zebglob.h"

namespace {

// The pid of the process that serves obj, asked through the Square stub.
long servedBy(CORBA_Object* obj) {
    KTest::Square_var square(KTest::Square::_narrow(obj));
    return square.in() ? square->side() : -1;
}

// dyn_server in a child process, stopped by pid when the test ends, and a
// stub of its object.
class IdlRemote : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.ready()) << "dyn_server gave no reference: " << server.output();
        tile = object<KTest::Tile>();
        ASSERT_NE(tile.in(), nullptr);
    }
    // A new stub of the server's object, narrowed to T.
    template <class T>
    T* object() const {
        CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(server.ior.c_str()));
        return T::_narrow(obj);
    }

    ktest::EchoChild server{{KELVANOR_DYN_SERVER_BINARY, "-OAipaddr", "127.0.0.1", "tile"}};
    KTest::Tile_var tile;
};

}  // namespace

TEST(IdlCall, LocalServantIsEveryOneOfItsInterfaces) {
    int argc = 0;
    CORBA::BOA_ptr boa = ktest::loopbackOrb()->BOA_init(argc, nullptr);
    ktest::TileImpl tile("local");
    boa->obj_is_ready(&tile, nullptr);

    KTest::Tile_var asTile(KTest::Tile::_narrow(&tile));
    KTest::Inner::Base_var asBase(KTest::Inner::Base::_narrow(&tile));
    KTest::Labelled_var asLabelled(KTest::Labelled::_narrow(&tile));
    KTest::Shape_var asShape(KTest::Shape::_narrow(asLabelled.in()));
    ASSERT_EQ(asTile.in(), &tile);
    EXPECT_EQ(asBase.in(), static_cast<KTest::Inner::Base*>(&tile));
    EXPECT_EQ(asShape.in(), static_cast<KTest::Shape*>(&tile));
    EXPECT_EQ(Activation::VEX::_narrow(&tile), nullptr);

    // _bind finds the object of this process by its name.
    KTest::Square_var bound(KTest::Square::_bind("local"));
    EXPECT_EQ(bound.in(), static_cast<KTest::Square*>(&tile));
}

TEST_F(IdlRemote, EveryArgumentKindCrossesTheWire) {
    ASSERT_FALSE(tile->_is_local());
    EXPECT_EQ(tile->side(), server.pid());

    // Attributes of a base and of the interface itself.
    CORBA_String_var name(tile->name());
    EXPECT_STREQ(name, "tile");
    tile->counter(41);
    EXPECT_EQ(tile->counter(), 41);
    tile->form(KTest::Shape::square);
    EXPECT_EQ(tile->form(), KTest::Shape::square);

    CORBA::Double factor = 1.25;
    KTest::Point corner;
    tile->scale(factor, corner);
    EXPECT_EQ(factor, 2.5);
    EXPECT_EQ(corner.x, 2);
    EXPECT_EQ(corner.y, -1);
    EXPECT_EQ(tile->origin().x, 3);

    KTest::Record r;
    r.l = 10;
    r.words.length(1);
    r.words[0] = "word";
    r.owner = KTest::Shape::_duplicate(tile.in());
    KTest::Record* copy = nullptr;
    KTest::Colour c = KTest::blue;
    KTest::Record_var described(tile->describe(r, copy, c));
    KTest::Record_var copyHeld(copy);
    EXPECT_EQ(described->l, 11);
    EXPECT_STREQ(copyHeld->words[0], "word");
    EXPECT_EQ(c, KTest::red);
    ASSERT_NE(copyHeld->owner.in(), nullptr);
    EXPECT_EQ(servedBy(copyHeld->owner.in()), server.pid());

    KTest::PointList pts(2), more(1);
    pts.length(2);
    more.length(1);
    more[0].y = 6;
    KTest::Bytes* raw = nullptr;
    KTest::PointList_var all(tile->outline(pts, more, raw));
    KTest::Bytes_var rawHeld(raw);
    ASSERT_EQ(all->length(), 3u);
    EXPECT_EQ((*all)[2].y, 6);
    EXPECT_EQ(more.length(), 2u);
    ASSERT_EQ(rawHeld->length(), 2u);
    EXPECT_EQ((*rawHeld)[1], 1);

    char* old = CORBA::string_dup("before");
    char* previous = nullptr;
    CORBA_String_var joined(tile->rename("after", old, previous));
    CORBA_String_var oldHeld(old), previousHeld(previous);
    EXPECT_STREQ(joined, "before->after");
    EXPECT_STREQ(oldHeld, "after");
    EXPECT_STREQ(previousHeld, "before");

    KTest::Shape* again = nullptr;
    CORBA_Object* obj = nullptr;
    KTest::Shape_var same(tile->same(tile.in(), again, obj));
    KTest::Shape_var againHeld(again);
    CORBA_Object_var objHeld(obj);
    EXPECT_EQ(servedBy(same.in()), server.pid());
    EXPECT_TRUE(againHeld->_is_equivalent(same.in()));
    ASSERT_NE(objHeld.in(), nullptr);
    EXPECT_TRUE(objHeld->_is_equivalent(tile.in()));

    KTest::Shape::Info_var info(tile->details());
    EXPECT_EQ(info->variety, KTest::Shape::square);
    EXPECT_STREQ(info->labels.second, "second");

    KTest::ShapeList none;
    KTest::ShapeList_var shapes(tile->shapes(none));
    ASSERT_EQ(shapes->length(), 1u);
    EXPECT_EQ(servedBy((*shapes)[0].in()), server.pid());

    // A oneway call, then a two-way one behind it on the same connection.
    tile->poke("poked");
    CORBA_String_var caption(tile->caption());
    EXPECT_STREQ(caption, "poked");

    // Stubs of the bases reach the derived servant, and narrow down again.
    KTest::Inner::Base_var base(object<KTest::Inner::Base>());
    ASSERT_NE(base.in(), nullptr);
    EXPECT_EQ(base->add(40, 2), 42);
    KTest::Labelled_var labelled(object<KTest::Labelled>());
    ASSERT_NE(labelled.in(), nullptr);
    EXPECT_TRUE(labelled->_is_a("IDL:kelvanor.test/KTest/Square:1.0"));
}

TEST_F(IdlRemote, ClassArgumentsAndNullValues) {
    KTest::Shape_var shape(object<KTest::Shape>());
    ASSERT_NE(shape.in(), nullptr);

    CORBA_CreationImplDef def("Demo::Echo", "e", CORBA_OctetSequence(), "/bin/old");
    CORBA_CreationImplDef* copy = nullptr;
    CORBA_CreationImplDef* swap = new CORBA_CreationImplDef(def);
    swap->path = "/bin/swap";
    CORBA_CreationImplDef_var result(shape->redefine(&def, copy, swap));
    CORBA_CreationImplDef_var copyHeld(copy), swapHeld(swap);
    EXPECT_STREQ(result->path, "/bin/swap");
    EXPECT_STREQ(copyHeld->path, "/bin/old");
    EXPECT_STREQ(swapHeld->path, "/new");

    // No null object goes on the wire, and a failed call leaves the out
    // and inout arguments alone.
    copy = nullptr;
    CORBA_CreationImplDef* nothing = nullptr;
    EXPECT_THROW(shape->redefine(nullptr, copy, swap), CORBA_BAD_PARAM);
    EXPECT_THROW(shape->redefine(&def, copy, nothing), CORBA_BAD_PARAM);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(nothing, nullptr);

    // A servant that answers with no value where one is due fails the call.
    KTest::Record r;
    r.l = 999;
    KTest::Record* out = nullptr;
    KTest::Colour c = KTest::red;
    const CORBA_BAD_PARAM e =
        ktest::thrown<CORBA_BAD_PARAM>([&] { delete shape->describe(r, out, c); });
    EXPECT_TRUE(e.minor() == 0 && e.completed() == CORBA::COMPLETED_NO);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(c, KTest::red);
}

TEST_F(IdlRemote, UserExceptionsArriveWithTheirMembers) {
    const KTest::Failure one = ktest::thrown<KTest::Failure>([&] { tile->fail(1); });
    EXPECT_STREQ(one.reason, "one");
    EXPECT_EQ(one.code, 1);
    EXPECT_EQ(one.hue, KTest::blue);
    ASSERT_EQ(one.where.length(), 1u);
    EXPECT_EQ(one.where[0].y, 2);
    EXPECT_THROW(tile->fail(2), KTest::Inner::Empty);
    {
        // Let go before the system exception below, which ends the connection:
        // a reference still held would keep the closed one (see ZEBStubInfo's
        // tests) and the next call could not bind again.
        const KTest::Shape::Broken three =
            ktest::thrown<KTest::Shape::Broken>([&] { tile->fail(3); });
        EXPECT_STREQ(three.why, "three");
        ASSERT_NE(three.which.in(), nullptr);
        EXPECT_EQ(servedBy(three.which.in()), server.pid());
    }
    EXPECT_EQ(ktest::thrown<CORBA_NO_PERMISSION>([&] { tile->fail(4); }).minor(), 4u);
    tile->fail(0);
}
