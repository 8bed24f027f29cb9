// The agent client's long waits: five unanswered sends (69 seconds) and the
// keep-alive (120 seconds). A suite of its own, so that ctest gives these
// tests a longer limit and runs them beside the others.
#include "dsuser.h"

#include <sys/socket.h>

#include <gtest/gtest.h>

#include "../agent/agenttest.h"
#include "dsverify.h"
#include "netns.h"
#include "sockets.h"
#include "testagent.h"

TEST(Waits, ASilentAgentIsLeftAfterTheFifthTimeout) {
    KTEST_IN_NETNS();
    ktest::TestAgent agent;
    ASSERT_TRUE(agent.start("127.0.0.1", 14000, 15001, {"--limit", "150"})) << agent.error();
    DSUser* user = DSUser::open("silent", "", 14000);
    ASSERT_EQ(user->state(), DSUser::STATE_LOGGED_IN);
    agent.command("silent");
    ASSERT_TRUE(agent.waitFor({"cmd silent"}, 2000));
    DSName name("Any", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    int st = 0;
    EXPECT_EQ(user->getProvider(&name, st, 0), nullptr);
    EXPECT_EQ(st, DSUser::STATUS_NO_AGENT);
    auto sends = agent.lines({"in DSRequest type=3"});
    ASSERT_EQ(sends.size(), 5u);
    const double gaps[] = {3, 6, 20, 20};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(seconds(sends[i + 1]) - seconds(sends[i]), gaps[i], 0.6);
        EXPECT_EQ(sends[0].substr(sends[0].find("num=")), sends[i + 1].substr(sends[i + 1].find("num=")));
    }
    // Then the search for an agent starts again.
    auto probes = agent.lines({"in-agent DSAMessage type=6"});
    ASSERT_EQ(probes.size(), 2u);
    EXPECT_NEAR(seconds(probes[1]) - seconds(sends[4]), 20, 0.6);
    user->close();
}

TEST(Waits, AnUnansweredPeerIsDownAfterFiveSends) {
    ktest::Udp peer;
    ASSERT_NE(peer.port, 0);
    struct : DSVerify {
        int down = 0;
        void isDown() override { ++down; }
    } w;
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(w.verify(DSAddr(peer.port, inet_addr("127.0.0.1"))), 0);
    pumpUntil([&] { return w.down > 0; }, 80000);
    EXPECT_EQ(w.down, 1);
    EXPECT_NEAR(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 69, 1.5);
    int got = 0;
    while (!peer.take(MSG_DONTWAIT).empty()) ++got;
    EXPECT_EQ(got, 5);
}

TEST(Waits, AQuietSessionSendsAKeepAliveAfter120Seconds) {
    KTEST_IN_NETNS();
    ktest::TestAgent agent;
    ASSERT_TRUE(agent.start("127.0.0.1", 14000, 15001, {"--limit", "200"})) << agent.error();
    DSUser* user = DSUser::open("keepalive", "", 14000);
    ASSERT_EQ(user->state(), DSUser::STATE_LOGGED_IN);
    DSProvider* p = provider("Kept", 1);
    ASSERT_EQ(user->registerProvider(p), 0);
    auto reg = agent.lines({"in DSRequest type=5"});
    ASSERT_EQ(reg.size(), 1u);
    pumpUntil([&] { return !agent.lines({"in DSRequest type=2"}).empty(); }, 125000);
    auto alive = agent.lines({"in DSRequest type=2"});
    ASSERT_EQ(alive.size(), 1u);
    EXPECT_NEAR(seconds(alive[0]) - seconds(reg[0]), 120, 1.5);
    TBResource::unref(p);
    user->close();
}
