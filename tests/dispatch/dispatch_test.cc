// The event loop against real pipes and socket pairs (delivery order, the
// three handler results, nesting and time limits), and the timer list's
// order and firing rules.
#include "dispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "iohandle.h"
#include "timerqueue.h"

namespace {

using Log = std::vector<std::string>;
constexpr dpDispatcher::DispatcherMask R = dpDispatcher::ReadMask, W = dpDispatcher::WriteMask;

// Logs "<name>:in", ":out", ":timer", drains its input, answers `result`.
struct Recorder : dpIOHandler {
    Recorder(Log& log, const char* name) : log(log), name(name) {}
    int inputReady(int fd) override {
        log.push_back(name + ":in");
        char buf[16];
        while (read(fd, buf, sizeof buf) > 0) ++reads;
        if (onInput) onInput();
        return result;
    }
    int outputReady(int) override { return log.push_back(name + ":out"), result; }
    void timerExpired(long, long) override { log.push_back(name + ":timer"); }
    Log& log;
    std::string name;
    int result = 0, reads = 0;
    std::function<void()> onInput;
};

// Counts the rounds that went to select().
struct ProbeDispatcher : dpDispatcher {
    int bound() const { return _nfds; }
    int waitFor(dpFdMask& r, dpFdMask& w, dpFdMask& e, timeval* howlong) override {
        ++selectRounds;
        return dpDispatcher::waitFor(r, w, e, howlong);
    }
    int selectRounds = 0;
};

class DispatcherLoop : public ::testing::Test {
protected:
    ~DispatcherLoop() override {
        for (int fd : _fds) close(fd);
    }
    // A non-blocking pipe (or socket pair) closed with the test: {read, write}.
    std::vector<int> pair(bool socket = false) {
        int fd[2];
        EXPECT_EQ(socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, fd) : pipe(fd), 0);
        for (int f : fd) fcntl(f, F_SETFL, O_NONBLOCK), _fds.push_back(f);
        return {fd[0], fd[1]};
    }
    static void put(const std::vector<int>& p) { EXPECT_EQ(write(p[1], "x", 1), 1); }

    Log log;
    ProbeDispatcher d;
    timeval poll = {0, 0}, ten = {10, 0};
    std::vector<int> _fds;
};

timeval tv(long sec, long usec = 0) { return timeval{sec, usec}; }

// Logs its name and the time it was given; may start one more timer.
struct Tick : dpIOHandler {
    Tick(Log& log, const char* name) : log(log), name(name) {}
    void timerExpired(long sec, long) override {
        log.push_back(name + std::to_string(sec));
        if (rearmIn) std::exchange(rearmIn, nullptr)->insert(tv(sec), this);
    }
    Log& log;
    std::string name;
    dpTimerQueue* rearmIn = nullptr;
};

}  // namespace

// Owed events (a positive result, setReady) go before anything new from the
// kernel, without select and without waiting.
TEST_F(DispatcherLoop, OwedEventsAreServedBeforeAnythingElse) {
    auto a = pair(), b = pair();
    Recorder ra(log, "a"), rb(log, "b");
    ra.onInput = [&] { ra.result = log.size() < 3; };
    d.link(a[0], R, &ra);
    d.link(b[0], R, &rb);
    put(a);
    EXPECT_TRUE(d.dispatch(&ten));
    put(b);
    EXPECT_TRUE(d.dispatch(&ten) && d.dispatch(&ten));
    EXPECT_EQ(d.selectRounds, 1);
    EXPECT_TRUE(d.dispatch(&ten));
    EXPECT_EQ(log, (Log{"a:in", "a:in", "a:in", "b:in"}));

    EXPECT_FALSE(d.setReady(b[0], W) || d.anyReady());  // no write handler
    EXPECT_TRUE(d.setReady(b[0], R));
    EXPECT_TRUE(d.dispatch(&ten));  // b has nothing to read, yet is called
    EXPECT_EQ(d.selectRounds, 2);
    d.setReady(a[0], R);
    d.unlink(a[0]);  // the bit still owed meets an empty table entry
    d.dispatch(&ten);
    EXPECT_EQ(log.size(), 5u);
}

TEST_F(DispatcherLoop, NegativeResultUnlinksTheWholeDescriptorAndLowersTheBound) {
    auto s = pair(true);
    Recorder h(log, "h");
    h.result = -1;
    for (int round = 0; round < 2; ++round) {
        if (round == 1) put(s);  // readable too: the write step then finds no handler
        d.link(s[0], R, &h);
        d.link(s[0], W, &h);
        EXPECT_TRUE(d.dispatch(&poll));
        EXPECT_EQ(d.handler(s[0], R), nullptr);
        EXPECT_EQ(d.bound(), 0);
    }
    EXPECT_EQ(log, (Log{"h:out", "h:in"}));
    // Unlinking lowers the bound only past empty entries.
    d.link(3, R, &h);  // plain numbers: nothing is selected here
    d.link(5, W, &h);
    d.link(9, dpDispatcher::ExceptMask, &h);
    d.unlink(5);
    EXPECT_EQ(d.bound(), 10);
    d.unlink(9);
    EXPECT_EQ(d.bound(), 4);
}

TEST_F(DispatcherLoop, NestedDispatchFromAHandler) {
    auto a = pair(), b = pair();
    Recorder ra(log, "a"), rb(log, "b"), t(log, "t");
    ra.onInput = [&] { EXPECT_TRUE(d.dispatch(&ten)); };
    d.link(a[0], R, &ra);
    d.link(b[0], R, &rb);
    d.startTimer(-1, 0, &t);  // already due
    put(a);
    put(b);
    EXPECT_TRUE(d.dispatch(&poll));
    // The inner round serves b, then the timer. The outer round's copy of
    // b's event is stale by then: it asks again and passes b over, so a
    // handler that reads blocking never waits on a drained descriptor.
    EXPECT_EQ(log, (Log{"a:in", "b:in", "t:timer"}));
    EXPECT_EQ(rb.reads, 1);
    // Data that comes after the nested round is still delivered.
    log.clear();
    put(b);
    EXPECT_TRUE(d.dispatch(&poll));
    EXPECT_EQ(log, (Log{"b:in"}));
}

TEST_F(DispatcherLoop, TimersBoundTheWait) {
    auto a = pair();
    Recorder h(log, "h"), late(log, "late");
    d.link(a[0], R, &h);
    // A poll never blocks, reports nothing ready, and still runs a due timer.
    d.startTimer(-1, 0, &h);
    d.startTimer(10, 0, &late);
    EXPECT_FALSE(d.dispatch(&poll));
    // A limit shorter than the timer leaves it running; the time left never
    // goes below zero.
    long sec = 0, usec = 10000;
    EXPECT_FALSE(d.dispatch(sec, usec));
    EXPECT_TRUE(sec == 0 && usec == 0);
    d.stopTimer(&late);
    // A longer limit ends at the timer (one due exactly now runs a round later).
    d.startTimer(0, 20000, &late);
    sec = 5, usec = 0;
    for (int round = 0; round < 5 && log.size() == 1; ++round) EXPECT_FALSE(d.dispatch(sec, usec));
    EXPECT_TRUE(sec == 4 && usec >= 0 && usec < 1000000);
    EXPECT_EQ(log, (Log{"h:timer", "late:timer"}));
}

// A signal during select is not an error: the wait starts over and the data
// that arrives afterwards is delivered. A descriptor closed behind the
// dispatcher's back is found by probing and detached, instead of failing
// every later select.
TEST_F(DispatcherLoop, InterruptedAndDeadDescriptorsAreSurvived) {
    struct sigaction sa = {};
    sa.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGALRM, &sa, nullptr));  // no SA_RESTART
    auto a = pair(), dead = pair();
    Recorder h(log, "h"), gone(log, "gone");
    d.link(a[0], R, &h);
    d.link(dead[0], R, &gone);
    close(dead[0]);
    ualarm(20000, 0);  // interrupts the first select
    std::thread writer([&] { usleep(80000), put(a); });
    EXPECT_TRUE(d.dispatch(&ten));
    writer.join();
    EXPECT_EQ(log, (Log{"h:in"}));
    EXPECT_EQ(nullptr, d.handler(dead[0], R));
    _fds.erase(std::find(_fds.begin(), _fds.end(), dead[0]));
}

// The kernel is told of a file, not of a number: a number that comes to
// name another file is unlinked and linked again, and is then watched. A
// regular file, which the kernel set refuses, is always ready, as select()
// has it.
TEST_F(DispatcherLoop, ANumberLinkedAgainIsWatchedForItsNewFile) {
    auto a = pair(), b = pair();
    Recorder old(log, "old"), now(log, "now");
    d.link(a[0], R, &old);
    EXPECT_FALSE(d.dispatch(&poll));  // the kernel knows a[0] now
    ASSERT_EQ(a[0], dup2(b[0], a[0]));  // a's read end closes under its number
    d.unlink(a[0]);
    d.link(a[0], R, &now);
    put(b);
    EXPECT_TRUE(d.dispatch(&ten));
    EXPECT_EQ(log, (Log{"now:in"}));
    FILE* file = tmpfile();
    ASSERT_NE(nullptr, file);
    Recorder plain(log, "file");
    d.link(fileno(file), R, &plain);
    EXPECT_TRUE(d.dispatch(&ten));
    EXPECT_EQ(log, (Log{"now:in", "file:in"}));
    d.unlink(fileno(file));
    fclose(file);
}

// A child's dispatcher makes its own kernel set: what it unlinks stays
// watched in the parent.
TEST_F(DispatcherLoop, AChildDoesNotShareItsParentsSet) {
    auto a = pair();
    Recorder h(log, "h");
    d.link(a[0], R, &h);
    EXPECT_FALSE(d.dispatch(&poll));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        d.unlink(a[0]);
        _exit(d.dispatch(&poll) ? 1 : 0);
    }
    int status = -1;
    ASSERT_TRUE(waitpid(child, &status, 0) == child && status == 0);
    put(a);
    EXPECT_TRUE(d.dispatch(&ten));
    EXPECT_EQ(log, (Log{"h:in"}));
}

// Without a limit the earliest timer wakes the wait; a timer stopped after
// it set the wake-up does not end the wait early.
TEST_F(DispatcherLoop, AStoppedTimerDoesNotEndAWaitWithoutLimit) {
    auto a = pair();
    Recorder h(log, "h"), early(log, "early"), late(log, "late");
    d.link(a[0], R, &h);
    d.startTimer(0, 20000, &early);
    d.startTimer(0, 150000, &late);
    put(a);
    EXPECT_TRUE(d.dispatch());  // the wake-up is set for `early`
    d.stopTimer(&early);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(d.dispatch());
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
    EXPECT_EQ(log, (Log{"h:in", "late:timer"}));
}

TEST(dpTimerQueue, OrderOfEqualTimesAndExpiryOfStrictlyEarlierOnes) {
    Log log;
    Tick a(log, "a"), b(log, "b"), c(log, "c"), d(log, "d"), e(log, "e"), f(log, "f");
    dpTimerQueue q;
    q.remove(&a);  // empty queue: nothing happens
    const std::pair<int, Tick*> timers[] = {{10, &a}, {10, &b}, {10, &c}, {20, &d},
                                            {20, &e}, {5, &f}, {30, &f}};
    for (auto [t, h] : timers) q.insert(tv(t), h);
    q.remove(&f);  // the first of f's two timers only
    q.expire(tv(20));  // 20 is not earlier than 20
    // c tied the head and went behind it; e tied a later node and went in front.
    EXPECT_EQ(log, (Log{"a20", "c20", "b20"}));
    // A timer started inside expire at the same now waits for a later call;
    // the list is re-read after each call, so the rest still fires.
    e.rearmIn = &q;
    q.expire(tv(100));
    EXPECT_EQ(log, (Log{"a20", "c20", "b20", "e100", "d100", "f100"}));
    EXPECT_EQ(q.earliestTime().tv_sec, 100);
    q.expire(tv(100, 1));
    EXPECT_EQ(log.back(), "e100");
    EXPECT_TRUE(q.isEmpty());
}
