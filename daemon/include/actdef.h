// One registered implementation as the daemon holds it: a private copy of
// its creation definition and what is known of its server processes. The
// activation engine (starting servers, following their exits) builds on the
// members below; the repository needs only the definition and the pending
// status.
#ifndef KELVANOR_ACTDEF_H
#define KELVANOR_ACTDEF_H

#include <memory>
#include <vector>

#include <kelvanor/iohandle.h>
#include <kelvanor/Activation.h>
#include <kelvanor/zebdefer.h>

class CORBA_CreationImplDef;
class CORBA_Object;
class TBistream;
class TBostream;

class VEXActivationInfo : public dpIOHandler {
public:
    // Adopts impl, which may be null. No processes, no pending status.
    explicit VEXActivationInfo(CORBA_CreationImplDef* impl = nullptr);
    // Stops the wake-up timer if it runs, leaves the directory agent, and
    // frees the statuses and the definition. Processes are not stopped.
    ~VEXActivationInfo() override;
    VEXActivationInfo(const VEXActivationInfo&) = delete;
    VEXActivationInfo& operator=(const VEXActivationInfo&) = delete;

    CORBA_CreationImplDef* impl() const { return _impl; }
    // Replaces the definition; the old one is freed.
    void impl(CORBA_CreationImplDef* p);

    // The shared server, or the process being started; null when idle.
    Activation::ObjectStatus* pending() const { return _pending; }
    // Adopts status as the pending one; the previous one is freed.
    void pending(Activation::ObjectStatus* status);
    // True if a server of this entry has reported and stands as pending.
    bool isActive() const {
        return _pending && _pending->activation_state == Activation::ACTIVE;
    }

    // Announce this pair to the directory agent as one that the daemon can
    // start, and withdraw it again. The destructor withdraws only what was
    // announced, so a record refused as a duplicate leaves the entry of the
    // one that stays alone.
    void _registerWithAgent();
    void _unregisterFromAgent();

    // Processes of an unshared implementation, in order of activation.
    unsigned long statusCount() const { return _status_count; }
    Activation::ObjectStatus* statusAt(unsigned long i) const {
        return i < _status_count ? _status_list[i] : nullptr;
    }
    // pid is a process the daemon started for this entry and that has not
    // been seen to end: the one being started or running, or an unshared one.
    bool startedPid(unsigned long pid) const;
    // Appends, adopting status.
    void _addToList(Activation::ObjectStatus* status);
    // Frees the first status of process pid and closes the gap; none: nothing.
    void _removeFromList(unsigned long pid);

    // The zero-length wake-up timer has fired: service runs.
    void timerExpired(long sec, long usec) override;

    // A lookup of this entry: a new reference to a living server, or, when
    // one must be started (with up to `attempts` attempts), the request is
    // taken (ZEBDeferredReply) and ZEBReplyDeferred thrown; it is answered
    // when the server reports, or with Activation::NotResponding when the
    // attempts fail or `timeout` seconds (-1: the daemon's -t, or none)
    // have passed. Throws Activation::Busy while a start of this entry is
    // under way, NotResponding at once when attempts is 0 or less or the
    // program may not be run.
    CORBA_Object* lookup(long timeout, long attempts);
    // A request for the pair's persistent key: forwarded to a living server
    // once there is one; it joins a start under way. A start that fails
    // gives CORBA_TRANSIENT. reply is moved from once parked or answered;
    // Activation::NotRegistered (unregistered during a ping) leaves it.
    void forwardRequest(std::unique_ptr<ZEBDeferredReply>& reply);
    // What the wake-up timer and the deadline alarm run, in the main loop:
    // answers every waiter that can be answered, retries a start whose child
    // died while somebody still waits, ends a child that has not reported
    // within -k, and arms the alarm for the next deadline.
    void service();
    // -k: seconds a started child may take to report before it is ended
    // (SIGTERM, then SIGKILL 5 s later); 0 for never.
    static void startLimit(long seconds) { _start_limit = seconds; }
    // Seconds a ping of a running server may take when the lookup has no
    // limit of its own.
    static constexpr long kPingSeconds = 2;
    // Forks and executes the program with its arguments, its environment
    // (the daemon's if it has none) and a last argument
    // "<interface>,<object>". Returns the child's process id.
    unsigned long _spawn();
    // Process pid has ended: its status goes, and a waiting start notices.
    // Called from the child-exit signal handler, so it only frees statuses
    // and arms the wake-up timer.
    void deactivate(unsigned long pid);
    // A report for this entry from process pid: it becomes the pending,
    // running server. obj is duplicated.
    void activated(CORBA_Object* obj, unsigned long pid);
    // A deep copy, owned by the caller: the definition and the statuses of
    // the processes, the unshared ones first and the pending one last.
    Activation::ImplementationStatus* status() const;
    // Somebody waits on this entry: requests for its server, or a ping.
    bool waiting() const { return _waiting; }
    // The entry has left the table: every waiting lookup ends with
    // Activation::NotRegistered, every waiting request with
    // CORBA_OBJECT_NOT_EXIST. The owner must keep the record alive while a
    // ping is under way.
    void withdraw();

private:
    static void freeStatus(Activation::ObjectStatus* status);

    // A request waiting for this entry's server.
    struct Waiter {
        std::unique_ptr<ZEBDeferredReply> reply;
        long deadline;  // monotonic milliseconds; 0 for none
        bool lookup;    // a lookup operation; else a request for the key
    };
    // The deadline alarm, a handler of its own beside the wake-up timer.
    class Alarm : public dpIOHandler {
    public:
        explicit Alarm(VEXActivationInfo* owner) : _owner(owner) {}
        ~Alarm() override;
        void arm(long at);  // monotonic ms; 0 stops it
        void timerExpired(long sec, long usec) override;

    private:
        VEXActivationInfo* _owner;
        long _at = 0;
    };

    // Forks the next attempt; the status shows it as waiting.
    void startAttempt();
    // A running shared server that we did not start, asked within the
    // bound; false if it is gone or did not answer in time.
    bool pingRunning(long timeout);
    void park(std::unique_ptr<ZEBDeferredReply> reply, long deadline, bool lookup);
    // Answers every waiter with ref, the running server.
    void answerAll(CORBA_Object* ref);
    // Answers every waiter with failure: NotResponding and TRANSIENT, or,
    // withdrawn, NotRegistered and OBJECT_NOT_EXIST.
    void failAll(bool withdrawn);
    static void fail(Waiter& w, bool withdrawn);
    void updateWaiting() { _waiting = _pinging || !_waiters.empty(); }
    void armAlarm();
    // -k applies: the child being started is watched for its report.
    bool overdueWatched() const;
    // The wake-up timer, so that service runs in the next round.
    void wake();

    CORBA_CreationImplDef* _impl;              // owned; may be null
    Activation::ObjectStatus** _status_list;   // null until first use
    unsigned long _status_count;               // used entries of _status_list
    unsigned long _status_capacity;            // allocated entries
    Activation::ObjectStatus* _pending;        // owned; null when idle
    bool _waiting;                             // requests wait on this entry, or a ping
    bool _wakeup_armed;                        // the wake-up timer is running
    bool _registered;                          // announced to the directory agent
    bool _withdrawn;                           // unregistered; no longer in the table
    // The last process _spawn started for this entry, until its exit is
    // reaped (deactivate); 0 when none. A shared server of this pid is
    // known alive without asking it.
    unsigned long _spawned = 0;
    std::vector<Waiter> _waiters;  // in the order they came
    long _attempts = 0;            // attempts left to the start, the current one included
    long _spawned_at = 0;          // monotonic ms of the last spawn
    bool _term_sent = false;       // -k: SIGTERM went to _spawned
    bool _pinging = false;         // a ping of the running server is under way
    Alarm _alarm{this};
    static long _start_limit;      // -k seconds; 0 for never
};

// Writes the definition in its stream form. A null definition throws
// CORBA_BAD_PARAM (minor 0, completed NO) before anything is written.
TBostream& operator<<(TBostream& strm, const VEXActivationInfo& info);
// A new record holding the definition read; p is set only on success.
TBistream& operator>>(TBistream& strm, VEXActivationInfo*& p);

#endif
