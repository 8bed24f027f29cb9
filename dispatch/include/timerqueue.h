// One-shot timers of the dispatcher: a singly linked list sorted by expiry.
#ifndef KELVANOR_TIMERQUEUE_H
#define KELVANOR_TIMERQUEUE_H

#include <sys/time.h>

class dpIOHandler;

// One node: absolute expiry, the handler to call (not owned), the next node.
class Timer {
public:
    Timer(timeval t, dpIOHandler* handler, Timer* next);

    timeval timerValue;
    dpIOHandler* handler;
    Timer* next;
};

class dpTimerQueue {
public:
    dpTimerQueue();
    // Deletes every node, never a handler.
    virtual ~dpTimerQueue();
    dpTimerQueue(const dpTimerQueue&) = delete;
    dpTimerQueue& operator=(const dpTimerQueue&) = delete;

    bool isEmpty() const { return _first == nullptr; }
    // Only meaningful when the queue is not empty.
    timeval earliestTime() const { return _first->timerValue; }

    // Keeps the list sorted. Among equal times a new node goes directly
    // behind the head when it ties the head, and in front of the other
    // nodes of its time elsewhere: not first come, first served.
    void insert(timeval t, dpIOHandler* handler);
    // Unlinks and deletes the first node of this handler only.
    void remove(dpIOHandler* handler);
    // Fires, in list order, every node that expires strictly before now.
    void expire(timeval now);

    static const timeval _zeroTime;
    static timeval currentTime();

private:
    Timer* _first;  // earliest expiry first; nodes are owned
};

#endif
