// The generated data types: structures, sequences and enumerations through
// the CDR streams and back, their printing forms (exceptions too), the
// class that stands for a structure, and the names and ids the compiler
// gives the broker's own interfaces.
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <iostream>
#include <string>
#include <type_traits>

#include "Activation.h"
#include "CosNaming.h"
#include "boa.h"
#include "kidl_tile.h"
#include "mstrm.h"
#include "orb.h"
#include "orb_loopback.h"
#include "thrown.h"
#include "zebglob.h"

namespace {

// The mapping of member types, constants and typedefs. Argument and result
// types need no check here: the servant in kidl_tile.h overrides each
// operation with the exact signature.
static_assert(std::is_same<decltype(KTest::Record::data), CORBA_OctetSequence>::value &&
                  std::is_same<decltype(KTest::Record::words), CORBA_StringSequence>::value &&
                  std::is_same<decltype(KTest::Record::owner), KTest::Shape_var>::value &&
                  std::is_same<decltype(KTest::Record::name), CORBA_String_var>::value,
              "anonymous octet and string sequences are the runtime's classes");
static_assert(std::is_same<decltype(Activation::ImplementationStatus::impl),
                           CORBA_CreationImplDef_var>::value,
              "the hand-written class stands for CreationImplDef");
static_assert(std::is_same<ShapeAlias_var, KTest::Shape_var>::value &&
                  std::is_same<Anything_var, CORBA_Object_var>::value &&
                  std::is_same<DefAlias, CORBA_CreationImplDef>::value &&
                  std::is_base_of<Empty, Marker>::value,
              "typedefs and inheritance outside any module");
static_assert(Big == 4000000000u && Half == 0.5 && Letter == 'k' && Favourite == KTest::green &&
                  KTest::Inner::Base::Version == 2, "constants");

// Writes a value with its stream operator, reads it back into another and
// checks that the reader took every byte.
template <class T>
void roundTrip(const T& in, T& out) {
    CORBA_MarshalOutBuffer w;
    w.owns_buffer(1);
    static_cast<TBostream&>(w) << in;
    CORBA_MarshalInBuffer r(w.buffer(), w.length());
    static_cast<TBistream&>(r) >> out;
    EXPECT_EQ(r.cursor(), r.size());
}

// The bytes of these unsigned longs, then a read of T from them.
template <class T>
void readFromULongs(std::initializer_list<unsigned long> raw, T& out) {
    CORBA_MarshalOutBuffer w;
    w.owns_buffer(1);
    for (unsigned long v : raw) w << v;
    CORBA_MarshalInBuffer r(w.buffer(), w.length());
    static_cast<TBistream&>(r) >> out;
}

void expectBadParam(const std::function<void()>& f) {
    const CORBA_BAD_PARAM e = ktest::thrown<CORBA_BAD_PARAM>(f);
    EXPECT_TRUE(e.minor() == 0 && e.completed() == CORBA::COMPLETED_NO);
}

std::string consoleText(const std::function<void()>& print) {
    testing::internal::CaptureStdout();
    print();
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(IdlStruct, EveryMemberKindRoundTripsAndCopiesOwnTheirParts) {
    int argc = 0;
    ktest::loopbackOrb();
    ktest::TileImpl tile("records");
    CORBA::ORB_init(argc, nullptr)->BOA_init(argc, nullptr)->obj_is_ready(&tile, nullptr);

    KTest::Record in;
    in.name = "name";
    in.tag = "";
    in.anything = CORBA_Object::_duplicate(&tile);
    in.owner = KTest::Shape::_duplicate(&tile);
    in.data.length(3);
    in.data[2] = 0xff;
    in.words.length(2);
    in.words[0] = "w0";
    in.words[1] = "w1";
    in.numbers.length(2);
    in.numbers[0] = -5;
    in.numbers[1] = 0x7fffffff;
    in.table.length(2);
    in.table[1].length(1);
    in.table[1][0] = KTest::blue;
    in.points.length(1);
    in.points[0].x = -1;
    in.hue = KTest::green;
    in.flag = 1;
    in.letter = 'q';
    in.small = 200;
    in.s = -300;
    in.us = 65535;
    in.l = -70000;
    in.ul = 4000000000u;
    in.f = 1.5f;
    in.d = -2.25;
    in.origin.y = 9;

    KTest::Record out;
    out.name = "old";  // replaced, not written into
    roundTrip(in, out);
    // The printed form shows every member, so the two agree only if each
    // member came back; a few values are looked for to be sure it does.
    const std::string printed = consoleText([&] { std::cout << in; });
    EXPECT_EQ(consoleText([&] { std::cout << out; }), printed);
    for (const char* shown : {"name: name\n", "w1", "2147483647", "Colour:blue", "us: 65535\n",
                              "ul: 4000000000\n", "d: -2.25\n"})
        EXPECT_NE(printed.find(shown), std::string::npos) << shown << " in " << printed;
    // This process holds the object: the references come back as itself.
    EXPECT_EQ(out.anything.in(), static_cast<CORBA_Object*>(&tile));
    EXPECT_EQ(out.owner.in(), static_cast<KTest::Shape*>(&tile));

    // Null strings and nil references go out as "" and the nil reference.
    KTest::Record empty, back;
    back.owner = KTest::Shape::_duplicate(&tile);
    roundTrip(empty, back);
    EXPECT_STREQ(back.name, "");
    EXPECT_EQ(back.owner.in(), nullptr);
    EXPECT_EQ(back.anything.in(), nullptr);

    // Copies own their strings and count their references.
    const CORBA::Long before = tile._ref_count();
    {
        KTest::Shape::Broken a(&tile, "why");
        KTest::Shape::Broken b(a);
        EXPECT_NE(a.why.in(), b.why.in());
        KTest::Record r, s;
        r.owner = KTest::Shape::_duplicate(&tile);
        s = r;
        s = r;  // the old reference is released
        EXPECT_EQ(tile._ref_count(), before + 4);
    }
    EXPECT_EQ(tile._ref_count(), before);
}

TEST(IdlStruct, KeywordMembersAndSequencesOfTheStandInClass) {
    Keywords in;
    in._cxx_new = 3;
    in._cxx_delete = "gone";
    in.defs.length(2);
    in.defs[0] = new CORBA_CreationImplDef("I", "a", CORBA_OctetSequence(), "/a");
    in.defs[1] = new CORBA_CreationImplDef("I", "b", CORBA_OctetSequence(), "/b");
    Keywords out;
    roundTrip(in, out);
    EXPECT_EQ(out._cxx_new, 3);
    ASSERT_EQ(out.defs.length(), 2u);
    EXPECT_STREQ(out.defs[1]->path, "/b");
    EXPECT_EQ(consoleText([&] { std::cout << in; }).find("\tnew: 3\n\tdelete: gone\n"),
              std::string("struct Keywords {\n").size());
    // An element left null cannot be written.
    in.defs.length(3);
    expectBadParam([&] { roundTrip(in, out); });
}

TEST(IdlEnum, ValueBeyondTheLastIsBadParam) {
    KTest::Colour colour;
    CosNaming::Binding binding;
    KTest::Record::_table_seq_seq row;
    expectBadParam([&] { readFromULongs({3}, colour); });
    // Inside a structure (no name components, then the type) and a sequence.
    expectBadParam([&] { readFromULongs({0, 2}, binding); });
    expectBadParam([&] { readFromULongs({2, 1, 7}, row); });
}

TEST(IdlSequence, LengthIndexAndStreamForm) {
    KTest::PointList pts;
    expectBadParam([&] { pts[0]; });
    pts.length(2);
    pts[1].x = 5;
    pts.length(40);
    EXPECT_EQ(pts[1].x, 5);
    expectBadParam([&] { pts[40]; });
    pts.length(3);
    EXPECT_EQ(pts.maximum(), 40u);

    KTest::PointList back(1);
    roundTrip(pts, back);
    ASSERT_EQ(back.length(), 3u);
    EXPECT_EQ(back[1].x, 5);

    // The holder of a sequence of structures copies it deeply.
    CosNaming::Name name;
    name.length(2);
    name[0].id = "a";
    CosNaming::Name_var held(new CosNaming::Name);
    roundTrip(name, *held);
    CosNaming::Name_var copy(held);
    EXPECT_NE(copy.ptr(), held.ptr());
    EXPECT_STREQ(copy[0].id, "a");
    EXPECT_STREQ(copy[1].kind, "");
}

TEST(IdlPrinting, FormsOfStructuresSequencesEnumsAndExceptions) {
    Activation::ObjectStatusList list(1);
    list.length(1);
    list[0].process_id = 42;
    list[0].activation_state = Activation::WAITING_FOR_ACTIVATION;
    EXPECT_EQ(consoleText([&] { std::cout << list << static_cast<Activation::State>(7); }),
              "SEQUENCE NAME: Activation::ObjectStatusList\nNUM OF ELEMENTS: 1\n"
              "ELEMENT NUM: 0 = struct Activation::ObjectStatus {\n"
              "\tprocess_id: 42\n"
              "\tactivation_state: State:WAITING_FOR_ACTIVATION\n\n"
              "\tobjRef: (nil)\n\n"
              "}\n\nState:7\n");
    KTest::Failure f("bad", 3, KTest::red, KTest::PointList());
    EXPECT_EQ(consoleText([&] { std::cout << static_cast<const CORBA_Exception&>(f); }),
              "Exception: KTest::Failure\n\treason: bad\n\tcode: 3\n\thue: Colour:red\n\n"
              "\twhere: SEQUENCE NAME: KTest::PointList\nNUM OF ELEMENTS: 0\n\n");
}

TEST(IdlNames, RepositoryIdsAndWireNames) {
    // Prefixes and nesting in names and ids; attributes by their wire names.
    const std::pair<const char*, const char*> names[] = {
        {CosNaming::NamingContext::NotFound::_description.id,
         "IDL:omg.org/CosNaming/NamingContext/NotFound:1.0"},
        {KTest::Inner::Base::_desc().repository_id(), "IDL:kelvanor.test/KTest/Inner/Base:1.0"},
        {_sk_KTest::_sk_Shape::_methods[0].name, "_get_form"},
        {_sk_KTest::_sk_Shape::_methods[1].name, "_set_form"},
    };
    for (const auto& n : names) EXPECT_STREQ(n.first, n.second);
}
