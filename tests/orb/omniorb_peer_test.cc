// Interoperability with an independent ORB: omniORB's echo client calls
// every operation of Demo::Echo on a server and checks each result. The
// same check against omniORB's own server tells a broken peer apart from a
// broken Kelvanor server.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include <unistd.h>

#include "process.h"

namespace {

using std::chrono::milliseconds;

bool runnable(const char* path) { return path[0] != '\0' && access(path, X_OK) == 0; }

// The first line the server printed, once it is complete and a reference.
std::string referenceLine(const ktest::Process& server) {
    std::string out = server.stdoutText();
    std::string::size_type end = out.find('\n');
    if (end == std::string::npos || out.compare(0, 4, "IOR:") != 0) return std::string();
    return out.substr(0, end);
}

// Starts the server, waits for its reference, runs the omniORB client's
// check on it and expects every line to pass. Both are stopped by pid.
void expectCheckPasses(const std::vector<std::string>& serverArgv) {
    ktest::Process::Options opts;
    opts.argv = serverArgv;
    ktest::Process server;
    ASSERT_TRUE(server.start(opts)) << server.error();
    std::string ior;
    bool ready = ktest::pollUntil(
        [&] { return !(ior = referenceLine(server)).empty() || !server.running(); },
        milliseconds(15000));
    ASSERT_TRUE(ready && !ior.empty())
        << "no reference from " << serverArgv[0] << ": " << server.stdoutText()
        << server.stderrText();

    ktest::Process client;
    opts.argv = {KELVANOR_OMNI_ECHO_CLIENT_BINARY, ior, "check"};
    ASSERT_TRUE(client.start(opts)) << client.error();
    bool ended = client.wait(milliseconds(30000));
    if (!ended) client.stop(9, milliseconds(0));
    EXPECT_TRUE(ended) << "the client did not finish in time";
    EXPECT_EQ(0, client.exitCode()) << client.stdoutText() << client.stderrText();
    EXPECT_NE(std::string::npos, client.stdoutText().find("check passed"));

    EXPECT_TRUE(server.running()) << "the server ended during the check: "
                                  << server.stderrText();
    server.stop();
}

TEST(OmniorbPeer, OmniClientChecksEchoServer) {
    if (!runnable(KELVANOR_OMNI_ECHO_CLIENT_BINARY)) GTEST_SKIP() << "omniORB peers not built";
    if (!runnable(KELVANOR_ECHO_SERVER_BINARY)) GTEST_SKIP() << "echo_server not built";
    expectCheckPasses({KELVANOR_ECHO_SERVER_BINARY, "-OAipaddr", "127.0.0.1"});
}

TEST(OmniorbPeer, OmniClientChecksOmniServer) {
    if (!runnable(KELVANOR_OMNI_ECHO_CLIENT_BINARY)) GTEST_SKIP() << "omniORB peers not built";
    expectCheckPasses({KELVANOR_OMNI_ECHO_SERVER_BINARY});
}

}  // namespace
