// The run-time types of generated code: the static TypeCodes against ones
// built by hand, and any, TypeCode, union and array arguments through
// generated stubs to dyn_server, a child process on loopback.
#include <gtest/gtest.h>

#include <chrono>
#include <string>


#include "any.h"
#include "dyn.h"
#include "mstrm.h"
#include "orb.h"
#include "orb_loopback.h"
#include "../orb/echo_child.h"

namespace {

// Read by a static initialiser, before main and in whatever order the
// units' initialisers run.
const CORBA::ULong kShadesAtStart = Dyn::_tc_Shade->member_count();

// An Any of an Item, its value as the CDR block.
CORBA_Any itemAny(const Dyn::Item& item) {
    CORBA_MarshalOutBuffer buf;
    buf << item;
    return CORBA_Any(CORBA_TypeCode::_duplicate(Dyn::_tc_Item), buf);
}

Dyn::Item sampleItem() {
    Dyn::Item item;
    item.id = 7;
    item.name = "seven";
    item.extra <<= 2.5;
    return item;
}

}  // namespace

TEST(DynTypeCodes, StaticsEqualHandBuiltOnes) {
    EXPECT_EQ(kShadesAtStart, 3u);
    const char* const shades[] = {"light", "dark", "grey"};
    CORBA_TypeCode_var shade(
        new CORBA_TypeCode("IDL:kelvanor.test/Dyn/Shade:1.0", "Shade", shades, 3, 0));
    const ZEBTCMember itemMembers[] = {
        {"id", CORBA::_tc_long, nullptr}, {"name", CORBA::_tc_string, nullptr},
        {"extra", CORBA::_tc_any, nullptr}};
    CORBA_TypeCode_var item(new CORBA_TypeCode(CORBA::tk_struct, "IDL:kelvanor.test/Dyn/Item:1.0",
                                               "Item", itemMembers, 3, 0));
    CORBA_TypeCode_var seq(new CORBA_TypeCode(CORBA::tk_sequence, 0, item, 0));
    CORBA_TypeCode_var row(new CORBA_TypeCode(CORBA::tk_array, 3, CORBA::_tc_double, 0));
    CORBA_TypeCode_var rows(new CORBA_TypeCode(CORBA::tk_array, 2, row, 0));
    CORBA_Any light(CORBA_TypeCode::_duplicate(shade), new CORBA::ULong(0), 1);
    CORBA_Any dark(CORBA_TypeCode::_duplicate(shade), new CORBA::ULong(1), 1);
    const ZEBTCMember valueMembers[] = {
        {"number", CORBA::_tc_long, &light}, {"text", CORBA::_tc_string, &dark},
        {"thing", item, nullptr}};
    CORBA_TypeCode_var value(new CORBA_TypeCode("IDL:kelvanor.test/Dyn/Value:1.0", "Value", shade,
                                                valueMembers, 3, 0));
    const ZEBTCMember refusedMembers[] = {
        {"why", CORBA::_tc_string, nullptr}, {"tone", shade, nullptr}};
    CORBA_TypeCode_var refused(new CORBA_TypeCode(
        CORBA::tk_except, "IDL:kelvanor.test/Dyn/Refused:1.0", "Refused", refusedMembers, 2, 0));
    struct {
        CORBA_TypeCode* generated;
        CORBA_TypeCode* byHand;
        CORBA::TCKind kind;
    } const cases[] = {
        {Dyn::_tc_Shade, shade, CORBA::tk_enum},     {Dyn::_tc_Item, item, CORBA::tk_struct},
        {Dyn::_tc_ItemList, seq, CORBA::tk_alias},   {Dyn::_tc_Matrix, rows, CORBA::tk_alias},
        {Dyn::_tc_Value, value, CORBA::tk_union},    {Dyn::_tc_Refused, refused, CORBA::tk_except},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.generated->kind(), c.kind) << c.generated;
        EXPECT_EQ(compare(c.generated, c.byHand), 0) << c.generated;
        EXPECT_TRUE(c.generated->is_static());
    }
    // Pick: one member per label, the default last with its octet label.
    EXPECT_EQ(Dyn::_tc_Pick->member_count(), 4u);
    EXPECT_EQ(Dyn::_tc_Pick->default_index(), 3);
    EXPECT_STREQ(Dyn::_tc_Pick->member_name(2), "s");
    EXPECT_EQ(Dyn::_tc_Value->default_index(), 2);
}

class DynRemote : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.ready()) << "dyn_server gave no reference: " << server.output();
        CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(server.ior.c_str()));
        probe = Dyn::Probe::_narrow(obj);
        ASSERT_NE(probe.in(), nullptr);
    }
    ktest::EchoChild server{{KELVANOR_DYN_SERVER_BINARY, "-OAipaddr", "127.0.0.1", "probe"}};
    Dyn::Probe_var probe;
};

TEST_F(DynRemote, AnysAndTypeCodesComeBackEqual) {
    CORBA_Any text;
    text <<= "words";
    CORBA_Any nested;
    nested <<= text;
    const CORBA_Any sent[] = {text, nested, itemAny(sampleItem())};
    for (const CORBA_Any& a : sent) {
        CORBA_Any_var back(probe->echo(a));
        EXPECT_EQ(compare(*back, a), 0) << a;
        CORBA_TypeCode_var tc(probe->kind_of(a));
        EXPECT_EQ(compare(tc, a.type()), 0);
    }
    CORBA_Any inout = text;
    CORBA_Any* old = nullptr;
    probe->swap(inout, old);
    CORBA_Any_var oldHolder(old);
    CORBA::Long l = 0;
    EXPECT_TRUE(inout >>= l);
    EXPECT_EQ(l, 42);
    EXPECT_EQ(compare(*old, text), 0);
}

TEST_F(DynRemote, StructsSequencesUnionsArraysAndEnums) {
    Dyn::ItemList list;
    Dyn::Shade shade = Dyn::grey;
    Dyn::Item_var item(probe->store(sampleItem(), list, shade));
    EXPECT_EQ(item->id, 8);
    EXPECT_STREQ(item->name, "seven");
    ASSERT_EQ(list.length(), 1u);
    CORBA::Double d = 0;
    EXPECT_TRUE(list[0].extra >>= d);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(shade, Dyn::dark);

    Dyn::Value number;
    number.number(12);
    Dyn::Pick* pick = nullptr;
    Dyn::Value_var same(probe->flip(number, pick));
    Dyn::Pick_var pickHolder(pick);
    EXPECT_EQ(same->number(), 12);
    EXPECT_EQ(pick->_d(), 2);
    EXPECT_STREQ(pick->s(), "12");
    Dyn::Value thing;
    thing.thing(sampleItem());
    EXPECT_EQ(thing._d(), Dyn::grey);
    same = probe->flip(thing, pick);
    pickHolder = pick;
    EXPECT_EQ(same->_d(), Dyn::grey);
    EXPECT_STREQ(same->thing().name, "seven");
    EXPECT_EQ(pick->o(), 7);
    EXPECT_EQ(Dyn::Pick()._d(), 0);  // a new union holds its default

    Dyn::Matrix m = {{1, 2, 3}, {4, 5, 6}};
    Dyn::Names_slice* names = nullptr;
    Dyn::Matrix_var scaled(probe->scale(m, 0.5, names));
    Dyn::Names_var namesHolder(names);
    EXPECT_EQ(scaled[1][2], 3.0);
    EXPECT_EQ(scaled[0][0], 0.5);
    EXPECT_EQ(std::stod(names[1].in()), 2.0);
}

TEST_F(DynRemote, ExceptionsOnewaysAndLateAnswers) {
    try {
        probe->refuse(Dyn::grey);
        ADD_FAILURE() << "no exception";
    } catch (const Dyn::Refused& e) {
        EXPECT_STREQ(e.why, "refused");
        EXPECT_EQ(e.tone, Dyn::grey);
    }
    probe->note("kept");
    CORBA_String_var note(probe->last_note());
    EXPECT_STREQ(note, "kept");
    auto start = std::chrono::steady_clock::now();
    probe->hold(100);
    CORBA_InterfaceDef_var nil(probe->definition());
    EXPECT_EQ(nil.in(), nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
}
