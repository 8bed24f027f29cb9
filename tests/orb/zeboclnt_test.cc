// The client side: shared connections, forwards, agent binds, time limits, lost servers.
#include "zeboclnt.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dispatch.h"
#include "dsaddr.h"
#include "dsdummyuser.h"
#include "dsprovider.h"
#include "echo.h"
#include "echo_child.h"
#include "except.h"
#include "fake_giop_server.h"
#include "handcdr.h"
#include "loopback_orb.h"
#include "omninames.h"
#include "orb.h"
#include "sockets.h"
#include "thrown.h"
#include "zebglob.h"
#include "zeborb.h"
#include "zebstrm.h"
#include "zebstub.h"

namespace {

using std::chrono::milliseconds;
using Fake = ktest::FakeGiopServer;
using handcdr::keyById;
using handcdr::persistentKey;
using ktest::EchoChild;

// An agent serving what a test gives it and recording what it is asked and told.
class FakeAgent : public DSDummyUser {
public:
    FakeAgent() : DSDummyUser(nullptr, nullptr) {
        ktest::loopbackOrb();
        _saved = ZEBGlobalTable::_dsuser;
        ZEBGlobalTable::_dsuser = this;
    }
    ~FakeAgent() override { ZEBGlobalTable::_dsuser = _saved; }

    void serve(const std::string& name, unsigned short port) { _where[name] = port; }
    DSProvider* getProvider(DSName* name, int& status, long) override {
        asked.push_back(std::string(name->name()) + "/" + std::to_string(name->serviceType()));
        auto it = _where.find(name->name());
        if (it == _where.end() || name->serviceType() != DS_SERVICE_OBJECT) {
            status = STATUS_NO_PROVIDER;
            return nullptr;
        }
        status = STATUS_OK;
        return new DSProvider(*name, DSAddr(it->second, "127.0.0.1"), DS_PROTOCOL_DEFAULT, 0);
    }
    void markSuspect(const DSProvider& p) override { suspects.push_back(p.address().port()); }

    std::vector<std::string> asked;
    std::vector<int> suspects;

private:
    DSUser* _saved;
    std::map<std::string, unsigned short> _where;
};

Demo::Echo* bindTo(const std::string& ior) {
    CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(ior.c_str()));
    return Demo::Echo::_narrow(obj);
}

Demo::Echo* echoAt(unsigned short port, const std::string& key) {
    return bindTo(handcdr::iorText(true, "IDL:Demo/Echo:1.0", port, key));
}

ZEBORBClient* clientAt(unsigned short port) {
    return ZEBGlobalTable::_orb->clientAt(DSAddr(port, "127.0.0.1"));
}

std::vector<std::string> keysOf(const Fake& f) {
    std::vector<std::string> keys;
    for (const Fake::Message& m : f.messages()) keys.push_back(m.key);
    return keys;
}

bool dispatchUntil(const std::function<bool()>& pred) {
    return ktest::pollUntil(
        [&] {
            long sec = 0, usec = 50000;
            dpDispatcher::instance()->dispatch(sec, usec);
            return pred();
        },
        milliseconds(10000), milliseconds(0));
}

}  // namespace

TEST(ZEBORBClient, ReferencesToOneAddressShareOneConnection) {
    Fake fake(Fake::Mode::Serve);
    ASSERT_TRUE(fake.ok());
    Demo::Echo_var one(echoAt(fake.port(), "obj-one"));
    Demo::Echo_var two(echoAt(fake.port(), "obj-two"));
    EXPECT_FALSE(one->_non_existent());
    EXPECT_FALSE(two->_non_existent());

    ZEBORBClient* client = one->_stub()->client();
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(client, two->_stub()->client());
    EXPECT_EQ(2, client->references());
    EXPECT_EQ(1, fake.accepted());
    // Foreign keys: located once each, no __bind, the requests keep the key.
    const std::vector<std::string> keys{"obj-one", "obj-one", "obj-two", "obj-two"};
    EXPECT_EQ(keys, keysOf(fake));

    one = nullptr;
    EXPECT_EQ(client, clientAt(fake.port()));
    EXPECT_EQ(1, client->references());
    EXPECT_FALSE(two->_non_existent());
    EXPECT_EQ(1, fake.accepted());

    two = nullptr;
    EXPECT_EQ(nullptr, clientAt(fake.port()));
    EXPECT_TRUE(ktest::pollUntil([&] { return fake.closedByPeer() == 1; }, milliseconds(5000)));
}

TEST(ZEBORBClient, LocateForwardGivesTheKeyThatLaterRequestsCarry) {
    Fake fake(Fake::Mode::Serve);
    ASSERT_TRUE(fake.ok());
    const std::string shortId = keyById(7), longId = persistentKey(true, "Demo::Echo", "fwd");
    fake.forwardTo(shortId);
    Demo::Echo_var echo(echoAt(fake.port(), longId));
    CORBA_String_var said(echo->say("hi"));
    EXPECT_STREQ("hi", said);
    const CORBA_OctetSequence& key = echo->_stub()->objectKey();
    EXPECT_EQ(shortId, std::string(reinterpret_cast<const char*>(key.get_buffer()), key.length()));

    // A lost reference starts again from the locator's key and is forwarded again.
    echo->_stub()->unbind();
    said = echo->say("again");
    EXPECT_STREQ("again", said);
    EXPECT_EQ(2, fake.accepted());

    // Its release tells the server, without waiting for an answer.
    echo = nullptr;
    ASSERT_TRUE(ktest::pollUntil([&] { return fake.messages().size() == 7; }, milliseconds(5000)));
    const std::vector<Fake::Message> m = fake.messages();
    const std::vector<uint8_t> types{3, 0, 0, 3, 0, 0, 0};
    const std::vector<std::string> ops{"", "__bind", "say", "", "__bind", "say", "__unbind"};
    for (size_t i = 0; i < m.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(types[i], m[i].type);
        EXPECT_EQ(ops[i], m[i].operation);
        EXPECT_EQ(m[i].type == 3 ? longId : shortId, m[i].key);
    }
    EXPECT_FALSE(m[6].response);
}

TEST(ZEBORBClient, ForwardToAnotherAddressMovesTheConnectionThere) {
    Fake there(Fake::Mode::Serve), here(Fake::Mode::Serve);
    ASSERT_TRUE(there.ok() && here.ok());
    const std::string shortId = keyById(9);
    here.forwardTo(shortId, there.port());
    Demo::Echo_var echo(echoAt(here.port(), persistentKey(true, "Demo::Echo", "moved")));
    EXPECT_EQ(4242, echo->pid());

    EXPECT_EQ(there.port(), echo->_stub()->client()->provider().address().port());
    EXPECT_EQ(nullptr, clientAt(here.port()));
    EXPECT_TRUE(ktest::pollUntil([&] { return here.closedByPeer() == 1; }, milliseconds(5000)));
    EXPECT_EQ(1u, here.messages().size());
    const std::vector<std::string> keys{shortId, shortId, shortId};
    EXPECT_EQ(keys, keysOf(there));
    const std::vector<std::string> ops{"__bind", "pid"};
    EXPECT_EQ(ops, there.operations());
}

TEST(ZEBORBClient, RepliesAreMatchedByRequestId) {
    Fake fake(Fake::Mode::Serve);
    ASSERT_TRUE(fake.ok());
    Demo::Echo_var echo(echoAt(fake.port(), "obj"));
    // A reply to another request comes first and is passed over.
    echo->_create_request("stray", 1, 0);
    GIOPstream* s = echo->_invoke();
    CORBA_String_var text;
    *s >> text.inout();
    s->flushRead();
    EXPECT_STREQ("yours", text);
    echo->_create_request("wrong_type", 1, 0);
    EXPECT_THROW(echo->_invoke(), CORBA_BAD_INV_ORDER);
}

// A call made within another's wait goes out on one reused spare connection.
TEST(ZEBORBClient, NestedCallsOnABusyConnectionUseASpare) {
    Fake fake(Fake::Mode::Serve);
    ASSERT_TRUE(fake.ok());
    Demo::Echo_var echo(echoAt(fake.port(), "obj"));
    EXPECT_FALSE(echo->_non_existent());
    ASSERT_EQ(1, fake.accepted());

    struct Inner : dpIOHandler {
        Demo::Echo_ptr echo = nullptr;
        std::vector<std::string> said;
        void timerExpired(long, long) override {
            CORBA_String_var s(echo->say("inner"));
            said.push_back(s.in());
        }
    } inner;
    inner.echo = echo;
    for (int round = 0; round < 2; ++round) {
        dpDispatcher::instance()->startTimer(0, 1000, &inner);
        CORBA_String_var outer(echo->say("held"));
        EXPECT_STREQ("held", outer);
    }
    EXPECT_EQ((std::vector<std::string>{"inner", "inner"}), inner.said);
    EXPECT_EQ(2, fake.accepted());
    CORBA_String_var plain(echo->say("plain"));
    EXPECT_STREQ("plain", plain);
    EXPECT_EQ(2, fake.accepted());

    echo = nullptr;
    EXPECT_TRUE(ktest::pollUntil([&] { return fake.closedByPeer() == 2; }, milliseconds(5000)));
}

// Neither the call nor (Silent) the locate is answered: the connection goes.
TEST(ZEBORBClient, TimeLimitsEndCallsToServersThatNeverAnswer) {
    CORBA_BindOptions options;
    options.receive_wait = 1;
    for (Fake::Mode mode : {Fake::Mode::LocateOnly, Fake::Mode::Silent}) {
        Fake fake(mode);
        ASSERT_TRUE(fake.ok());
        Demo::Echo_var echo(echoAt(fake.port(), "obj"));
        echo->_bind_options(options);
        EXPECT_THROW(echo->pid(), CORBA_NO_RESPONSE);
        if (mode == Fake::Mode::LocateOnly) {
            EXPECT_TRUE(echo->_stub()->client()->closing());
        } else {
            EXPECT_FALSE(echo->_is_bound());
            EXPECT_EQ(nullptr, clientAt(fake.port()));
        }
        EXPECT_TRUE(ktest::pollUntil([&] { return fake.closedByPeer() == 1; },
                                     milliseconds(5000)));
    }
}

TEST(ZEBORBClient, KeepAlivePingsTheServerEachPeriod) {
    Fake fake(Fake::Mode::Serve);
    ASSERT_TRUE(fake.ok());
    ktest::loopbackOrb();
    ZEBGlobalTable::keep_alive_timer = 1;
    Demo::Echo_var echo(echoAt(fake.port(), "obj"));
    EXPECT_EQ(4242, echo->pid());
    const bool pinged = dispatchUntil([&] { return fake.operations().size() >= 3; });
    ZEBGlobalTable::keep_alive_timer = 0;
    ASSERT_TRUE(pinged);
    const std::vector<std::string> ops = fake.operations();
    EXPECT_EQ("pid", ops[0]);
    EXPECT_EQ("_non_existent", ops[1]);
    EXPECT_EQ("_non_existent", ops[2]);
}

TEST(ZEBORBClient, IdleServerClosingIsSeenWithoutACall) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    ktest::loopbackOrb();
    EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    Demo::Echo_var echo(bindTo(server.ior));
    ASSERT_EQ(server.pid(), echo->pid());
    ZEBORBClient* client = echo->_stub()->client();
    const int fd = client->fd();
    ASSERT_EQ(client, dpDispatcher::instance()->handler(fd, dpDispatcher::ReadMask));
    server.kill();

    ASSERT_TRUE(dispatchUntil([&] { return client->closing(); }));
    EXPECT_NE(client, dpDispatcher::instance()->handler(fd, dpDispatcher::ReadMask));
    // Still bound: the next call binds again and finds no server.
    EXPECT_TRUE(echo->_is_bound());
    EXPECT_THROW(echo->pid(), CORBA_NO_IMPLEMENT);
    EXPECT_EQ(nullptr, clientAt(server.port));
}

TEST(ZEBORB, NamesGoToTheAgentForRunningThenActivatableObjects) {
    FakeAgent agent;
    ZEBORB* orb = ZEBGlobalTable::_orb;
    std::unique_ptr<DSProvider> none(orb->_getProvider("Demo::Echo", "echo", nullptr));
    EXPECT_EQ(nullptr, none);
    none.reset(orb->_getProvider("Demo::Echo", nullptr, "127.0.0.1"));
    none.reset(orb->_getProvider("Activation::VEX", "", nullptr));
    const std::vector<std::string> asked{"Demo::Echo_echo/4",           "Demo::Echo_echo/5",
                                         "127.0.0.1_Demo::Echo/4",      "127.0.0.1_Demo::Echo/5",
                                         "Activation::VEX/4"};
    EXPECT_EQ(asked, agent.asked);

    agent.asked.clear();
    EXPECT_THROW(Demo::Echo::_bind("nobody"), CORBA_NO_IMPLEMENT);
    EXPECT_EQ(2u, agent.asked.size());
}

TEST(ZEBORB, LocateTriesCountRefusedConnectionsAndMarkProvidersSuspect) {
    FakeAgent agent;
    unsigned short refusing = 0;  // bound, never listening: connections are refused
    ktest::Fd bound(ktest::loopbackSocket(refusing, 0));
    ASSERT_GE(bound.fd, 0);
    agent.serve("Demo::Echo_gone", refusing);
    CORBA_BindOptions options;
    for (CORBA::ULong tries : {1u, 3u}) {
        SCOPED_TRACE(tries);
        agent.asked.clear();
        agent.suspects.clear();
        options.locate_tries = tries;
        EXPECT_EQ(static_cast<CORBA::ULong>(ECONNREFUSED), ktest::thrown<CORBA_COMM_FAILURE>([&] {
                      CORBA::release(Demo::Echo::_bind("gone", nullptr, &options));
                  }).minor());
        EXPECT_EQ(tries, agent.asked.size());
        EXPECT_EQ(std::vector<int>(tries, refusing), agent.suspects);
        EXPECT_EQ(nullptr, clientAt(refusing));
    }
}

TEST(ZEBORB, BindsByNamesThroughTheAgentConnectingWhenAsked) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    FakeAgent agent;
    EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    agent.serve("Demo::Echo_echo", server.port);

    CORBA_BindOptions options;
    options.defer_connect = 1;
    Demo::Echo_var deferred(Demo::Echo::_bind("echo", nullptr, &options));
    EXPECT_FALSE(deferred->_is_bound());
    EXPECT_EQ(nullptr, clientAt(server.port));
    EXPECT_TRUE(agent.asked.empty());
    EXPECT_EQ(server.pid(), deferred->pid());
    EXPECT_NE(nullptr, clientAt(server.port));
    // The server forwarded the named key to its short form.
    EXPECT_EQ(12u, deferred->_stub()->objectKey().length());
    EXPECT_EQ(ZEBStubInfo::KIND_NAMED, deferred->_stub()->kind());

    Demo::Echo_var now(Demo::Echo::_bind("echo"));
    EXPECT_TRUE(now->_is_bound());
    EXPECT_EQ(deferred->_stub()->client(), now->_stub()->client());
    EXPECT_EQ(server.pid(), now->pid());
}

// Without rebinding a lost connection is a COMM_FAILURE; the next call
// binds again from the lost state and finds nobody.
TEST(ZEBStubInfo, WithoutRebindALossIsACommFailure) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    Demo::Echo_var echo(bindTo(server.ior));
    EXPECT_EQ(echo->pid(), server.pid());
    CORBA_BindOptions options;
    options.allow_rebind = 0;
    echo->_bind_options(options);
    server.kill();
    EXPECT_THROW(echo->pid(), CORBA_COMM_FAILURE);
    EXPECT_THROW(echo->pid(), CORBA_NO_IMPLEMENT);
}

TEST(ZEBStubInfo, StubCallIsRepeatedOnceTheServerIsBackOnItsPort) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    ktest::loopbackOrb();
    std::unique_ptr<EchoChild> server(new EchoChild);
    ASSERT_TRUE(server->ready()) << server->output();
    const unsigned short port = server->port;
    Demo::Echo_var echo(bindTo(server->ior));
    ASSERT_EQ(server->pid(), echo->pid());
    server->kill();

    EXPECT_THROW(
        {
            echo->_create_request("pid", 1, 0);
            echo->_invoke();
        },
        CORBA_TRANSIENT);
    server.reset(new EchoChild(ktest::echoServerArgv({"-OAport", std::to_string(port)})));
    ASSERT_TRUE(server->ready()) << server->output();
    // The old connection's TIME_WAIT does not keep the new server off the port.
    EXPECT_EQ(server->pid(), echo->pid());
    EXPECT_EQ(ZEBStubInfo::STUB_REBOUND, echo->_stub()->state());
}

TEST(ZEBStubInfo, ForeignObjectOfAnotherBroker) {
    KELVANOR_REQUIRE_OMNINAMES();
    ktest::OmniNames ns;
    ASSERT_TRUE(ns.start()) << ns.error();
    const std::string ior = ns.rootIOR();
    CORBA_Object_var root(ktest::loopbackOrb()->string_to_object(ior.c_str()));
    ASSERT_FALSE(CORBA::is_nil(root.in()));
    EXPECT_EQ(ZEBStubInfo::KIND_FOREIGN, root->_stub()->kind());
    EXPECT_TRUE(root->_is_a("IDL:omg.org/CosNaming/NamingContext:1.0"));
    EXPECT_FALSE(root->_is_a("IDL:Demo/Echo:1.0"));
    EXPECT_FALSE(root->_non_existent());

    // Rebound it stays foreign: a __bind would be refused there.
    root->_stub()->unbind();
    EXPECT_FALSE(root->_non_existent());
    EXPECT_EQ(ZEBStubInfo::KIND_FOREIGN, root->_stub()->kind());
    EXPECT_EQ(ZEBStubInfo::STUB_REBOUND, root->_stub()->state());

    ns.stop();
    EXPECT_THROW(root->_non_existent(), CORBA_TRANSIENT);
    // Another reference finds the closed connection the first still holds.
    CORBA_Object_var fresh(ktest::loopbackOrb()->string_to_object(ior.c_str()));
    EXPECT_THROW(fresh->_non_existent(), CORBA_COMM_FAILURE);
    EXPECT_THROW(root->_non_existent(), CORBA_NO_IMPLEMENT);
}
