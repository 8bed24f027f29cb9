// The run-time types of generated code: the static TypeCodes against ones
// built from the repository's member sequences, the Any operators of the
// generated types, and any, TypeCode, union and array arguments through
// generated stubs and through dynamic requests (the deferred forms too) to
// dyn_server and to omniORB's omni_dyn_server, child processes on loopback.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "../orb/echo_child.h"
#include "../orb/handcdr.h"
#include "../orb/rawconn.h"
#include "kidl_tile.h"
#include "any.h"
#include "dispatch.h"
#include "dyn.h"
#include "iohandle.h"
#include "mstrm.h"
#include "orb.h"
#include "orb_loopback.h"
#include "request.h"
#include "zebboa.h"
#include "zebglob.h"
#include "zebstub.h"

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

TEST(DynTypeCodes, StaticsEqualOnesBuiltFromMemberSequences) {
    EXPECT_EQ(kShadesAtStart, 3u);
    CORBA_TypeCode_var shade(new CORBA_TypeCode(
        "IDL:kelvanor.test/Dyn/Shade:1.0", "Shade",
        members<CORBA_EnumMemberSeq>("light", "dark", "grey"), 0));
    CORBA_TypeCode_var item(new CORBA_TypeCode(
        CORBA::tk_struct, "IDL:kelvanor.test/Dyn/Item:1.0", "Item",
        members<CORBA_StructMemberSeq>(field("id", CORBA::_tc_long),
                                       field("name", CORBA::_tc_string),
                                       field("extra", CORBA::_tc_any)),
        0));
    CORBA_TypeCode_var seq(new CORBA_TypeCode(CORBA::tk_sequence, 0, item, 0));
    CORBA_TypeCode_var refused(new CORBA_TypeCode(
        CORBA::tk_except, "IDL:kelvanor.test/Dyn/Refused:1.0", "Refused",
        members<CORBA_StructMemberSeq>(field("why", CORBA::_tc_string), field("tone", shade)), 0));
    struct {
        CORBA_TypeCode* generated;
        CORBA_TypeCode* byHand;
        CORBA::TCKind kind;
    } const cases[] = {
        {Dyn::_tc_Shade, shade, CORBA::tk_enum},
        {Dyn::_tc_Item, item, CORBA::tk_struct},
        {Dyn::_tc_ItemList, seq, CORBA::tk_alias},
        {Dyn::_tc_Refused, refused, CORBA::tk_except},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.generated->kind(), c.kind) << c.generated;
        EXPECT_EQ(compare(c.generated, c.byHand), 0) << c.generated;
        EXPECT_TRUE(c.generated->is_static());
    }
}

std::vector<std::string> dynServer(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> argv{KELVANOR_DYN_SERVER_BINARY, "-OAipaddr", "127.0.0.1"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    argv.push_back("probe");
    return argv;
}

// The parameter: false for Kelvanor's dyn_server, true for omniORB's
// server, which is spoken to in the standard TypeCode form.
class DynRemote : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam() && !ktest::runnable(KELVANOR_OMNI_DYN_SERVER_BINARY))
            GTEST_SKIP() << "omniORB not built";
        ZEBGlobalTable::std_typecodes = GetParam();
        server.reset(new ktest::EchoChild(
            GetParam() ? std::vector<std::string>{KELVANOR_OMNI_DYN_SERVER_BINARY} : dynServer()));
        ASSERT_TRUE(server->ready()) << "no reference: " << server->output();
        orb = ktest::loopbackOrb();
        probe = Dyn::Probe::_narrow(CORBA_Object_var(orb->string_to_object(server->ior.c_str())));
        ASSERT_NE(probe.in(), nullptr);
    }
    void TearDown() override { ZEBGlobalTable::std_typecodes = 0; }
    CORBA_Request* hold(CORBA::Long ms) {
        CORBA_Request* r = probe->_request("hold");
        r->add_in_arg() <<= ms;
        return r;
    }

    std::unique_ptr<ktest::EchoChild> server;
    CORBA_ORB* orb = nullptr;
    Dyn::Probe_var probe;
};
// What needs our own server: a restart on the same port, a spare connection.
class DynKelvanor : public DynRemote {};

INSTANTIATE_TEST_SUITE_P(Servers, DynRemote, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& i) {
                             return std::string(i.param ? "omniORB" : "Kelvanor");
                         });
INSTANTIATE_TEST_SUITE_P(Server, DynKelvanor, ::testing::Values(false));

CORBA_Any echoed(Dyn::Probe* probe, const CORBA_Any& a) {
    CORBA_Any* r = probe->echo(a);
    CORBA_Any copy(*r);
    CORBA::release(r);
    return copy;
}

// An Any of tc holding v, and v read back out of one.
template <class T>
CORBA_Any cdrOf(CORBA_TypeCode* tc, const T& v) {
    CORBA_MarshalOutBuffer buf;
    static_cast<TBostream&>(buf) << v;
    return CORBA_Any(CORBA_TypeCode::_duplicate(tc), buf);
}
template <class T>
T fromAny(const CORBA_Any& a, T v = T()) {
    CORBA_MarshalInBuffer in(static_cast<char*>(a.value()), static_cast<CORBA::ULong>(a.size()));
    in >> v;
    return v;
}
std::string text(const CORBA_Any& a) { return *static_cast<char**>(a.value()); }


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
    EXPECT_EQ(CORBA_InterfaceDef_var(probe->definition()).in(), nullptr);
}

// omniORB's Anys: in the broker's own TypeCode form basic kinds pass and a
// struct gets a system exception on a connection that serves on; an omniORB
// client sends every kind of Peer::AnyEcho, indirections included, to
// Kelvanor's server in the standard form and checks what comes back.
class DynOmniorb : public DynRemote {};
INSTANTIATE_TEST_SUITE_P(Server, DynOmniorb, ::testing::Values(true));

TEST_P(DynOmniorb, OwnFormPassesBasicKindsAndStdFormEveryKind) {
    ZEBGlobalTable::std_typecodes = 0;
    CORBA_Any l, d;
    l <<= CORBA::Long(-7);
    d <<= 2.5;
    EXPECT_EQ(compare(echoed(probe, l), l), 0);
    EXPECT_EQ(compare(echoed(probe, d), d), 0);
    CORBA_Any item;
    item <<= sampleItem();
    EXPECT_THROW(echoed(probe, item), CORBA_SystemException);
    EXPECT_EQ(compare(echoed(probe, l), l), 0);

    ktest::EchoChild ours({KELVANOR_ANY_ECHO_SERVER_BINARY, "-OAipaddr", "127.0.0.1",
                           "-ORBstdtypecodes"});
    ASSERT_TRUE(ours.ready()) << ours.output();
    ktest::Outcome client = ktest::run({KELVANOR_OMNI_ANY_CLIENT_BINARY, ours.ior});
    EXPECT_EQ(client.status, 0) << client.out << client.err;
    EXPECT_NE(client.out.find("check passed"), std::string::npos);
    EXPECT_TRUE(ours.running() && server->running());
}

TEST_P(DynRemote, EveryOperationWithItsArgumentsAsAnys) {
    CORBA_Any words;
    words <<= "words";
    CORBA_Request_var echo(probe->_request("echo")), swap(probe->_request("swap"));
    echo->add_in_arg() <<= words;
    echo->return_value() <<= CORBA_Any();
    swap->add_inout_arg() <<= words;
    CORBA_Any& b = swap->add_out_arg() <<= CORBA_Any();
    for (CORBA_Request* r : {echo.in(), swap.in()}) r->invoke();
    CORBA_Any inner;
    ASSERT_TRUE(echo->return_value() >>= inner);
    EXPECT_EQ(compare(inner, words), 0);
    ASSERT_TRUE(b >>= inner);
    EXPECT_EQ(compare(inner, words), 0);

    Dyn::Item item = sampleItem();
    Dyn::Value number;
    number.number(12);
    CORBA_Request_var store(probe->_request("store")), flip(probe->_request("flip"));
    store->add_in_arg() = cdrOf(Dyn::_tc_Item, item);
    CORBA_Any& list = store->add_inout_arg() = cdrOf(Dyn::_tc_ItemList, Dyn::ItemList());
    CORBA_Any& shade = store->add_out_arg() = cdrOf(Dyn::_tc_Shade, Dyn::grey);
    store->return_value() = cdrOf(Dyn::_tc_Item, Dyn::Item());
    flip->add_in_arg() = cdrOf(Dyn::_tc_Value, number);
    CORBA_Any& pick = flip->add_out_arg() = cdrOf(Dyn::_tc_Pick, Dyn::Pick());
    flip->return_value() = cdrOf(Dyn::_tc_Value, Dyn::Value());
    for (CORBA_Request* r : {store.in(), flip.in()}) r->invoke();
    EXPECT_EQ(fromAny<Dyn::Item>(store->return_value()).id, 8);
    EXPECT_STREQ(fromAny<Dyn::ItemList>(list)[0].name, "seven");
    EXPECT_EQ(*static_cast<CORBA::ULong*>(shade.value()), CORBA::ULong(Dyn::dark));
    EXPECT_EQ(fromAny<Dyn::Value>(flip->return_value()).number(), 12);
    EXPECT_STREQ(fromAny<Dyn::Pick>(pick).s(), "12");

    CORBA_Request_var note(probe->_request("note")), last_note(probe->_request("last_note")),
        refuse(probe->_request("refuse"));
    note->add_in_arg() <<= "kept";
    note->send_oneway();
    last_note->return_value() <<= "";
    refuse->add_in_arg() = cdrOf(Dyn::_tc_Shade, Dyn::grey);
    for (CORBA_Request* r : {last_note.in(), refuse.in()}) r->invoke();
    EXPECT_EQ(text(last_note->return_value()), "kept");
    // A user exception is an answer: it waits in the request's environment.
    const Dyn::Refused* e = Dyn::Refused::_narrow(refuse->env()->exception());
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->why, "refused");
    EXPECT_EQ(e->tone, Dyn::grey);
}

TEST_P(DynRemote, DeferredStatesAndCollection) {
    CORBA_Request_var slow(hold(100));
    slow->send_deferred();
    EXPECT_FALSE(slow->poll_response());
    while (!slow->poll_response()) {
    }
    EXPECT_TRUE(slow->poll_response());
    slow->get_response();

    CORBA_Request_var a(hold(50)), b(probe->_request("last_note"));
    b->return_value() <<= "";
    orb->send_multiple_requests_deferred(CORBA_RequestSeq(
        2, 2, new CORBA_Request* [2] { a, b }, 1));
    std::set<CORBA_Request*> got;
    for (int i = 0; i < 2; ++i) {
        CORBA_Request_var r;
        orb->get_next_response(r.out());
        got.insert(r.in());
    }
    EXPECT_EQ(got, (std::set<CORBA_Request*>{a.in(), b.in()}));
    EXPECT_FALSE(orb->poll_next_response());
    CORBA_Request_var none;
    orb->get_next_response(none.out());
    EXPECT_EQ(none.in(), nullptr);
}

TEST_P(DynKelvanor, DeferredRequestIsSentAgainToARestartedServer) {
    CORBA_Request_var r(hold(2000));
    r->send_deferred();
    const std::string port = std::to_string(server->port);
    server->kill();
    ktest::EchoChild again(dynServer({"-OAport", port}));
    ASSERT_TRUE(again.ready()) << again.output();
    r->get_response();
    EXPECT_EQ(r->env()->exception(), nullptr);
}

TEST_P(DynKelvanor, DeferredRequestMadeWhileACallWaitsGoesOnASpare) {
    struct Later : dpIOHandler {
        CORBA_Request* r = nullptr;
        bool onSpare = false;
        void timerExpired(long, long) override {
            r->send_deferred();
            ZEBStubInfo* stub = r->target()->_stub();
            onSpare = stub->lastClient() != stub->client();
        }
    } later;
    CORBA_Request_var note(probe->_request("last_note"));
    note->return_value() <<= "";
    later.r = note;
    dpDispatcher::instance()->startTimer(0, 50000, &later);
    CORBA_Request_var waiting(hold(300));
    waiting->invoke();
    EXPECT_TRUE(later.onSpare);
    note->get_response();  // returns once the spare's reader handed the reply over
}

// A client with an object to serve waits for its reply in the dispatcher
// and answers others meanwhile; one with none waits in the kernel, and a
// request that comes to it waits in the backlog until the reply is in.
TEST_P(DynKelvanor, AClientServesWhileItsCallWaitsOnlyWithAnObject) {
    const uint16_t port = ZEBGlobalTable::_boa->port();
    auto answeredAfterMs = [&](const std::string& key) {
        std::atomic<long> ms{-1};
        std::atomic<bool> done{false};
        std::thread other([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            const auto start = std::chrono::steady_clock::now();
            handcdr::Conn c;
            handcdr::Message m;
            if (c.open(port) && c.send(handcdr::request(true, 1, true, key, "_get_side").message()) &&
                c.receive(m))
                ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::steady_clock::now() - start).count();
            done = true;
        });
        probe->hold(400);
        for (int i = 0; i < 50 && !done; ++i) {  // what waited is served now
            timeval tenth{0, 100000};
            dpDispatcher::instance()->dispatch(&tenth);
        }
        other.join();
        for (int i = 0; i < 5; ++i) {  // and the closed connection goes
            timeval twentieth{0, 50000};
            dpDispatcher::instance()->dispatch(&twentieth);
        }
        return ms.load();
    };
    EXPECT_GE(answeredAfterMs("no such key"), 250);
    ktest::TileImpl tile("quiet");
    ZEBGlobalTable::_boa->obj_is_ready(&tile, nullptr);
    CORBA_String_var ior(orb->object_to_string(&tile));
    std::unique_ptr<IOP::IOR> parsed(stringToIOR(ior.in()));
    std::unique_ptr<IIOP::ObjectLocator> at(ZEBGlobalTable::getLocator(*parsed));
    const long served = answeredAfterMs(
        std::string(reinterpret_cast<const char*>(at->object_key.get_buffer()), at->object_key.length()));
    EXPECT_GE(served, 0);
    EXPECT_LT(served, 250);
}

}  // namespace
