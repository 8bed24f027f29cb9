// The event loop: owed events before the kernel, I/O before timers. The
// kernel is asked through an epoll set that mirrors the masks (pollset.cc);
// select() remains for the rare questions asked without waiting.
#include "dispatch.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sys/select.h>

#include "tvops.h"

dpDispatcher* dpDispatcher::_instance = nullptr;

namespace {
// Allocates a handler table with every entry null.
std::unique_ptr<dpIOHandler*[]> newTable() {
    return std::unique_ptr<dpIOHandler*[]>(new dpIOHandler*[dpDispatcher::kMaxHandlers]());
}

void checkRange(int fd) {
    if (fd < 0 || fd >= dpDispatcher::kMaxHandlers)
        std::abort();
}
}  // namespace

dpDispatcher::dpDispatcher()
    : _nfds(0),
      _rmask(new dpFdMask),
      _wmask(new dpFdMask),
      _emask(new dpFdMask),
      _rmaskready(new dpFdMask),
      _wmaskready(new dpFdMask),
      _emaskready(new dpFdMask),
      _rtable(newTable()),
      _wtable(newTable()),
      _etable(newTable()),
      _queue(new dpTimerQueue),
      _pollset(new dpPollSet) {}

// A deleted shared instance is not handed out again.
dpDispatcher::~dpDispatcher() {
    if (_instance == this)
        _instance = nullptr;
}

dpDispatcher* dpDispatcher::instance() {
    if (_instance == nullptr)
        _instance = new dpDispatcher;
    return _instance;
}

void dpDispatcher::instance(dpDispatcher* d) {
    _instance = d;
}

dpIOHandler** dpDispatcher::table(DispatcherMask mask) const {
    switch (mask) {
    case ReadMask: return _rtable.get();
    case WriteMask: return _wtable.get();
    case ExceptMask: return _etable.get();
    }
    std::abort();
}

dpFdMask* dpDispatcher::readyMask(DispatcherMask mask) const {
    switch (mask) {
    case ReadMask: return _rmaskready.get();
    case WriteMask: return _wmaskready.get();
    case ExceptMask: return _emaskready.get();
    }
    std::abort();
}

void dpDispatcher::link(int fd, DispatcherMask mask, dpIOHandler* handler) {
    checkRange(fd);
    attach(fd, mask, handler);
}

dpIOHandler* dpDispatcher::handler(int fd, DispatcherMask mask) const {
    checkRange(fd);
    return table(mask)[fd];
}

void dpDispatcher::unlink(int fd) {
    checkRange(fd);
    detach(fd);
}

dpIOHandler* dpDispatcher::replace(int fd, DispatcherMask mask, dpIOHandler* handler) {
    checkRange(fd);
    dpIOHandler*& slot = table(mask)[fd];
    dpIOHandler* old = slot;
    if (old == nullptr || handler == nullptr)
        link(fd, mask, handler);
    else
        slot = handler;
    return old;
}

void dpDispatcher::relink(int fd, DispatcherMask mask, dpIOHandler* handler) {
    _sameFile = true;
    link(fd, mask, handler);
    _sameFile = false;
}

void dpDispatcher::startTimer(long sec, long usec, dpIOHandler* handler) {
    timeval delta;
    delta.tv_sec = sec;
    delta.tv_usec = usec;
    _queue->insert(dpTimerQueue::currentTime() + delta, handler);
}

void dpDispatcher::stopTimer(dpIOHandler* handler) {
    _queue->remove(handler);
}

iv_boolean dpDispatcher::setReady(int fd, DispatcherMask mask) {
    if (handler(fd, mask) == nullptr)
        return false;
    readyMask(mask)->setBit(fd);
    return true;
}

iv_boolean dpDispatcher::anyReady() const {
    return _rmaskready->anySet() || _wmaskready->anySet() || _emaskready->anySet();
}

bool dpDispatcher::onlyWaitsFor(int fd, int idle) const {
    if (anyReady() || !_queue->isEmpty()) return false;
    for (int i = 0; i < _nfds; ++i) {
        if (i == idle) continue;
        const bool linked = _rtable[i] || _wtable[i] || _etable[i];
        if (linked && !(i == fd && !_wtable[i] && !_etable[i])) return false;
    }
    return true;
}

iv_boolean dpDispatcher::dispatch() {
    return dispatch(static_cast<timeval*>(nullptr));
}

iv_boolean dpDispatcher::dispatch(long& sec, long& usec) {
    timeval howlong;
    howlong.tv_sec = sec;
    howlong.tv_usec = usec;
    const timeval given = howlong;
    const timeval start = dpTimerQueue::currentTime();
    iv_boolean success = dispatch(&howlong);
    const timeval elapsed = dpTimerQueue::currentTime() - start;
    const timeval left = given > elapsed ? given - elapsed : dpTimerQueue::_zeroTime;
    sec = left.tv_sec;
    usec = left.tv_usec;
    return success;
}

// Owed events and a select() never mix in one round, so a handler that keeps
// answering positive holds the loop until it stops.
iv_boolean dpDispatcher::dispatch(timeval* howlong) {
    dpFdMask rmask, wmask, emask;
    int nfound;
    ++_rounds;
    if (anyReady()) {
        nfound = fillInReady(rmask, wmask, emask);
        _selected = false;
    } else {
        nfound = waitFor(rmask, wmask, emask, howlong);
        _selected = true;
    }
    notify(nfound, rmask, wmask, emask);
    return nfound > 0;
}

void dpDispatcher::attach(int fd, DispatcherMask mask, dpIOHandler* handler) {
    checkRange(fd);
    _pollset->touch(fd, !_sameFile && table(mask)[fd] == nullptr);
    switch (mask) {
    case ReadMask:
        _rmask->setBit(fd);
        _rtable[fd] = handler;
        break;
    case WriteMask:
        _wmask->setBit(fd);
        _wtable[fd] = handler;
        break;
    case ExceptMask:
        _emask->setBit(fd);
        _etable[fd] = handler;
        break;
    default:
        std::abort();
    }
    if (_nfds < fd + 1)
        _nfds = fd + 1;
}

// Pending ready bits stay: a stale one meets a null handler in notify.
void dpDispatcher::detach(int fd) {
    checkRange(fd);
    _pollset->touch(fd, false);
    _rmask->clrBit(fd);
    _rtable[fd] = nullptr;
    _wmask->clrBit(fd);
    _wtable[fd] = nullptr;
    _emask->clrBit(fd);
    _etable[fd] = nullptr;
    if (_nfds == fd + 1) {
        while (_nfds >= 1 && _rtable[_nfds - 1] == nullptr && _wtable[_nfds - 1] == nullptr &&
               _etable[_nfds - 1] == nullptr)
            --_nfds;
    }
}

int dpDispatcher::fillInReady(dpFdMask& r, dpFdMask& w, dpFdMask& e) {
    r = *_rmaskready;
    w = *_wmaskready;
    e = *_emaskready;
    _rmaskready->zero();
    _wmaskready->zero();
    _emaskready->zero();
    return r.numSet() + w.numSet() + e.numSet();
}

// A descriptor closed behind the dispatcher's back, which select() would
// refuse, is detached without telling its handler; the wait starts over.
//
// Without a limit from the caller the earliest timer goes to the poll set's
// timer descriptor, which may wake the wait for a timer stopped since: then
// nothing is due, and the wait goes on.
int dpDispatcher::waitFor(dpFdMask& r, dpFdMask& w, dpFdMask& e, timeval* howlong) {
    int nfound;
    bool again;
    do {
        _closed.clear();
        bool timerWoke = false;
        timeval earliest{};
        const bool onTimer = howlong == nullptr && !_queue->isEmpty();
        if (onTimer) earliest = _queue->earliestTime();
        nfound = _pollset->wait(*_rmask, *_wmask, *_emask, r, w, e,
                                onTimer ? nullptr : calculateTimeout(howlong),
                                onTimer ? &earliest : nullptr, timerWoke, _closed);
        if (nfound == dpPollSet::kNoTimer)
            nfound = _pollset->wait(*_rmask, *_wmask, *_emask, r, w, e, calculateTimeout(howlong),
                                    nullptr, timerWoke, _closed);
        if (nfound == dpPollSet::kNoSet)
            return selectFor(r, w, e, howlong);
        for (int fd : _closed)
            detach(fd);
        if (nfound < 0)
            handleError();
        again = nfound < 0 || (nfound == 0 && !_closed.empty()) ||
                (nfound == 0 && onTimer && timerWoke && !_queue->isEmpty() &&
                 _queue->earliestTime() > dpTimerQueue::currentTime());
    } while (again);
    return nfound;
}

int dpDispatcher::selectFor(dpFdMask& r, dpFdMask& w, dpFdMask& e, timeval* howlong) {
    int nfound;
    do {
        r = *_rmask;
        w = *_wmask;
        e = *_emask;
        howlong = calculateTimeout(howlong);
        // The masks hold 1024 bits; a bound above that would let select()
        // read past them, so descriptors beyond the masks are not selected.
        const int bound = _nfds < dpFdMask::kBits ? _nfds : dpFdMask::kBits;
        // select() on this platform writes the time left back into its
        // argument; it gets a copy so that the caller's limit is untouched
        // and an interrupted wait starts over with the full limit.
        timeval limit = howlong != nullptr ? *howlong : dpTimerQueue::_zeroTime;
        timeval* limitOrNull = howlong != nullptr ? &limit : nullptr;
        nfound = select(bound, r.fdSet(), w.fdSet(), e.fdSet(), limitOrNull);
        if (nfound < 0)
            handleError();
    } while (nfound < 0);
    return nfound;
}

// The bound is read anew at every step: a handler may link or unlink.
// Each table entry is read just before its call, so an event for a
// descriptor unlinked earlier in the round (or in a nested round) is passed
// over.
//
// A handler that runs rounds of its own (a client waiting for its reply
// serves other connections meanwhile) may read descriptors that this round
// has still to deliver. A blocking read on one of those would hang the
// process, so after a nested round the rest of select()'s answer is asked
// again. Owed events are the handlers' own promises and are delivered as
// they stand.
void dpDispatcher::notify(int nfound, dpFdMask& r, dpFdMask& w, dpFdMask& e) {
    const bool selected = _selected;
    unsigned long rounds = _rounds;
    for (int fd = 0; fd < _nfds && nfound > 0; ++fd) {
        if (selected && _rounds != rounds) {
            nfound = stillReady(fd, r, w, e);
            rounds = _rounds;
            if (nfound == 0)
                break;
        }
        if (r.isSet(fd)) {
            deliver(fd, ReadMask, &dpIOHandler::inputReady);
            --nfound;
        }
        if (w.isSet(fd)) {
            deliver(fd, WriteMask, &dpIOHandler::outputReady);
            --nfound;
        }
        if (e.isSet(fd)) {
            deliver(fd, ExceptMask, &dpIOHandler::exceptionRaised);
            --nfound;
        }
    }
    if (!_queue->isEmpty())
        _queue->expire(dpTimerQueue::currentTime());
}

int dpDispatcher::stillReady(int from, dpFdMask& r, dpFdMask& w, dpFdMask& e) const {
    // Only descriptors still linked are asked about: one closed in the
    // nested round would fail the whole select().
    int bound = 0;
    for (int fd = 0; fd < dpFdMask::kBits; ++fd) {
        const bool keep = fd >= from && fd < _nfds;
        if (!keep || _rtable[fd] == nullptr)
            r.clrBit(fd);
        if (!keep || _wtable[fd] == nullptr)
            w.clrBit(fd);
        if (!keep || _etable[fd] == nullptr)
            e.clrBit(fd);
        if (r.isSet(fd) || w.isSet(fd) || e.isSet(fd))
            bound = fd + 1;
    }
    if (bound == 0)
        return 0;
    int n;
    do {
        timeval now = dpTimerQueue::_zeroTime;
        dpFdMask rr = r, ww = w, ee = e;
        n = select(bound, rr.fdSet(), ww.fdSet(), ee.fdSet(), &now);
        if (n >= 0) {
            r = rr;
            w = ww;
            e = ee;
        }
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        // Whatever is still ready, the next select() reports again.
        r.zero();
        w.zero();
        e.zero();
        return 0;
    }
    return n;
}

// After a negative result the descriptor is gone as a whole, so the later
// steps for the same descriptor find no handler.
void dpDispatcher::deliver(int fd, DispatcherMask mask, int (dpIOHandler::*event)(int)) {
    dpIOHandler* h = table(mask)[fd];
    if (h == nullptr)
        return;
    const int status = (h->*event)(fd);
    if (status < 0)
        detach(fd);
    else if (status > 0)
        readyMask(mask)->setBit(fd);
}

// Uses one function-static timeval; nothing runs between this call and the
// select() that reads it, so nesting cannot disturb it.
timeval* dpDispatcher::calculateTimeout(timeval* howlong) const {
    static timeval timeout;
    if (_queue->isEmpty())
        return howlong;
    const timeval now = dpTimerQueue::currentTime();
    const timeval earliest = _queue->earliestTime();
    if (earliest > now) {
        timeout = earliest - now;
        if (howlong != nullptr && !(*howlong > timeout))
            return howlong;
    } else {
        timeout = dpTimerQueue::_zeroTime;
    }
    return &timeout;
}

void dpDispatcher::handleError() {
    const int error = errno;
    if (error == EINTR)
        return;
    if (error == EBADF) {
        checkConnections();
        return;
    }
    std::perror("Dispatcher: select");
    std::cout << "Dispatcher::handleError: Select error (" << error << ")" << std::endl;
    std::exit(1);
}

// Probes each descriptor with a read handler on its own; one that select()
// refuses is detached, without telling its handler. Descriptors only in the
// write or exception tables are not probed.
void dpDispatcher::checkConnections() {
    for (int fd = 0; fd < _nfds; ++fd) {
        if (_rtable[fd] == nullptr)
            continue;
        dpFdMask probe;
        probe.setBit(fd);
        timeval poll = dpTimerQueue::_zeroTime;
        const int bound = fd + 1 < dpFdMask::kBits ? fd + 1 : dpFdMask::kBits;
        if (select(bound, probe.fdSet(), nullptr, nullptr, &poll) < 0)
            detach(fd);
    }
}
