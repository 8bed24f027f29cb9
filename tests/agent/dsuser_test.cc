// The agent session against the test agent: login, queries (resent as
// waits_test checks), the agent's own requests, a restarted agent, triggers
// and listings. Each test runs in a network namespace of its own.
#include "dsuser.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "agenttest.h"
#include "netns.h"
#include "testagent.h"

namespace {

constexpr int kSessionPort = 15001;

class Session : public ::testing::Test {
protected:
    void SetUp() override {
        KTEST_IN_NETNS();
        ASSERT_TRUE(agent.start("127.0.0.1", 14000, kSessionPort)) << agent.error();
        user = DSUser::open("dsuser_test", "", 14000);
        ASSERT_EQ(user->state(), DSUser::STATE_LOGGED_IN);
    }
    void TearDown() override {
        if (user) user->close();
    }
    std::string pid() const { return std::to_string(getpid()); }

    ktest::TestAgent agent;
    DSUser* user = nullptr;
};

}  // namespace

TEST_F(Session, LogsInAtTheProbesAddressAndQueries) {
    EXPECT_EQ(user->agentAddr().port(), kSessionPort);
    EXPECT_EQ(agent.lines({"in DSRequest type=0", "dsuser_test"}).size(), 1u);
    DSProvider* p = provider("Demo::Echo");
    EXPECT_EQ(user->registerProvider(p), 0);
    EXPECT_EQ(user->registerProvider(p), DSUser::STATUS_ALREADY_REGISTERED);
    int st = -1;
    DSName echo("Demo::Echo", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    std::unique_ptr<DSProvider> found(user->getProvider(&echo, st, 0));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->address().port(), 2000);
    EXPECT_EQ(found->agentAddr().port(), 14000);
    DSName other("Nothing", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    EXPECT_EQ(user->getProvider(&other, st, 0), nullptr);
    EXPECT_EQ(st, DSUser::STATUS_NO_PROVIDER);

    EXPECT_EQ(user->removeProvider(p), 0);
    EXPECT_EQ(user->removeProvider(p), DSUser::STATUS_NO_PROVIDER);
    TBResource::unref(p);
    user->close();
    user = nullptr;
    EXPECT_TRUE(agent.waitFor({"in DSRequest type=10"}, 2000));
}

TEST_F(Session, TheAgentsRequestsAreAnswered) {
    agent.command("ask " + pid() + " 2");
    ASSERT_TRUE(pumpUntil([&] { return !agent.lines({"in DSReply type=4"}).empty(); }, 3000));
    agent.command("again");
    ASSERT_TRUE(pumpUntil([&] { return agent.lines({"in DSReply type=4"}).size() == 2; }, 3000));
    auto answers = agent.lines({"in DSReply type=4"});
    EXPECT_EQ(answers[0].substr(answers[0].find("num=")), answers[1].substr(answers[1].find("num=")));
    // Reconnect: answered with 12, then a new login.
    agent.command("ask " + pid() + " 10");
    ASSERT_TRUE(pumpUntil([&] { return agent.lines({"in DSRequest type=0"}).size() == 2; }, 5000));
    EXPECT_EQ(agent.lines({"in DSReply type=12"}).size(), 1u);
    EXPECT_EQ(user->state(), DSUser::STATE_LOGGED_IN);
}

TEST_F(Session, ARestartedAgentLearnsEverythingAgain) {
    DSProvider* p = provider("Kept");
    ASSERT_EQ(user->registerProvider(p), 0);
    agent.stop();
    ktest::TestAgent again;
    ASSERT_TRUE(again.start("127.0.0.1", 14000, kSessionPort, {"--first-number", "1000"}))
        << again.error();
    int st = 0;
    // The call meets the new agent's "who are you": login, registration and
    // the request again, yet this call reports no provider.
    EXPECT_EQ(user->getProvider(const_cast<DSName*>(&p->name()), st, 0), nullptr);
    EXPECT_EQ(st, DSUser::STATUS_NO_PROVIDER);
    EXPECT_EQ(again.lines({"in DSRequest type=0"}).size(), 1u);
    EXPECT_EQ(again.lines({"in DSRequest type=5", "Kept"}).size(), 1u);
    std::unique_ptr<DSProvider> found(user->getProvider(const_cast<DSName*>(&p->name()), st, 0));
    EXPECT_NE(found, nullptr);
    TBResource::unref(p);
}

TEST_F(Session, TriggersFireOnceAndAreAcknowledged) {
    DSName wanted("Wanted", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    Counter h;
    EXPECT_EQ(user->trigger(&wanted, h), 0);
    EXPECT_EQ(user->trigger(&wanted, h), 0);
    EXPECT_EQ(agent.lines({"in DSRequest type=4"}).size(), 1u);

    DSUser* other = DSUser::open("other", "", 14000);
    DSProvider* p = provider("Wanted");
    EXPECT_EQ(other->registerProvider(p), 0);
    ASSERT_TRUE(pumpUntil([&] { return h.calls > 0; }, 3000));
    EXPECT_TRUE(agent.waitFor({"in DSReply type=1"}, 2000));
    pumpUntil([] { return false; }, 300);
    EXPECT_EQ(h.calls, 1);
    EXPECT_EQ(user->removeTrigger(&wanted, h), DSUser::STATUS_NO_TRIGGER);

    // With a provider present, the handler runs before trigger returns.
    Counter now;
    EXPECT_EQ(user->trigger(&wanted, now), 0);
    EXPECT_EQ(now.calls, 1);
    EXPECT_EQ(now.last, "Wanted");
    TBResource::unref(p);
    other->close();
}

TEST(Listings, WalkEveryAgentAndPassOverADeadOne) {
    KTEST_IN_NETNS();
    ktest::TestAgent first, second;
    ASSERT_TRUE(second.start("127.0.0.2", 14000, kSessionPort, {"--provider", "Far:4"}))
        << second.error();
    ASSERT_TRUE(first.start("127.0.0.1", 14000, kSessionPort, {"--peer", "127.0.0.2:14000"}))
        << first.error();
    DSUser* user = DSUser::open("listings", "", 14000);
    DSProvider* p = provider("Near");
    ASSERT_EQ(user->registerProvider(p), 0);
    int st = -1;
    std::unique_ptr<DSSet> all(user->allProviders(nullptr, st, 1));
    ASSERT_NE(all, nullptr) << st;
    EXPECT_EQ(all->size(), 2u);
    std::unique_ptr<DSSet> names(user->allNames(st, 1));
    ASSERT_NE(names, nullptr);
    EXPECT_EQ(names->size(), 2u);
    second.stop();
    all.reset(user->allProviders(nullptr, st, 1));
    ASSERT_NE(all, nullptr) << st;
    EXPECT_EQ(all->size(), 1u);
    // Without the session's own agent there is no listing at all.
    first.stop();
    all.reset(user->allProviders(nullptr, st, 1));
    EXPECT_EQ(all, nullptr);
    TBResource::unref(p);
    user->close();
}
