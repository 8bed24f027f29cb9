// The round-trip estimator's time-outs (the back-off schedule is the agent
// waits' business) and the transports' priority queue.
#include "tbrtt.h"

#include <gtest/gtest.h>

#include <vector>

#include "tbpqueue.h"

TEST(TBrtt, AReplyToARetransmissionTeachesNothing) {
    TBrtt rtt;
    rtt.start();
    rtt.nrexmt = 1;
    EXPECT_EQ(rtt.start(), 6);
    rtt.stop();
    EXPECT_EQ(rtt.srtt, 0.0f);
    EXPECT_EQ(rtt.rttdev, 1.5f);
    // The next exchange starts with the carried time-out, once.
    rtt.nrexmt = 0;
    EXPECT_EQ(rtt.start(), 6);
    rtt.stop();
    EXPECT_EQ(rtt.start(), 2);  // a fast reply: srtt ~0, rttdev 1.125 -> 2
    for (int i = 0; i < 20; ++i) rtt.stop(), rtt.start();
    EXPECT_EQ(rtt.start(), TBrtt::RXTMIN);  // the deviation decays; the floor holds
}

namespace {
std::vector<long> drain(TBPriorityQueue& q) {
    std::vector<long> out;
    int st = 0;
    while (void* p = q.remove(st)) out.push_back(reinterpret_cast<long>(p));
    EXPECT_EQ(st, -99);
    return out;
}
void* tag(long v) { return reinterpret_cast<void*>(v); }
}  // namespace

TEST(TBPriorityQueue, LeavingOrderFullQueueAndGrowth) {
    TBPriorityQueue q(2);
    int st = 0;
    EXPECT_EQ(q.peek(st), nullptr);
    EXPECT_EQ(st, -99);
    // Equal priorities leave oldest first; 3, 2, 1 leaves as 3, 1, 2.
    for (long v : {1, 2}) q.add(tag(v), 10);
    EXPECT_EQ(q.add(tag(3), 10), -100);
    EXPECT_EQ(q.count(), 2);
    q.capacity(1);  // never shrinks
    q.capacity(4);
    EXPECT_EQ(q.add(tag(3), 10), 0);
    EXPECT_EQ(q.add(tag(4), 10), 0);
    EXPECT_EQ(q.add(tag(5), 10), -100);
    EXPECT_EQ(drain(q), (std::vector<long>{1, 2, 3, 4}));
    for (long p : {3, 2, 1}) q.add(tag(p), static_cast<unsigned char>(p));
    EXPECT_EQ(drain(q), (std::vector<long>{3, 1, 2}));
}
