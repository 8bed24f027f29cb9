// The run-time types of generated code: the static TypeCodes against ones
// built from the repository's member sequences, the Any operators of the
// generated types, and any, TypeCode, union and array arguments through
// generated stubs to dyn_server and to omniORB's omni_dyn_server, child
// processes on loopback.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "any.h"
#include "dyn.h"
#include "mstrm.h"
#include "orb.h"
#include "orb_loopback.h"
#include "../orb/echo_child.h"
#include "../orb/rawconn.h"

namespace {

// Read by a static initialiser, before main and in whatever order the
// units' initialisers run.
const CORBA::ULong kShadesAtStart = Dyn::_tc_Shade->member_count();

Dyn::Item sampleItem() {
    Dyn::Item item;
    item.id = 7;
    item.name = "seven";
    item.extra <<= 2.5;
    return item;
}

}  // namespace

namespace {

// Members for the constructors that take the repository's sequences.
template <class Seq, class... Member>
Seq members(Member... m) {
    Seq s;
    for (auto& one : {m...}) {
        s.length(s.length() + 1);
        s[s.length() - 1] = one;
    }
    return s;
}
CORBA_StructMember field(const char* name, CORBA_TypeCode* tc) {
    CORBA_StructMember m;
    m.name = name;
    m.type = CORBA_TypeCode::_duplicate(tc);
    return m;
}
CORBA_UnionMember arm(const char* name, CORBA_TypeCode* tc, const CORBA_Any& label) {
    CORBA_UnionMember m;
    m.name = name;
    m.type = CORBA_TypeCode::_duplicate(tc);
    m.label = label;
    return m;
}

}  // namespace

TEST(DynTypeCodes, StaticsEqualOnesBuiltFromMemberSequences) {
    EXPECT_EQ(kShadesAtStart, 3u);
    CORBA_EnumMemberSeq shades;
    shades.length(3);
    shades[0] = "light";
    shades[1] = "dark";
    shades[2] = "grey";
    CORBA_TypeCode_var shade(
        new CORBA_TypeCode("IDL:kelvanor.test/Dyn/Shade:1.0", "Shade", shades, 0));
    CORBA_TypeCode_var item(new CORBA_TypeCode(
        CORBA::tk_struct, "IDL:kelvanor.test/Dyn/Item:1.0", "Item",
        members<CORBA_StructMemberSeq>(field("id", CORBA::_tc_long),
                                       field("name", CORBA::_tc_string),
                                       field("extra", CORBA::_tc_any)),
        0));
    CORBA_TypeCode_var seq(new CORBA_TypeCode(CORBA::tk_sequence, 0, item, 0));
    CORBA_TypeCode_var row(new CORBA_TypeCode(CORBA::tk_array, 3, CORBA::_tc_double, 0));
    CORBA_TypeCode_var rows(new CORBA_TypeCode(CORBA::tk_array, 2, row, 0));
    CORBA_Any light(CORBA_TypeCode::_duplicate(shade), new CORBA::ULong(0), 1);
    CORBA_Any dark(CORBA_TypeCode::_duplicate(shade), new CORBA::ULong(1), 1);
    CORBA_Any byDefault;
    byDefault <<= CORBA_Any::from_octet(0);
    CORBA_TypeCode_var value(new CORBA_TypeCode(
        "IDL:kelvanor.test/Dyn/Value:1.0", "Value", shade,
        members<CORBA_UnionMemberSeq>(arm("number", CORBA::_tc_long, light),
                                      arm("text", CORBA::_tc_string, dark),
                                      arm("thing", item, byDefault)),
        0));
    CORBA_TypeCode_var refused(new CORBA_TypeCode(
        CORBA::tk_except, "IDL:kelvanor.test/Dyn/Refused:1.0", "Refused",
        members<CORBA_StructMemberSeq>(field("why", CORBA::_tc_string), field("tone", shade)), 0));
    EXPECT_THROW(CORBA_TypeCode(CORBA::tk_union, "IDL:x:1.0", "x", CORBA_StructMemberSeq(), 0),
                 CORBA_BAD_PARAM);
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

// The parameter: false for Kelvanor's dyn_server, true for omniORB's
// server, which is spoken to in the standard TypeCode form.
class DynRemote : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam() && !ktest::runnable(KELVANOR_OMNI_DYN_SERVER_BINARY))
            GTEST_SKIP() << "omniORB not built";
        ZEBGlobalTable::std_typecodes = GetParam();
        if (GetParam())
            server.reset(new ktest::EchoChild({KELVANOR_OMNI_DYN_SERVER_BINARY}));
        else
            server.reset(new ktest::EchoChild(
                {KELVANOR_DYN_SERVER_BINARY, "-OAipaddr", "127.0.0.1", "probe"}));
        ASSERT_TRUE(server->ready()) << "no reference: " << server->output();
        CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(server->ior.c_str()));
        probe = Dyn::Probe::_narrow(obj);
        ASSERT_NE(probe.in(), nullptr);
    }
    void TearDown() override { ZEBGlobalTable::std_typecodes = 0; }

    std::unique_ptr<ktest::EchoChild> server;
    Dyn::Probe_var probe;
};

INSTANTIATE_TEST_SUITE_P(Servers, DynRemote, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& i) {
                             return std::string(i.param ? "omniORB" : "Kelvanor");
                         });

CORBA_Any echoed(Dyn::Probe* probe, const CORBA_Any& a) {
    CORBA_Any* r = probe->echo(a);
    CORBA_Any copy(*r);
    CORBA::release(r);
    return copy;
}

// The Any operators of generated types, through an echo (a union's are a
// struct's); what comes back compares equal, kind_of gives its TypeCode.
TEST_P(DynRemote, AnysOfGeneratedTypesComeBackEqual) {
    CORBA_Any text, nested, a;
    text <<= "words";
    nested <<= text;
    a <<= sampleItem();
    for (const CORBA_Any& sent : {text, nested, a}) {
        EXPECT_EQ(compare(echoed(probe, sent), sent), 0) << sent;
        CORBA_TypeCode_var tc(probe->kind_of(sent));
        EXPECT_EQ(compare(tc, sent.type()), 0);
    }
    Dyn::Item* item = nullptr;
    ASSERT_TRUE(echoed(probe, a) >>= item);
    std::unique_ptr<Dyn::Item> itemHolder(item);
    EXPECT_STREQ(item->name, "seven");
    Dyn::Shade wrong = Dyn::light;
    EXPECT_FALSE(a >>= wrong);  // an Item is no Shade

    Dyn::ItemList* list = new Dyn::ItemList;
    list->length(2);
    (*list)[1] = sampleItem();
    a <<= list;  // taken
    Dyn::ItemList* back = nullptr;
    ASSERT_TRUE(echoed(probe, a) >>= back);
    std::unique_ptr<Dyn::ItemList> backHolder(back);
    ASSERT_EQ(back->length(), 2u);
    EXPECT_EQ((*back)[1].id, 7);

    a <<= Dyn::grey;
    Dyn::Shade shade = Dyn::light;
    EXPECT_TRUE(echoed(probe, a) >>= shade);
    EXPECT_EQ(shade, Dyn::grey);

    Dyn::Matrix m = {{1, 2, 3}, {4, 5, 6}};
    a <<= Dyn::Matrix_forany(m);
    Dyn::Matrix_forany rows;
    ASSERT_TRUE(echoed(probe, a) >>= rows);
    Dyn::Matrix_var rowsHolder(rows.ptr);
    EXPECT_EQ(rows.ptr[1][2], 6.0);

    a <<= probe.in();
    Dyn::Probe* same = nullptr;
    ASSERT_TRUE(echoed(probe, a) >>= same);
    Dyn::Probe_var sameHolder(same);
    EXPECT_TRUE(same->_is_equivalent(probe));

    CORBA_Any inout = text;
    CORBA_Any* old = nullptr;
    probe->swap(inout, old);
    CORBA_Any_var oldHolder(old);
    CORBA::Long l = 0;
    EXPECT_TRUE(inout >>= l);
    EXPECT_EQ(l, 42);
    EXPECT_EQ(compare(*old, text), 0);
}

TEST_P(DynRemote, StructsSequencesUnionsArraysAndEnums) {
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

TEST_P(DynRemote, ExceptionsOnewaysAndLateAnswers) {
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

namespace {

// VmHWM of process pid in kB, the most memory it has held; 0 if unknown.
long peakKb(pid_t pid) {
    const std::string status = ktest::readFile("/proc/" + std::to_string(pid) + "/status");
    const std::string::size_type at = status.find("VmHWM:");
    return at == std::string::npos ? 0 : std::stol(status.substr(at + 6));
}

}  // namespace

// An Any whose count lies gets a CORBA_MARSHAL reply before it costs memory
// (the decoder's other lies are any_test's), and the server serves on.
TEST(DynHostile, AnyWithALyingCountGetsASystemException) {
    using namespace handcdr;
    ktest::EchoChild srv({KELVANOR_DYN_SERVER_BINARY, "-OAipaddr", "127.0.0.1", "probe"});
    ASSERT_TRUE(srv.ready()) << srv.output();
    const std::string key(reinterpret_cast<const char*>(srv.locator->object_key.get_buffer()),
                          srv.locator->object_key.length());
    Cdr longs = request(true, 1, true, key, "echo");
    longs.ulong(CORBA::tk_sequence).ulong(CORBA::tk_long).ulong(0).ulong(1u << 30);
    for (int i = 0; i < 1000; ++i) longs.ulong(7);
    Conn c;
    ASSERT_TRUE(c.open(srv.port) && c.send(longs.message()));
    CdrIn body;
    ASSERT_TRUE(reply(c, 1, 2, body));
    EXPECT_EQ(body.string(), "IDL:omg.org/CORBA/MARSHAL:1.0");
    ASSERT_TRUE(c.open(srv.port));
    ASSERT_TRUE(c.send(request(true, 2, true, key, "echo").ulong(CORBA::tk_long).ulong(9).message()));
    ASSERT_TRUE(reply(c, 2, 0, body));
    EXPECT_EQ(body.ulong(), uint32_t(CORBA::tk_long));
    EXPECT_EQ(body.ulong(), 9u);
    const long peak = peakKb(srv.pid());
    EXPECT_GT(peak, 0);
    EXPECT_LT(peak, 100 * 1024);
}

// omniORB's Anys: in the broker's own TypeCode form basic kinds pass and a
// struct gets a system exception on a connection that serves on; an omniORB
// client sends every kind of Peer::AnyEcho, indirections included, to
// Kelvanor's server in the standard form and checks what comes back.
TEST(DynOmni, OwnFormPassesBasicKindsAndStdFormEveryKind) {
    if (!ktest::runnable(KELVANOR_OMNI_DYN_SERVER_BINARY)) GTEST_SKIP() << "omniORB not built";
    ktest::EchoChild omni({KELVANOR_OMNI_DYN_SERVER_BINARY});
    ASSERT_TRUE(omni.ready()) << omni.output();
    Dyn::Probe_var probe = Dyn::Probe::_narrow(
        CORBA_Object_var(ktest::loopbackOrb()->string_to_object(omni.ior.c_str())));
    ASSERT_NE(probe.in(), nullptr);
    CORBA_Any l, d;
    l <<= CORBA::Long(-7);
    d <<= 2.5;
    EXPECT_EQ(compare(echoed(probe, l), l), 0);
    EXPECT_EQ(compare(echoed(probe, d), d), 0);
    CORBA_Any item;
    item <<= sampleItem();
    EXPECT_THROW(echoed(probe, item), CORBA_SystemException);
    EXPECT_EQ(compare(echoed(probe, l), l), 0);

    ktest::EchoChild server({KELVANOR_ANY_ECHO_SERVER_BINARY, "-OAipaddr", "127.0.0.1",
                             "-ORBstdtypecodes"});
    ASSERT_TRUE(server.ready()) << server.output();
    ktest::Outcome client = ktest::run({KELVANOR_OMNI_ANY_CLIENT_BINARY, server.ior});
    EXPECT_EQ(client.status, 0) << client.out << client.err;
    EXPECT_NE(client.out.find("check passed"), std::string::npos);
    EXPECT_TRUE(server.running() && omni.running());
}
