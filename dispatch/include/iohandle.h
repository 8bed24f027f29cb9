// The receiver of the dispatcher's events: descriptor readiness and timers.
#ifndef KELVANOR_IOHANDLE_H
#define KELVANOR_IOHANDLE_H

// The three int results are a contract with the dispatcher:
//   negative  unlink this descriptor (read, write and exception at once);
//   positive  call me again for the same event at once, without select;
//   zero      nothing further.
// The defaults return -1, so a handler linked for an event it does not
// handle is unlinked at the first such event. The dispatcher never owns or
// deletes a handler.
class dpIOHandler {
public:
    virtual ~dpIOHandler();
    virtual int inputReady(int fd);
    virtual int outputReady(int fd);
    virtual int exceptionRaised(int fd);
    // Called once per expired one-shot timer, with the time of the round
    // that found it expired. The timer is already gone during the call.
    virtual void timerExpired(long sec, long usec);
};

#endif
