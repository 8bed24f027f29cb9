// Interoperability with independent ORBs: omniORB's echo client calls every
// operation of Demo::Echo on echo_server and checks each result, and so does
// a client of Combat, an ORB in Tcl, by dynamic invocation.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "echo_child.h"
#include "process.h"

namespace {

// Runs a client of echo_server, stopped by pid; it must end in time with
// status 0.
ktest::Outcome runClient(std::vector<std::string> argv) {
    const ktest::Outcome r = ktest::run(std::move(argv), std::chrono::seconds(30));
    EXPECT_EQ(0, r.status) << r.out << r.err;
    return r;
}

TEST(OmniorbPeer, OmniClientChecksEchoServer) {
    if (!ktest::runnable(KELVANOR_OMNI_ECHO_CLIENT_BINARY)) GTEST_SKIP() << "omniORB not built";
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    ktest::EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    const ktest::Outcome r = runClient({KELVANOR_OMNI_ECHO_CLIENT_BINARY, server.ior, "check"});
    EXPECT_NE(std::string::npos, r.out.find("check passed")) << r.out;
    EXPECT_TRUE(server.running()) << "the server ended during the check: " << server.output();
}

TEST(CombatPeer, CombatClientCallsEchoServer) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    if (system("echo 'package require combat' | tclsh >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "tclsh with Combat (tcl-combat) is not installed";
    ktest::EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    const ktest::Outcome r = runClient(
        {"/usr/bin/tclsh", KELVANOR_SOURCE_DIR "/tests/peers/combat/echo_check.tcl", server.ior});
    EXPECT_EQ(r.out, "say: hello\npid: " + std::to_string(server.pid()) +
                         "\nis_a: 1\nnote answered\nafter: after\n")
        << r.err;
    EXPECT_TRUE(server.running()) << server.output();
}

}  // namespace
