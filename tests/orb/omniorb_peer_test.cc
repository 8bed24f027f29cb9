// Interoperability with independent ORBs: omniORB's echo client calls every
// operation of Demo::Echo on echo_server and checks each result, and so does
// a client of Combat, an ORB in Tcl, by dynamic invocation.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "echo_child.h"
#include "process.h"

namespace {

using std::chrono::milliseconds;

// Starts the server, runs the omniORB client's check on its reference and
// expects every line to pass. Both are stopped by pid.
void expectCheckPasses(const std::vector<std::string>& serverArgv) {
    ktest::EchoChild server(serverArgv);
    ASSERT_TRUE(server.ready()) << "no reference from " << serverArgv[0] << ": "
                                << server.output();
    ktest::Process::Options opts;
    opts.argv = {KELVANOR_OMNI_ECHO_CLIENT_BINARY, server.ior, "check"};
    ktest::Process client;
    ASSERT_TRUE(client.start(opts)) << client.error();
    bool ended = client.wait(milliseconds(30000));
    if (!ended) client.stop(9, milliseconds(0));
    EXPECT_TRUE(ended) << "the client did not finish in time";
    EXPECT_EQ(0, client.exitCode()) << client.stdoutText() << client.stderrText();
    EXPECT_NE(std::string::npos, client.stdoutText().find("check passed"));
    EXPECT_TRUE(server.running()) << "the server ended during the check: " << server.output();
}

TEST(OmniorbPeer, OmniClientChecksEchoServer) {
    if (!ktest::runnable(KELVANOR_OMNI_ECHO_CLIENT_BINARY)) GTEST_SKIP() << "omniORB not built";
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    expectCheckPasses(ktest::echoServerArgv());
}

TEST(CombatPeer, CombatClientCallsEchoServer) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    if (system("echo 'package require combat' | tclsh >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "tclsh with Combat (tcl-combat) is not installed";
    ktest::EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    ktest::Process::Options opts;
    opts.argv = {"/usr/bin/tclsh", KELVANOR_SOURCE_DIR "/tests/peers/combat/echo_check.tcl",
                 server.ior};
    ktest::Process client;
    ASSERT_TRUE(client.start(opts)) << client.error();
    bool ended = client.wait(milliseconds(30000));
    if (!ended) client.stop(9, milliseconds(0));
    ASSERT_TRUE(ended) << "the Combat client did not finish in time";
    EXPECT_EQ(0, client.exitCode()) << client.stdoutText() << client.stderrText();
    EXPECT_EQ(client.stdoutText(), "say: hello\npid: " + std::to_string(server.pid()) +
                                       "\nis_a: 1\nnote answered\nafter: after\n")
        << client.stderrText();
    EXPECT_TRUE(server.running()) << server.output();
}

}  // namespace
