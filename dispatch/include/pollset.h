// The kernel's copy of the dispatcher's interest: an epoll set brought in
// step with the dispatcher's masks just before each wait.
//
// select() costs a scan of every descriptor and a fresh wait-queue entry on
// each one at every round; an epoll set keeps its entries between rounds,
// which on a loopback call is about half a microsecond on each side. The
// masks stay the dispatcher's own truth: the set only mirrors them, and a
// descriptor whose interest went out and came back between two waits (a
// handler swapped for a nested wait) costs no system call at all.
#ifndef KELVANOR_POLLSET_H
#define KELVANOR_POLLSET_H

#include <cstdint>
#include <memory>
#include <sys/time.h>
#include <vector>

#include <kelvanor/fdmask.h>

class dpPollSet {
public:
    dpPollSet();
    ~dpPollSet();
    dpPollSet(const dpPollSet&) = delete;
    dpPollSet& operator=(const dpPollSet&) = delete;

    // The interest in fd may have changed. `fresh`: a handler was linked
    // where there was none, so the number may now name another file than
    // the one the kernel knows, and the entry is given again.
    void touch(int fd, bool fresh);

    // Waits at most howlong (null: no limit) for the events wanted in the
    // three masks and leaves the ready ones in r, w and e, counted as
    // select() counts them. Descriptors found closed while their entry was
    // given go to `closed` (the caller detaches them). -1 with errno set on
    // failure; kNoSet when no epoll set can be made (no descriptor left) or
    // a linked file cannot be in one (a regular file), and the caller waits
    // some other way.
    // kNoTimer: the timer descriptor failed; wait again with the timer in
    // the limit.
    static constexpr int kNoSet = -2, kNoTimer = -3;
    //
    // timerAt, when given, is the earliest timer (gettimeofday time). It is
    // kept on a timer descriptor in the set rather than as the wait's limit:
    // a wait with a limit costs the kernel a timer of its own each time,
    // while the descriptor is set again only when a timer earlier than the
    // one it holds comes. It may therefore wake the wait before any timer is
    // due; `timerWoke` tells that it woke it.
    int wait(const dpFdMask& want_r, const dpFdMask& want_w, const dpFdMask& want_e, dpFdMask& r,
             dpFdMask& w, dpFdMask& e, const timeval* howlong, const timeval* timerAt,
             bool& timerWoke, std::vector<int>& closed);

private:
    void open();
    void apply(const dpFdMask& want_r, const dpFdMask& want_w, const dpFdMask& want_e,
               std::vector<int>& closed);

    bool setTimer(const timeval* timerAt);

    int _epfd = -1;
    // The timer descriptor and the time it is set for (none: not set).
    int _timerfd = -1;
    bool _timerSet = false;
    timeval _timerFor{};
    // The fork count when _epfd was made: a child must not share its
    // parent's set, so it makes its own at its first wait.
    unsigned _madeAt = 0;
    // Events given to the kernel by descriptor (1 read, 2 write, 4 except),
    // the number stamped on each entry when it was given, and the
    // descriptors touched since the last wait (2 marks a fresh link).
    std::unique_ptr<std::uint8_t[]> _given, _touched;
    std::unique_ptr<std::uint32_t[]> _stamp;
    std::vector<int> _dirty;
    int _refused = 0;  // linked descriptors the kernel would not take
};

#endif
