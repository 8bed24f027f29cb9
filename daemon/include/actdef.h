// One registered implementation as the daemon holds it: a private copy of
// its creation definition and what is known of its server processes. The
// activation engine (starting servers, following their exits) builds on the
// members below; the repository needs only the definition and the pending
// status.
#ifndef KELVANOR_ACTDEF_H
#define KELVANOR_ACTDEF_H

#include <kelvanor/iohandle.h>
#include <kelvanor/Activation.h>

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

    // The zero-length wake-up timer has fired.
    void timerExpired(long sec, long usec) override;

    // A new reference to a living server of this implementation, starting
    // one if need be, with up to `retries` attempts. timeout is in seconds
    // per attempt, -1 for none. Throws Activation::Busy while a start of
    // this entry is under way, Activation::NotResponding when every attempt
    // failed or the time ran out.
    CORBA_Object* getObjectRef(long timeout, long retries);
    // One attempt: starts the program and serves other requests in a nested
    // dispatcher loop until the child reports, dies or the time runs out;
    // a dead child leads to the next attempt.
    CORBA_Object* _getNewObjectRef(long timeout, long retries);
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
    // A nested loop is waiting for a start of this entry.
    bool waiting() const { return _waiting; }
    // The entry has left the table while a start may be waiting on it: the
    // waiting lookup ends with Activation::NotRegistered. The owner must
    // keep the record alive until then.
    void withdraw();

private:
    static void freeStatus(Activation::ObjectStatus* status);

    CORBA_CreationImplDef* _impl;              // owned; may be null
    Activation::ObjectStatus** _status_list;   // null until first use
    unsigned long _status_count;               // used entries of _status_list
    unsigned long _status_capacity;            // allocated entries
    Activation::ObjectStatus* _pending;        // owned; null when idle
    bool _waiting;                             // a nested loop waits on this entry
    bool _wakeup_armed;                        // the wake-up timer is running
    bool _registered;                          // announced to the directory agent
    bool _withdrawn;                           // unregistered; no longer in the table
    // The last process _spawn started for this entry, until its exit is
    // reaped (deactivate); 0 when none. A shared server of this pid is
    // known alive without asking it.
    unsigned long _spawned = 0;
};

// A one-shot time limit of one start, living on the stack of the attempt.
class VEXTimer : public dpIOHandler {
public:
    VEXTimer() = default;
    ~VEXTimer() override;
    VEXTimer(const VEXTimer&) = delete;
    VEXTimer& operator=(const VEXTimer&) = delete;

    // Arms the timer on the dispatcher.
    void start(long sec);
    bool expired() const { return _expired; }
    void timerExpired(long sec, long usec) override;

private:
    bool _expired = false;
    bool _armed = false;
};

// Writes the definition in its stream form. A null definition throws
// CORBA_BAD_PARAM (minor 0, completed NO) before anything is written.
TBostream& operator<<(TBostream& strm, const VEXActivationInfo& info);
// A new record holding the definition read; p is set only on success.
TBistream& operator>>(TBistream& strm, VEXActivationInfo*& p);

#endif
