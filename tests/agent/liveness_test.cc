// Liveness checks (their resends are waits_test's), broadcasting, and the
// session's failover to a second agent. Each test runs in a network
// namespace of its own.
#include "dsverify.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "agenttest.h"
#include "dsmsg.h"
#include "dsuser.h"
#include "netns.h"
#include "process.h"
#include "sockets.h"
#include "tbudpstr.h"
#include "testagent.h"

namespace {

struct Watch : DSVerify {
    int alive = 0, down = 0;
    void isAlive() override { ++alive; }
    void isDown() override { ++down; }
};

DSAddr local(int port) { return DSAddr(port, inet_addr("127.0.0.1")); }

}  // namespace

TEST(DSVerify, ABoundPeerAnswersRequestsOnlyAndARefusingPortIsDown) {
    Watch answering, asking;
    ASSERT_EQ(answering.bind(0, "127.0.0.1"), 0);
    EXPECT_EQ(answering.bind(0, nullptr), DSVerify::BUSY);
    ASSERT_EQ(asking.verify(local(answering.port())), 0);
    EXPECT_EQ(asking.verify(local(answering.port())), DSVerify::BUSY);
    EXPECT_EQ(asking.addr(), nullptr);
    ASSERT_TRUE(pumpUntil([&] { return asking.alive > 0; }, 3000));
    EXPECT_EQ(asking.state(), DSVerify::IDLE);
    EXPECT_EQ(asking.port(), 0);  // the stream is gone
    // Something that is not a request gets no answer.
    TBudpstream s;
    ASSERT_EQ(s.bind(0, "127.0.0.1"), 0);
    ASSERT_EQ(s.connect("127.0.0.1", answering.port()), 0);
    DSAMessage other(DSAMessage::LOCATE, nullptr, nullptr, 0);
    ASSERT_EQ(s.send(other), 0);
    pumpUntil([] { return false; }, 300);
    int st = 0;
    EXPECT_EQ(s.receive(st, nullptr), nullptr);
    EXPECT_EQ(st, TBudpstream::NOTHING_TO_READ);
    // A refusing port is down.
    const int closed = ktest::Udp().port;  // its socket is gone again
    ASSERT_EQ(asking.verify(local(closed)), 0);
    ASSERT_TRUE(pumpUntil([&] { return asking.down > 0; }, 3000));
    EXPECT_EQ(asking.alive, 1);
}

// What reaches a real interface's broadcast address is the next test's.
TEST(TBudpstream, BroadcastSkipsLoopback) {
    KTEST_IN_NETNS();
    TBudpstream s;
    ASSERT_EQ(s.bind(0, nullptr), 0);
    ktest::Udp c(14555, "0.0.0.0");
    EXPECT_EQ(s.broadcast(DSAddr(7, inet_addr("1.2.3.4")), 14555), 0);
    EXPECT_EQ(c.take(), "");
}

TEST(DSUser, FailsOverToTheNextAgentOfTheList) {
    KTEST_IN_NETNS();
    ktest::TempDir dir;
    ktest::writeFile(dir.file("agents"), "# two agents\n127.0.0.1 # first\n127.0.0.2\n");
    setenv("TOLAGENT_ADDR_FILE", dir.file("agents").c_str(), 1);
    ktest::TestAgent first, second;
    ASSERT_TRUE(first.start("127.0.0.1", 14000, 15001)) << first.error();
    ASSERT_TRUE(second.start("127.0.0.2", 14000, 15001, {"--first-number", "5000"}))
        << second.error();
    DSUser* user = DSUser::open("failover", "", 14000);
    DSProvider* p = provider("Moved");
    ASSERT_EQ(user->registerProvider(p), 0);
    Counter handler;
    DSName later("Later", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    ASSERT_EQ(user->trigger(&later, handler), 0);

    first.command("drop 3 1");
    ASSERT_TRUE(first.waitFor({"cmd drop"}, 2000));
    std::thread killer([&] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        first.stop();
    });
    auto start = std::chrono::steady_clock::now();
    int st = -1;
    std::unique_ptr<DSProvider> found(user->getProvider(const_cast<DSName*>(&p->name()), st, 0));
    auto took = std::chrono::steady_clock::now() - start;
    killer.join();
    ASSERT_NE(found, nullptr) << st;
    EXPECT_LT(took, std::chrono::seconds(15));
    EXPECT_EQ(second.lines({"in DSRequest type=5", "Moved"}).size(), 1u);
    EXPECT_EQ(second.lines({"in DSRequest type=4", "Later"}).size(), 1u);
    TBResource::unref(p);
    user->close();
}

TEST(DSUser, BroadcastsOnlyAfterTheListFailed) {
    KTEST_IN_NETNS();
    std::string why;
    if (!ktest::addVethPair(why)) GTEST_SKIP() << why;
    ktest::TestAgent agent;  // its agent port takes only datagrams to 10.99.0.255
    ASSERT_TRUE(agent.start("127.0.0.1", 14000, 15001, {"--bcast"})) << agent.error();
    setenv("TOLAGENT_ADDR", "127.0.0.3", 1);
    testing::internal::CaptureStdout();
    DSUser* user = DSUser::open("bcast", "", 14000);
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(user->state(), DSUser::STATE_LOGGED_IN);
    EXPECT_NE(said.find("Will try to locate using broadcast."), std::string::npos) << said;
    EXPECT_EQ(user->agentAddr().port(), 15001);
    user->close();
}

TEST(DSUser, WithoutAnAgentItSaysSoAndKeepsLooking) {
    KTEST_IN_NETNS();
    testing::internal::CaptureStdout();
    DSUser* user = DSUser::open("alone", "", 14000);
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(user->state(), DSUser::STATE_NEW);
    EXPECT_NE(said.find("Unable to locate agent. Will try every 15 seconds"), std::string::npos) << said;
    EXPECT_NE(said.find("DSUser:: Unable to contact agent."), std::string::npos) << said;
    EXPECT_EQ(said.find("broadcast"), std::string::npos);  // no list, no broadcast
    DSName any("Any", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    int st = 0;
    EXPECT_EQ(user->getProvider(&any, st, 0), nullptr);
    EXPECT_EQ(st, DSUser::STATUS_NOT_LOGGED_IN);
    user->close();
}
