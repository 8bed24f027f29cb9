// The dispatcher's epoll set, kept in step with its masks. Elsewhere than
// on Linux there is no set, and the dispatcher waits in select().
#include "pollset.h"

#if defined(__linux__)
#include <atomic>
#include <cerrno>
#include <mutex>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {
constexpr int kBits = dpFdMask::kBits;
constexpr std::uint8_t kRead = 1, kWrite = 2, kExcept = 4;
constexpr std::uint8_t kTouched = 1, kFresh = 2;
// In _given: the kernel refused the file (a regular file, which select()
// reports always ready); while one is linked the dispatcher uses select().
constexpr std::uint8_t kRefused = 8;
// The timer descriptor's entry: no descriptor number has all these bits.
constexpr std::uint64_t kTimerEntry = ~std::uint64_t(0);

// Forks seen by this process; a set made before the last one belongs to the
// parent as well.
std::atomic<unsigned> forks{0};
std::once_flag forkHook;

std::uint8_t wanted(const dpFdMask& r, const dpFdMask& w, const dpFdMask& e, int fd) {
    return static_cast<std::uint8_t>((r.isSet(fd) ? kRead : 0) | (w.isSet(fd) ? kWrite : 0) |
                                     (e.isSet(fd) ? kExcept : 0));
}

std::uint32_t kernelEvents(std::uint8_t want) {
    return ((want & kRead) ? EPOLLIN : 0u) | ((want & kWrite) ? EPOLLOUT : 0u) |
           ((want & kExcept) ? EPOLLPRI : 0u);
}
}  // namespace

dpPollSet::dpPollSet()
    : _given(new std::uint8_t[kBits]()),
      _touched(new std::uint8_t[kBits]()),
      _stamp(new std::uint32_t[kBits]()) {
    std::call_once(forkHook, [] { pthread_atfork(nullptr, nullptr, [] { ++forks; }); });
}

dpPollSet::~dpPollSet() {
    if (_epfd >= 0) ::close(_epfd);
    if (_timerfd >= 0) ::close(_timerfd);
}

void dpPollSet::touch(int fd, bool fresh) {
    if (fd < 0 || fd >= kBits) return;
    if (_touched[fd] == 0) _dirty.push_back(fd);
    _touched[fd] |= static_cast<std::uint8_t>(kTouched | (fresh ? kFresh : 0));
}

// A new set: every descriptor with interest is given again. Also the way out
// of an entry that cannot be taken back (see wait).
void dpPollSet::open() {
    if (_epfd >= 0) ::close(_epfd);
    // After a fork the timer descriptor is the parent's timer too.
    if (_timerfd >= 0) ::close(_timerfd);
    _timerfd = -1;
    _timerSet = false;
    _refused = 0;
    _epfd = epoll_create1(EPOLL_CLOEXEC);
    _madeAt = forks.load();
    for (int fd = 0; fd < kBits; ++fd) {
        _given[fd] = 0;
        touch(fd, true);
    }
}

void dpPollSet::apply(const dpFdMask& want_r, const dpFdMask& want_w, const dpFdMask& want_e,
                      std::vector<int>& closed) {
    for (int fd : _dirty) {
        const bool fresh = (_touched[fd] & kFresh) != 0;
        _touched[fd] = 0;
        const std::uint8_t want = wanted(want_r, want_w, want_e, fd);
        if (want == _given[fd] && !(fresh && want)) continue;
        if (_given[fd] & kRefused) {
            --_refused;
            _given[fd] = 0;
            if (want == 0) continue;
        }
        if (want == 0) {
            // Fails when the descriptor was closed first, which took the
            // entry with it unless another descriptor shares the file; such
            // a leftover shows itself in wait.
            (void)epoll_ctl(_epfd, EPOLL_CTL_DEL, fd, nullptr);
            _given[fd] = 0;
            continue;
        }
        epoll_event ev{};
        ev.events = kernelEvents(want);
        ev.data.u64 = static_cast<std::uint32_t>(fd) | (std::uint64_t(++_stamp[fd]) << 32);
        int op = _given[fd] ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
        int rc = epoll_ctl(_epfd, op, fd, &ev);
        if (rc < 0 && (errno == ENOENT || errno == EEXIST)) {
            op = errno == ENOENT ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
            rc = epoll_ctl(_epfd, op, fd, &ev);
        }
        if (rc < 0 && errno == EPERM) {
            _given[fd] = static_cast<std::uint8_t>(want | kRefused);
            ++_refused;
            continue;
        }
        if (rc < 0) {
            // A closed descriptor (EBADF): select() would refuse it as well.
            _given[fd] = 0;
            closed.push_back(fd);
            continue;
        }
        _given[fd] = want;
    }
    _dirty.clear();
}

// False when the timer cannot be kept on the descriptor: the caller then
// puts it in the wait's limit.
bool dpPollSet::setTimer(const timeval* timerAt) {
    if (timerAt == nullptr) {
        if (_timerSet) {
            itimerspec off{};
            (void)timerfd_settime(_timerfd, 0, &off, nullptr);
            _timerSet = false;
        }
        return true;
    }
    if (_timerfd < 0) {
        _timerfd = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
        if (_timerfd < 0) return false;
        epoll_event ev{};
        ev.events = EPOLLIN;
        ev.data.u64 = kTimerEntry;
        if (epoll_ctl(_epfd, EPOLL_CTL_ADD, _timerfd, &ev) < 0) {
            ::close(_timerfd);
            _timerfd = -1;
            return false;
        }
    }
    const bool earlier = timerAt->tv_sec < _timerFor.tv_sec ||
                         (timerAt->tv_sec == _timerFor.tv_sec && timerAt->tv_usec < _timerFor.tv_usec);
    if (_timerSet && !earlier) return true;
    itimerspec at{};
    at.it_value = {timerAt->tv_sec, static_cast<long>(timerAt->tv_usec) * 1000};
    // A time already past (or zero) must still fire: 1 ns is long ago.
    if (at.it_value.tv_sec <= 0 && at.it_value.tv_nsec == 0) at.it_value.tv_nsec = 1;
    if (timerfd_settime(_timerfd, TFD_TIMER_ABSTIME, &at, nullptr) < 0) return false;
    _timerSet = true;
    _timerFor = *timerAt;
    return true;
}

int dpPollSet::wait(const dpFdMask& want_r, const dpFdMask& want_w, const dpFdMask& want_e,
                    dpFdMask& r, dpFdMask& w, dpFdMask& e, const timeval* howlong,
                    const timeval* timerAt, bool& timerWoke, std::vector<int>& closed) {
    timerWoke = false;
    if (_epfd < 0 || _madeAt != forks.load()) open();
    if (_epfd < 0) return kNoSet;
    apply(want_r, want_w, want_e, closed);
    r.zero(), w.zero(), e.zero();
    // Nothing is waited for: the caller detaches them and comes again.
    if (!closed.empty()) return 0;
    if (_refused > 0) return kNoSet;
    if (!setTimer(timerAt)) return kNoTimer;
    timespec limit{};
    if (howlong) limit = {howlong->tv_sec, static_cast<long>(howlong->tv_usec) * 1000};
    epoll_event events[64];
    int n = epoll_pwait2(_epfd, events, 64, howlong ? &limit : nullptr, nullptr);
    if (n < 0 && errno == ENOSYS) {
        // Kernels before 5.11: milliseconds, rounded up so that a timer is
        // never found not yet due when the wait ends.
        int ms = -1;
        if (howlong) ms = static_cast<int>(howlong->tv_sec * 1000 + (howlong->tv_usec + 999) / 1000);
        n = epoll_wait(_epfd, events, 64, ms);
    }
    if (n < 0) return -1;
    int found = 0;
    bool stale = false;
    for (int i = 0; i < n; ++i) {
        if (events[i].data.u64 == kTimerEntry) {
            std::uint64_t ticks;
            (void)::read(_timerfd, &ticks, sizeof ticks);
            _timerSet = false;
            timerWoke = true;
            continue;
        }
        const int fd = static_cast<int>(events[i].data.u64 & 0xffffffffu);
        const std::uint32_t stamp = static_cast<std::uint32_t>(events[i].data.u64 >> 32);
        if (fd >= kBits || _given[fd] == 0 || _stamp[fd] != stamp) {
            // An entry for a file that was closed under this number while
            // another descriptor (a child's, a dup) kept it open: it cannot
            // be deleted by number any more, so the set is made anew.
            stale = true;
            continue;
        }
        const std::uint32_t x = events[i].events;
        if ((x & (EPOLLIN | EPOLLHUP | EPOLLERR)) && want_r.isSet(fd)) r.setBit(fd), ++found;
        if ((x & (EPOLLOUT | EPOLLHUP | EPOLLERR)) && want_w.isSet(fd)) w.setBit(fd), ++found;
        if ((x & EPOLLPRI) && want_e.isSet(fd)) e.setBit(fd), ++found;
    }
    if (stale) {
        open();
        // Only the leftover woke the wait: wait again on the new set.
        if (found == 0 && !timerWoke)
            return wait(want_r, want_w, want_e, r, w, e, howlong, timerAt, timerWoke, closed);
    }
    return found;
}

#else

dpPollSet::dpPollSet() = default;
dpPollSet::~dpPollSet() = default;
void dpPollSet::touch(int, bool) {}
int dpPollSet::wait(const dpFdMask&, const dpFdMask&, const dpFdMask&, dpFdMask&, dpFdMask&,
                    dpFdMask&, const timeval*, const timeval*, bool& timerWoke, std::vector<int>&) {
    timerWoke = false;
    return kNoSet;
}

#endif
