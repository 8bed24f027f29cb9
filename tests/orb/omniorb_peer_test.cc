// Interoperability with an independent ORB: omniORB's echo client calls
// every operation of Demo::Echo on echo_server and checks each result.
#include <gtest/gtest.h>

#include <chrono>
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

}  // namespace
