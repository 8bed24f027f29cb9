// DSVerify: the are-you-alive exchange between two processes. One side binds
// a UDP port and answers every request; the other sends requests with
// retransmission and learns through isAlive or isDown whether the peer
// lives. Everything runs on the shared dispatcher: verify returns at once.
#ifndef KELVANOR_DSVERIFY_H
#define KELVANOR_DSVERIFY_H

#include <kelvanor/iohandle.h>
#include <kelvanor/tbrtt.h>

class DSAddr;
class DSVerify;
class TBudpstream;

// Passes the dispatcher's events on to its DSVerify.
class DSVerifyHandler : public dpIOHandler {
public:
    explicit DSVerifyHandler(DSVerify* owner) : _owner(owner) {}
    int inputReady(int fd) override;
    void timerExpired(long sec, long usec) override;

    TBrtt rtt;

private:
    DSVerify* _owner;
};

class DSVerify {
public:
    enum { OK = 0, BUSY = 100, CONNECT_FAILED = 101, SEND_FAILED = 102, BIND_FAILED = 103 };
    enum State { IDLE = 0, BOUND = 1, VERIFYING = 2 };

    DSVerify();
    virtual ~DSVerify();
    // Hooks of the asking side; they do nothing here. isAlive: the peer
    // answered. isDown: it refused, or five sends went unanswered.
    // notResponding has no caller.
    virtual void isAlive();
    virtual void notResponding();
    virtual void isDown();

    // Answer requests on port (for good). BUSY unless idle, BIND_FAILED.
    int bind(int port, const char* host);
    // Ask peer; the answer comes through the hooks. BUSY, BIND_FAILED,
    // CONNECT_FAILED, or SEND_FAILED (isDown was called already).
    int verify(const DSAddr& peer);
    int port() const;
    // Bound: this machine and the port, the caller's. Otherwise null.
    DSAddr* addr() const;
    int state() const { return _state; }
    void verifyVerbose(int on) { _verbose = on; }

    int receiveMsg(int fd);
    void timeoutOccured();

    DSVerify(const DSVerify&) = delete;
    DSVerify& operator=(const DSVerify&) = delete;

private:
    int sendProbe();
    void dropStream();

    DSVerifyHandler* _handler;  // owned
    TBudpstream* _stream;       // owned; made by bind or verify
    int _state;
    int _verbose;
};

#endif
