// omniORB's echo client calls every operation of Demo::Echo on echo_server
// and checks each result, and so does a Combat (Tcl) client by DII.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "echo_child.h"
#include "process.h"

TEST(OtherOrbPeers, OmniAndCombatClientsCallEchoServer) {
    if (!ktest::echoServerBuilt()) GTEST_SKIP() << "echo_server not built";
    const bool omni = ktest::runnable(KELVANOR_OMNI_ECHO_CLIENT_BINARY);
    const bool combat = system("echo 'package require combat' | tclsh >/dev/null 2>&1") == 0;
    if (!omni && !combat) GTEST_SKIP() << "neither omniORB's client nor tcl-combat is there";
    ktest::EchoChild server;
    ASSERT_TRUE(server.ready()) << server.output();
    const auto run = [](std::vector<std::string> argv) {
        const ktest::Outcome r = ktest::run(std::move(argv), std::chrono::seconds(30));
        EXPECT_EQ(0, r.status) << r.out << r.err;
        return r.out;
    };
    if (omni) {
        const std::string out = run({KELVANOR_OMNI_ECHO_CLIENT_BINARY, server.ior, "check"});
        EXPECT_NE(std::string::npos, out.find("check passed")) << out;
    }
    if (combat) {
        EXPECT_EQ(run({"/usr/bin/tclsh", KELVANOR_SOURCE_DIR "/tests/peers/combat/echo_check.tcl",
                       server.ior}),
                  "say: hello\npid: " + std::to_string(server.pid()) +
                      "\nis_a: 1\nnote answered\nafter: after\n");
    }
    EXPECT_TRUE(server.running()) << "the server ended: " << server.output();
}
