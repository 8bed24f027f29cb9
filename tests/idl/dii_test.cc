// Dynamic requests to dyn_server and omniORB's omni_dyn_server on loopback:
// Dyn::Probe's operations with Anys for arguments, and the deferred forms:
// states, collection, a server restarted under a pending request, a request
// made while a call waits.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "../orb/echo_child.h"
#include "any.h"
#include "dispatch.h"
#include "dyn.h"
#include "iohandle.h"
#include "mstrm.h"
#include "orb.h"
#include "orb_loopback.h"
#include "request.h"
#include "zebglob.h"
#include "zebreq.h"
#include "zebstub.h"

namespace {

std::vector<std::string> dynServer(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> argv{KELVANOR_DYN_SERVER_BINARY, "-OAipaddr", "127.0.0.1"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    argv.push_back("probe");
    return argv;
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

}  // namespace

// The parameter: false for Kelvanor's dyn_server, true for omniORB's
// omni_dyn_server, spoken to in the standard TypeCode form.
class DiiRemote : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam() && !ktest::runnable(KELVANOR_OMNI_DYN_SERVER_BINARY))
            GTEST_SKIP() << "omniORB not built";
        ZEBGlobalTable::std_typecodes = GetParam();
        server.reset(new ktest::EchoChild(GetParam() ? std::vector<std::string>{KELVANOR_OMNI_DYN_SERVER_BINARY}
                                                     : dynServer()));
        ASSERT_TRUE(server->ready()) << "no reference: " << server->output();
        orb = ktest::loopbackOrb();
        probe = orb->string_to_object(server->ior.c_str());
        ASSERT_FALSE(CORBA::is_nil(probe.in()));
    }
    void TearDown() override { ZEBGlobalTable::std_typecodes = 0; }
    CORBA_Request* hold(CORBA::Long ms) {
        CORBA_Request* r = probe->_request("hold");
        r->add_in_arg() <<= ms;
        return r;
    }
    std::unique_ptr<ktest::EchoChild> server;
    CORBA_ORB* orb = nullptr;
    CORBA_Object_var probe;
};
// What needs our own server: a restart on the same port, a spare connection.
class DiiKelvanor : public DiiRemote {};

INSTANTIATE_TEST_SUITE_P(Servers, DiiRemote, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& i) {
                             return std::string(i.param ? "omniORB" : "Kelvanor");
                         });
INSTANTIATE_TEST_SUITE_P(Server, DiiKelvanor, ::testing::Values(false));

TEST_P(DiiRemote, EveryOperationWithItsArgumentsAsAnys) {
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

    Dyn::Item item;
    item.id = 7;
    item.name = "seven";
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

TEST_P(DiiRemote, DeferredStatesAndCollection) {
    CORBA_Request_var unsent(probe->_request("last_note"));
    EXPECT_THROW(unsent->get_response(), CORBA_BAD_INV_ORDER);
    EXPECT_THROW(unsent->poll_response(), CORBA_BAD_INV_ORDER);
    CORBA_Request_var slow(hold(100));
    slow->send_deferred();
    EXPECT_FALSE(slow->poll_response());
    while (!slow->poll_response()) {
    }
    EXPECT_TRUE(slow->poll_response());
    slow->get_response();
    EXPECT_THROW(slow->get_response(), CORBA_BAD_INV_ORDER);

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

TEST_P(DiiKelvanor, DeferredRequestIsSentAgainToARestartedServer) {
    CORBA_Request_var r(hold(2000));
    r->send_deferred();
    const std::string port = std::to_string(server->port);
    server->kill();
    ktest::EchoChild again(dynServer({"-OAport", port}));
    ASSERT_TRUE(again.ready()) << again.output();
    r->get_response();
    EXPECT_EQ(r->env()->exception(), nullptr);
}

TEST_P(DiiKelvanor, DeferredRequestMadeWhileACallWaitsGoesOnASpare) {
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
