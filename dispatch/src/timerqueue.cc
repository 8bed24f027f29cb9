// The sorted list of one-shot timers.
#include "timerqueue.h"

#include <memory>

#include "iohandle.h"
#include "tvops.h"

Timer::Timer(timeval t, dpIOHandler* h, Timer* n) : timerValue(t), handler(h), next(n) {}

const timeval dpTimerQueue::_zeroTime = {0, 0};

dpTimerQueue::dpTimerQueue() : _first(nullptr) {}

dpTimerQueue::~dpTimerQueue() {
    while (_first != nullptr) {
        Timer* doomed = _first;
        _first = _first->next;
        delete doomed;
    }
}

timeval dpTimerQueue::currentTime() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now;
}

// The tie-break among equal times is kept as it is on purpose: a node that
// ties the head goes behind it, one that ties a later node goes in front.
void dpTimerQueue::insert(timeval t, dpIOHandler* handler) {
    if (_first == nullptr || t < _first->timerValue) {
        _first = new Timer(t, handler, _first);
        return;
    }
    Timer* before = _first;
    Timer* after = _first->next;
    while (after != nullptr && t > after->timerValue) {
        before = after;
        after = after->next;
    }
    before->next = new Timer(t, handler, after);
}

void dpTimerQueue::remove(dpIOHandler* handler) {
    for (Timer** link = &_first; *link != nullptr; link = &(*link)->next) {
        if ((*link)->handler == handler) {
            std::unique_ptr<Timer> doomed(*link);
            *link = doomed->next;
            return;
        }
    }
}

// The head is unlinked before its handler runs, so the handler may start
// and stop timers freely; one it starts at or after now waits for the next
// round because the same now is used throughout.
void dpTimerQueue::expire(timeval now) {
    while (_first != nullptr && _first->timerValue < now) {
        std::unique_ptr<Timer> expired(_first);
        _first = expired->next;
        expired->handler->timerExpired(now.tv_sec, now.tv_usec);
    }
}
