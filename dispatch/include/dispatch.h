// The single-threaded event loop: descriptor handlers and timers, waited for
// in one kernel call per round (an epoll set on Linux, select() elsewhere).
// Handlers may link, unlink, start and stop timers and dispatch again from
// inside a call; the masks of a round live on the caller's stack for that.
#ifndef KELVANOR_DISPATCH_H
#define KELVANOR_DISPATCH_H

#include <memory>
#include <sys/time.h>
#include <vector>

#include <kelvanor/fdmask.h>
#include <kelvanor/iohandle.h>
#include <kelvanor/pollset.h>
#include <kelvanor/timerqueue.h>

typedef bool iv_boolean;

class dpDispatcher {
public:
    enum DispatcherMask { ReadMask = 0, WriteMask = 1, ExceptMask = 2 };

    // Size of the handler tables. Only descriptors below dpFdMask::kBits
    // (1024) can actually be selected; the tables accept more and such a
    // descriptor is simply never reported ready.
    static constexpr int kMaxHandlers = 2500;

    dpDispatcher();
    // Frees masks, tables and timers; closes no descriptor, deletes no
    // handler. If it was the shared instance, instance() makes a new one.
    virtual ~dpDispatcher();
    dpDispatcher(const dpDispatcher&) = delete;
    dpDispatcher& operator=(const dpDispatcher&) = delete;

    // fd outside 0..2499 aborts: a programming error, not a run-time one.
    // The kernel watches the file the number names when it is linked: a
    // number closed and opened again for another file is unlinked and
    // linked again.
    virtual void link(int fd, DispatcherMask mask, dpIOHandler* handler);
    // Same range check; an unknown mask aborts as well.
    virtual dpIOHandler* handler(int fd, DispatcherMask mask) const;
    // Removes the descriptor from all three kinds of event at once.
    virtual void unlink(int fd);
    // Gives (fd, mask) another handler and returns the one it had. The
    // descriptor must still be the same open file: the kernel is not told,
    // so a handler lent for a nested wait and given back costs nothing.
    // Without a handler there it links, as link does.
    dpIOHandler* replace(int fd, DispatcherMask mask, dpIOHandler* handler);
    // Links a descriptor again that its caller unlinked for a while and did
    // not close meanwhile; like link, but the kernel's entry may be kept.
    void relink(int fd, DispatcherMask mask, dpIOHandler* handler);

    // One-shot timer at now + (sec, usec).
    virtual void startTimer(long sec, long usec, dpIOHandler* handler);
    // Stops the handler's earliest timer only; no timer, no effect.
    virtual void stopTimer(dpIOHandler* handler);

    // Owes the handler of (fd, mask) a call in the next round. False, and
    // nothing set, if there is no such handler.
    virtual iv_boolean setReady(int fd, DispatcherMask mask);

    // Waits at most (sec, usec) and leaves the time not used in them,
    // never less than (0, 0).
    virtual iv_boolean dispatch(long& sec, long& usec);
    // One round: owed events if there are any, else a wait bounded by
    // howlong (null waits without limit) and by the earliest timer; then
    // I/O delivery, then due timers. True if any descriptor was ready.
    virtual iv_boolean dispatch(timeval* howlong);
    virtual iv_boolean anyReady() const;
    // True when a round could deliver nothing but input on fd: no events
    // owed, no timers, and no descriptor linked but fd (for reading) and
    // `idle` (-1: none), whose events may wait.
    bool onlyWaitsFor(int fd, int idle) const;
    virtual iv_boolean dispatch();

    static dpDispatcher* instance();
    // Replaces the shared instance; the previous one is not deleted.
    static void instance(dpDispatcher* d);

protected:
    // The steps of a round, replaceable by a subclass.
    virtual void attach(int fd, DispatcherMask mask, dpIOHandler* handler);
    virtual void detach(int fd);
    virtual int fillInReady(dpFdMask& r, dpFdMask& w, dpFdMask& e);
    virtual int waitFor(dpFdMask& r, dpFdMask& w, dpFdMask& e, timeval* howlong);
    virtual void notify(int nfound, dpFdMask& r, dpFdMask& w, dpFdMask& e);
    virtual timeval* calculateTimeout(timeval* howlong) const;
    virtual void handleError();
    virtual void checkConnections();

    // One more than the highest descriptor with a handler of any kind.
    int _nfds;
    // Registered interest, one bit per linked descriptor and kind.
    std::unique_ptr<dpFdMask> _rmask, _wmask, _emask;
    // Events owed to handlers (a positive result or setReady); emptied by
    // fillInReady before delivery, so a nested round never sees them twice.
    std::unique_ptr<dpFdMask> _rmaskready, _wmaskready, _emaskready;
    // Handlers by descriptor, kMaxHandlers entries each; null when none.
    std::unique_ptr<dpIOHandler*[]> _rtable, _wtable, _etable;
    std::unique_ptr<dpTimerQueue> _queue;

    static dpDispatcher* _instance;

private:
    // Rounds begun so far, nested ones included, and whether the round now
    // being delivered came from select(): notify compares the count before
    // and after each handler to learn that a handler ran rounds of its own.
    unsigned long _rounds = 0;
    bool _selected = false;
    // After a nested round, what select() said of the descriptors after
    // `from` may be stale: a nested round may have read them dry. Asks the
    // kernel again without waiting; returns how many events are left.
    int stillReady(int from, dpFdMask& r, dpFdMask& w, dpFdMask& e) const;
    // The wait itself when no epoll set can be had.
    int selectFor(dpFdMask& r, dpFdMask& w, dpFdMask& e, timeval* howlong);

    // The kernel's copy of the masks, and the descriptors it found closed.
    std::unique_ptr<dpPollSet> _pollset;
    std::vector<int> _closed;
    // Set by relink for its attach: the descriptor is the file it was.
    bool _sameFile = false;

    // Calls one handler operation and applies its result.
    void deliver(int fd, DispatcherMask mask, int (dpIOHandler::*event)(int));
    dpIOHandler** table(DispatcherMask mask) const;
    dpFdMask* readyMask(DispatcherMask mask) const;
};

#endif
