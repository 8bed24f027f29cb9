// Guards for the child-exit signal. The handler frees statuses and walks the
// table of registrations; the daemon's operations hold the signal back while
// they change or read those, and let it through around dispatcher rounds.
#ifndef KELVANOR_VEXSIG_H
#define KELVANOR_VEXSIG_H

#include <signal.h>

// SIGCHLD is held back for the guard's lifetime; a pending exit is handled
// when the previous mask comes back.
class VEXChildExitBlock {
public:
    VEXChildExitBlock() { change(SIG_BLOCK); }
    ~VEXChildExitBlock() { sigprocmask(SIG_SETMASK, &_old, nullptr); }
    VEXChildExitBlock(const VEXChildExitBlock&) = delete;
    VEXChildExitBlock& operator=(const VEXChildExitBlock&) = delete;

protected:
    explicit VEXChildExitBlock(int how) { change(how); }

private:
    void change(int how) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGCHLD);
        // Cannot fail with a valid how and set.
        sigprocmask(how, &set, &_old);
    }
    sigset_t _old;
};

// SIGCHLD goes through for the guard's lifetime: around a round of the
// nested dispatcher loop, where the exit of a starting child must be seen.
class VEXChildExitAllow : public VEXChildExitBlock {
public:
    VEXChildExitAllow() : VEXChildExitBlock(SIG_UNBLOCK) {}
};

#endif
