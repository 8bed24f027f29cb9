// The stub path of a client in this process: the Demo::Echo stub against
// echo_server in a child process and against omniORB's server, and what a
// call sees when the server goes away.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "echo.h"
#include "echo_child.h"
#include "except.h"
#include "loopback_orb.h"
#include "omninames.h"
#include "orb.h"
#include "zebglob.h"
#include "zebstub.h"

namespace {

using ktest::EchoChild;

Demo::Echo* bindTo(const std::string& ior) {
    CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(ior.c_str()));
    return Demo::Echo::_narrow(obj);
}

}  // namespace

TEST(ZEBStubInfo, CallsReachEchoServerAndWithoutRebindALossIsACommFailure) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    Demo::Echo_var echo(bindTo(server.ior));
    ASSERT_NE(echo.in(), nullptr);
    EXPECT_FALSE(echo->_is_local());

    CORBA_String_var said(echo->say("abc"));
    EXPECT_STREQ(said, "abc");
    std::string big(100000, 'x');
    said = echo->say(big.c_str());
    EXPECT_EQ(big, said.in());
    said = echo->say("");
    EXPECT_STREQ(said, "");
    echo->note("nobody answers this");
    EXPECT_EQ(echo->pid(), server.pid());

    // Known from the type without a call, or asked of the server.
    EXPECT_TRUE(echo->_is_a("IDL:Demo/Echo:1.0"));
    EXPECT_FALSE(echo->_is_a("IDL:Demo/Other:1.0"));
    EXPECT_FALSE(echo->_non_existent());

    // Without rebinding a lost connection is a COMM_FAILURE; the next call
    // binds again from the lost state and finds nobody.
    CORBA_BindOptions options;
    options.allow_rebind = 0;
    echo->_bind_options(options);
    server.kill();
    EXPECT_THROW(echo->pid(), CORBA_COMM_FAILURE);
    EXPECT_THROW(echo->pid(), CORBA_NO_IMPLEMENT);
}

TEST(ZEBStubInfo, CallsReachOmniorbServer) {
    if (!ktest::runnable(KELVANOR_OMNI_ECHO_SERVER_BINARY)) GTEST_SKIP() << "omniORB not built";
    EchoChild server({KELVANOR_OMNI_ECHO_SERVER_BINARY});
    ASSERT_TRUE(server.ready()) << server.output();
    Demo::Echo_var echo(bindTo(server.ior));
    ASSERT_NE(echo.in(), nullptr);
    CORBA_String_var said(echo->say("to another broker"));
    EXPECT_STREQ(said, "to another broker");
    EXPECT_EQ(echo->pid(), server.pid());
    EXPECT_FALSE(echo->_is_a("IDL:Demo/Other:1.0"));
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

    // A raw request finds the connection gone and says a retry makes sense.
    EXPECT_THROW(
        {
            echo->_create_request("pid", 1, 0);
            echo->_invoke();
        },
        CORBA_TRANSIENT);
    server.reset(new EchoChild(ktest::echoServerArgv({"-OAport", std::to_string(port)})));
    ASSERT_TRUE(server->ready()) << server->output();
    // The stub binds again by the same address and repeats the call.
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

    // Bound again after a loss it stays foreign: a __bind would be refused
    // by a server that does not know it.
    root->_stub()->unbind();
    EXPECT_FALSE(root->_non_existent());
    EXPECT_EQ(ZEBStubInfo::KIND_FOREIGN, root->_stub()->kind());
    EXPECT_EQ(ZEBStubInfo::STUB_REBOUND, root->_stub()->state());

    ns.stop();
    EXPECT_THROW(root->_non_existent(), CORBA_TRANSIENT);
    // Another reference to the address finds the closed connection, still
    // held by the first, and fails on it.
    CORBA_Object_var fresh(ktest::loopbackOrb()->string_to_object(ior.c_str()));
    EXPECT_THROW(fresh->_non_existent(), CORBA_COMM_FAILURE);
    // The lost one leaves it, and has no names to be found by.
    EXPECT_THROW(root->_non_existent(), CORBA_NO_IMPLEMENT);
    // Now the refused connection itself is what the other one meets.
    try {
        fresh->_non_existent();
        ADD_FAILURE() << "reached a stopped server";
    } catch (const CORBA_COMM_FAILURE& e) {
        EXPECT_EQ(static_cast<CORBA::ULong>(ECONNREFUSED), e.minor());
    }
}
