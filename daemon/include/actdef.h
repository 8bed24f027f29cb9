// One registered implementation as the daemon holds it: a private copy of
// its creation definition and what is known of its server processes. The
// activation engine (starting servers, following their exits) builds on the
// members below; the repository needs only the definition and the pending
// status.
#ifndef KELVANOR_ACTDEF_H
#define KELVANOR_ACTDEF_H

#include "iohandle.h"
#include "Activation.h"

class CORBA_CreationImplDef;
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
    // Appends, adopting status.
    void _addToList(Activation::ObjectStatus* status);
    // Frees the first status of process pid and closes the gap; none: nothing.
    void _removeFromList(unsigned long pid);

    // The zero-length wake-up timer has fired.
    void timerExpired(long sec, long usec) override;

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
};

// Writes the definition in its stream form. A null definition throws
// CORBA_BAD_PARAM (minor 0, completed NO) before anything is written.
TBostream& operator<<(TBostream& strm, const VEXActivationInfo& info);
// A new record holding the definition read; p is set only on success.
TBistream& operator>>(TBistream& strm, VEXActivationInfo*& p);

#endif
