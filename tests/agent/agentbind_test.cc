// The echo programs with --agent: the server registers its rows with the
// test agent, the client binds by names through it with no daemon, and a
// dead server is reported to the agent port.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "netns.h"
#include "process.h"
#include "testagent.h"

TEST(AgentBind, EchoServerRegistersAndTheClientBindsByNames) {
    const std::string server = KELVANOR_ECHO_SERVER_BINARY;
    if (server.empty()) GTEST_SKIP() << "echo_server is not built";
    KTEST_IN_NETNS();
    ktest::TestAgent agent;
    ASSERT_TRUE(agent.start("127.0.0.1", 14000, 15001)) << agent.error();
    ktest::Process srv;
    ktest::Process::Options o;
    o.argv = {server, "--agent", "-OAipaddr", "127.0.0.1"};
    ASSERT_TRUE(srv.start(o));
    ASSERT_TRUE(agent.waitFor({"out DSReply type=5", "req=6"}, 10000)) << agent.log();
    // Part of the object adapter's five rows, in order.
    const char* rows[] = {"names=Demo::Echo,echo ", "names=Demo::Echo,IOR:", "names=127.0.0.1_Demo::Echo,",
                          "names=127.0.0.1_Demo::Echo_echo,", "names=Demo::Echo_echo,"};
    auto regs = agent.lines({"in DSRequest type=5"});
    ASSERT_EQ(regs.size(), 5u);
    for (int i = 0; i < 5; ++i) EXPECT_NE(regs[i].find(rows[i]), std::string::npos) << regs[i];
    EXPECT_EQ(agent.lines({"names=echo_server"}).size(), 1u);  // the login's name

    const std::string dir = server.substr(0, server.rfind('/') + 1), query = dir + "dsquery";
    auto one = ktest::run(std::vector<std::string>{query, "provider", "Demo::Echo_echo"});
    EXPECT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(one.out.find("Demo::Echo_echo 4 127.0.0.1:"), 0u) << one.out;
    auto all = ktest::run(std::vector<std::string>{query, "providers", "--all"});
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_NE(all.out.find("127.0.0.1_Demo::Echo_echo 4"), std::string::npos) << all.out;
    auto none = ktest::run(std::vector<std::string>{query, "provider", "Nothing", "--wait", "2"});
    EXPECT_EQ(none.status, 4);

    const std::string client = dir + "echo_client";
    auto said = ktest::run(std::vector<std::string>{client, "--agent", "--name", "echo", "hi"});
    EXPECT_EQ(said.status, 0) << said.err;
    EXPECT_NE(said.out.find("hi"), std::string::npos);
    // Each program said goodbye to the agent on its way out.
    EXPECT_EQ(agent.lines({"in DSRequest type=10"}).size(), 4u);

    srv.stop();
    auto gone = ktest::run(std::vector<std::string>{client, "--agent", "--name", "echo", "hi"});
    EXPECT_NE(gone.status, 0);
    EXPECT_FALSE(agent.lines({"in-agent DSAMessage type=7", "Demo::Echo_echo"}).empty());
}

TEST(AgentBind, TheDaemonKeepsTheNullClient) {
    KTEST_IN_NETNS();
    ktest::TestAgent agent;
    ASSERT_TRUE(agent.start("127.0.0.1", 14000, 15001)) << agent.error();
    ktest::TempDir dir;
    ktest::Process vex;
    ktest::Process::Options o;
    o.argv = {KELVANOR_VEX_BINARY, "-OAipaddr", "127.0.0.1", "-ORBagentport", "14000", "-ORBagentverbose"};
    o.env = {"KELVANOR_IMPL_PATH=" + dir.path(), "NS_SERVER_ROOT=" + dir.path(), "NS_SERVER_ID=none"};
    o.cwd = dir.path();
    ASSERT_TRUE(vex.start(o));
    ASSERT_TRUE(ktest::pollUntil([&] { return vex.stdoutText().find("naming service") != std::string::npos; },
                                 std::chrono::seconds(15)))
        << vex.stdoutText() << vex.stderrText();
    // Its object was ready before it looked for the naming service.
    usleep(300000);
    EXPECT_EQ(agent.log(), "");
}
