// Dynamic requests to dyn_server, a child process on loopback: every
// operation of Dyn::Probe with its arguments as Anys, a user exception in
// the request's environment, and the deferred forms: their states, the
// collection of several, a server restarted under a pending request, and a
// request made while a call waits on the same connection.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "any.h"
#include "dispatch.h"
#include "dyn.h"
#include "iohandle.h"
#include "mstrm.h"
#include "orb.h"
#include "orb_loopback.h"
#include "request.h"
#include "zebreq.h"
#include "zebstub.h"
#include "../orb/echo_child.h"

namespace {

std::vector<std::string> dynServer(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> argv{KELVANOR_DYN_SERVER_BINARY, "-OAipaddr", "127.0.0.1"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    argv.push_back("probe");
    return argv;
}

// An Any of tc whose value is what write puts on a CDR block.
template <class F>
CORBA_Any cdr(CORBA_TypeCode* tc, F write) {
    CORBA_MarshalOutBuffer buf;
    write(buf);
    return CORBA_Any(CORBA_TypeCode::_duplicate(tc), buf);
}
template <class T>
CORBA_Any cdrOf(CORBA_TypeCode* tc, const T& v) {
    return cdr(tc, [&](TBostream& s) { s << v; });
}
CORBA_MarshalInBuffer reader(const CORBA_Any& a) {
    return CORBA_MarshalInBuffer(static_cast<char*>(a.value()), static_cast<CORBA::ULong>(a.size()));
}
template <class T>
T fromAny(const CORBA_Any& a) {
    T v;
    CORBA_MarshalInBuffer in = reader(a);
    in >> v;
    return v;
}

}  // namespace

class DiiRemote : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.ready()) << "dyn_server gave no reference: " << server.output();
        orb = ktest::loopbackOrb();
        probe = orb->string_to_object(server.ior.c_str());
        ASSERT_FALSE(CORBA::is_nil(probe.in()));
    }
    CORBA_Request* hold(CORBA::Long ms) {
        CORBA_Request* r = probe->_request("hold");
        r->add_in_arg() <<= ms;
        return r;
    }
    ktest::EchoChild server{dynServer()};
    CORBA_ORB* orb = nullptr;
    CORBA_Object_var probe;
};

TEST_F(DiiRemote, EveryOperationWithItsArgumentsAsAnys) {
    CORBA_Any words;
    words <<= "words";
    CORBA_Request_var echo(probe->_request("echo"));
    echo->add_in_arg() <<= words;
    echo->return_value() <<= CORBA_Any();
    CORBA_Request_var swap(probe->_request("swap"));
    swap->add_inout_arg() <<= words;
    CORBA_Any& b = swap->add_out_arg() <<= CORBA_Any();
    CORBA_Request_var kind(probe->_request("kind_of"));
    kind->add_in_arg() <<= words;
    kind->return_value() <<= CORBA::_tc_null;
    for (CORBA_Request* r : {echo.in(), swap.in(), kind.in()}) r->invoke();
    CORBA_Any inner;
    ASSERT_TRUE(echo->return_value() >>= inner);
    EXPECT_EQ(compare(inner, words), 0);
    ASSERT_TRUE(b >>= inner);
    EXPECT_EQ(compare(inner, words), 0);
    CORBA_TypeCode_var tc;
    ASSERT_TRUE(kind->return_value() >>= tc.out());
    EXPECT_EQ(tc->kind(), CORBA::tk_string);

    Dyn::Item item;
    item.id = 7;
    item.name = "seven";
    CORBA_Request_var store(probe->_request("store"));
    store->add_in_arg() = cdrOf(Dyn::_tc_Item, item);
    CORBA_Any& list = store->add_inout_arg() = cdrOf(Dyn::_tc_ItemList, Dyn::ItemList());
    CORBA_Any& shade = store->add_out_arg() = cdrOf(Dyn::_tc_Shade, Dyn::grey);
    store->return_value() = cdrOf(Dyn::_tc_Item, Dyn::Item());
    store->invoke();
    EXPECT_EQ(fromAny<Dyn::Item>(store->return_value()).id, 8);
    EXPECT_STREQ(fromAny<Dyn::ItemList>(list)[0].name, "seven");
    EXPECT_EQ(*static_cast<CORBA::ULong*>(shade.value()), CORBA::ULong(Dyn::dark));

    Dyn::Value number;
    number.number(12);
    CORBA_Request_var flip(probe->_request("flip"));
    flip->add_in_arg() = cdrOf(Dyn::_tc_Value, number);
    CORBA_Any& pick = flip->add_out_arg() = cdrOf(Dyn::_tc_Pick, Dyn::Pick());
    flip->return_value() = cdrOf(Dyn::_tc_Value, Dyn::Value());
    flip->invoke();
    EXPECT_EQ(fromAny<Dyn::Value>(flip->return_value()).number(), 12);
    EXPECT_STREQ(fromAny<Dyn::Pick>(pick).s(), "12");

    auto matrix = [](double first) {
        return cdr(Dyn::_tc_Matrix, [&](TBostream& s) {
            for (int i = 0; i < 6; ++i) s << first + i;
        });
    };
    CORBA_Request_var scale(probe->_request("scale"));
    scale->add_in_arg() = matrix(1);
    scale->add_in_arg() <<= 0.5;
    CORBA_Any& names =
        scale->add_out_arg() = cdr(Dyn::_tc_Names, [](TBostream& s) { s << "" << ""; });
    scale->return_value() = matrix(0);
    scale->invoke();
    double last = 0;
    CORBA_MarshalInBuffer m = reader(scale->return_value());
    for (int i = 0; i < 6; ++i) m >> last;
    EXPECT_EQ(last, 3.0);
    CORBA_String_var n0, n1;
    CORBA_MarshalInBuffer n = reader(names);
    n >> n0.out() >> n1.out();
    EXPECT_EQ(std::stod(n1.in()), 2.0);

    CORBA_Request_var note(probe->_request("note"));
    note->add_in_arg() <<= "kept";
    note->send_oneway();
    CORBA_Request_var last_note(probe->_request("last_note"));
    last_note->return_value() <<= "";
    CORBA_Request_var definition(probe->_request("definition")), held(hold(10));
    definition->return_value().replace(CORBA_TypeCode::_duplicate(CORBA::_tc_Object), nullptr, 1);
    for (CORBA_Request* r : {last_note.in(), definition.in(), held.in()}) {
        r->invoke();
        EXPECT_EQ(r->env()->exception(), nullptr);
    }
    EXPECT_STREQ(*static_cast<char**>(last_note->return_value().value()), "kept");
    CORBA_Object* nil = nullptr;
    EXPECT_TRUE(definition->return_value() >>= nil);
    EXPECT_TRUE(CORBA::is_nil(nil));
    CORBA::release(nil);
}

TEST_F(DiiRemote, UserExceptionLandsInTheEnvironment) {
    CORBA_Request_var refuse(probe->_request("refuse"));
    refuse->add_in_arg() = cdrOf(Dyn::_tc_Shade, Dyn::grey);
    refuse->invoke();
    const Dyn::Refused* e = Dyn::Refused::_narrow(refuse->env()->exception());
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->why, "refused");
    EXPECT_EQ(e->tone, Dyn::grey);
}

TEST_F(DiiRemote, DeferredStatesAndCollection) {
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
    CORBA_RequestSeq seq(2);
    seq.length(2);
    seq[0] = a;
    seq[1] = b;
    orb->send_multiple_requests_deferred(seq);
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

TEST_F(DiiRemote, DeferredRequestIsSentAgainToARestartedServer) {
    CORBA_Request_var r(hold(2000));
    r->send_deferred();
    const std::string port = std::to_string(server.port);
    server.kill();
    ktest::EchoChild again(dynServer({"-OAport", port}));
    ASSERT_TRUE(again.ready()) << again.output();
    r->get_response();
    EXPECT_EQ(r->env()->exception(), nullptr);
    EXPECT_EQ(static_cast<ZEBRequest*>(r.in())->state(), ZEBRequest::IDLE);
}

TEST_F(DiiRemote, DeferredRequestMadeWhileACallWaitsGoesOnASpare) {
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
    note->get_response();
    EXPECT_EQ(note->env()->exception(), nullptr);
    EXPECT_STREQ(*static_cast<char**>(note->return_value().value()), "");
}
