// Timer list order and firing rules.
#include "timerqueue.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "iohandle.h"

namespace {

using Log = std::vector<std::string>;

timeval tv(long sec, long usec = 0) {
    return timeval{sec, usec};
}

// Logs its name and the time it was given; may start one more timer.
struct Tick : dpIOHandler {
    Tick(Log& log, const char* name) : log(log), name(name) {}
    void timerExpired(long sec, long) override {
        log.push_back(name + std::to_string(sec));
        if (rearmIn != nullptr)
            std::exchange(rearmIn, nullptr)->insert(tv(sec), this);
    }
    Log& log;
    std::string name;
    dpTimerQueue* rearmIn = nullptr;
};

}  // namespace

TEST(dpTimerQueue, EqualTimesSitBehindTheHeadOrAheadOfTheirPeers) {
    Log log;
    Tick a(log, "a"), b(log, "b"), c(log, "c"), d(log, "d"), e(log, "e"), f(log, "f");
    dpTimerQueue q;
    q.remove(&a);  // empty queue: nothing happens
    const std::pair<int, Tick*> timers[] = {{10, &a}, {10, &b}, {10, &c}, {20, &d},
                                            {20, &e}, {5, &f}, {30, &f}};
    for (auto [t, h] : timers)
        q.insert(tv(t), h);
    q.remove(&f);  // the first of f's two timers only
    q.expire(tv(100));
    // c tied the head and went behind it; e tied a later node and went in front.
    EXPECT_EQ(log, (Log{"a100", "c100", "b100", "e100", "d100", "f100"}));
    EXPECT_TRUE(q.isEmpty());
}

TEST(dpTimerQueue, ExpireFiresStrictlyEarlierTimersWithOneNow) {
    Log log;
    Tick a(log, "a"), b(log, "b"), c(log, "c");
    dpTimerQueue q;
    q.insert(tv(5), &a);
    q.insert(tv(10), &b);
    q.insert(tv(15), &c);
    q.expire(tv(10));  // 10 is not earlier than 10
    EXPECT_EQ(log, Log{"a10"});
    // A timer started inside expire at the same now waits for a later call;
    // the list is re-read after each call, so c still fires.
    b.rearmIn = &q;
    q.expire(tv(16));
    EXPECT_EQ(log, (Log{"a10", "b16", "c16"}));
    EXPECT_EQ(q.earliestTime().tv_sec, 16);
    q.expire(tv(16, 1));
    EXPECT_EQ(log.back(), "b16");
    EXPECT_TRUE(q.isEmpty());
}
