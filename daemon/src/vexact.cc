// The activation engine: starting server processes on demand, parking the
// requests that wait for them and answering those from the main loop when
// the server reports, the start fails or a limit runs out, following the
// servers' exits, and the status queries of administration tools.
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "actdef.h"
#include "dispatch.h"
#include "except.h"
#include "impldef.h"
#include "vex_functions.h"
#include "vexsig.h"
#include "vexsrv.h"
#include "vextrust.h"
#include "zebstub.h"

namespace {

Activation::ObjectStatus* newStatus(Activation::State state) {
    Activation::ObjectStatus* s = new Activation::ObjectStatus;
    s->process_id = 0;
    s->activation_state = state;
    return s;
}

bool isShared(const CORBA_CreationImplDef* impl) {
    return impl && impl->activation_policy == CORBA_CreationImplDef::SHARED_SERVER;
}

// Attempts per lookup: the first start and the retries after children that
// died before they reported.
const long kAttempts = 5;

long monotonicMs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

VEXActivationInfo* recordOf(DSResource* assoc) {
    DSWrapper* w = TB_CAST(DSWrapper, TB_CAST(DSAssoc, assoc)->value);
    return w ? static_cast<VEXActivationInfo*>(w->value) : nullptr;
}

}  // namespace

// ------------------------------------------------------ activation record

long VEXActivationInfo::_start_limit = 0;

VEXActivationInfo::Alarm::~Alarm() {
    if (_at) dpDispatcher::instance()->stopTimer(this);
}

void VEXActivationInfo::Alarm::arm(long at) {
    if (at == _at) return;
    dpDispatcher* d = dpDispatcher::instance();
    if (_at) d->stopTimer(this);
    _at = at;
    if (!at) return;
    const long wait = std::max(0L, at - monotonicMs());
    d->startTimer(wait / 1000, (wait % 1000) * 1000, this);
}

void VEXActivationInfo::Alarm::timerExpired(long, long) {
    _at = 0;
    _owner->service();
}

CORBA_Object* VEXActivationInfo::lookup(long timeout, long attempts) {
    if (attempts <= 0) throw Activation::NotResponding();
    // One start per entry at a time; other lookups are told, not queued.
    // A child whose start outlived its lookup's limit still counts.
    if (_pending && _pending->activation_state == Activation::WAITING_FOR_ACTIVATION)
        throw Activation::Busy();
    const long now = monotonicMs();
    if (timeout < 0 && default_timeout >= 0) timeout = default_timeout;
    const long deadline = timeout >= 0 ? now + 1000 * timeout : 0;
    if (isShared(_impl) && _pending) {
        // Departs from the older rule of pinging every running server before
        // handing it out: one this daemon started, whose exit has not been
        // reaped, is alive as far as anyone can tell without asking, and the
        // ping doubled the cost of a warm lookup. A server it did not start
        // (adopted, or on another host) is still asked, within the lookup's
        // limit.
        const bool ours = _spawned != 0 && _pending->process_id == _spawned;
        const Activation::ObjectStatus* running = _pending;
        const bool alive = _pending->objRef.in() && (ours || pingRunning(timeout));
        // Requests served during the ping may have changed the entry.
        if (_pending != running) return lookup(timeout, attempts);
        if (alive) return CORBA_Object::_duplicate(_pending->objRef.in());
        // A server that vanished without an exit reaching us (started by
        // hand, or already reaped): forget it and start a new one.
        pending(nullptr);
        --attempts;
        if (attempts <= 0) throw Activation::NotResponding();
        if (timeout >= 0 && monotonicMs() >= deadline) throw Activation::NotResponding();
    }
    // A registration stored before the program directories were narrowed
    // stays in the table and the file, but its program is never run.
    const char* path = _impl && _impl->path.in() ? _impl->path.in() : "";
    if (!VEXTrust::inProgramDirs(path)) {
        if (vex && vex->verbose())
            std::cout << "VEX:: Not starting " << path << ": it is outside the program directories "
                      << VEXTrust::programDirs() << std::endl;
        throw Activation::NotResponding();
    }
    // The reply waits for the server; a call without a request to take (a
    // oneway one) still starts it.
    _attempts = attempts;
    startAttempt();
    park(ZEBDeferredReply::take(), deadline, true);
    throw ZEBReplyDeferred();
}

void VEXActivationInfo::forwardRequest(std::unique_ptr<ZEBDeferredReply>& reply) {
    const long deadline = default_timeout >= 0 ? monotonicMs() + 1000 * default_timeout : 0;
    if (_pending && _pending->activation_state == Activation::WAITING_FOR_ACTIVATION) {
        // Joins the start under way; a child kept after its lookup gave up
        // gets the attempts of a new start.
        if (_waiters.empty()) _attempts = kAttempts;
        park(std::move(reply), deadline, false);
        return;
    }
    long attempts = kAttempts;
    if (_pending && isShared(_impl)) {
        const bool ours = _spawned != 0 && _pending->process_id == _spawned;
        const Activation::ObjectStatus* running = _pending;
        const bool alive = _pending->objRef.in() && (ours || pingRunning(-1));
        if (_pending != running) return forwardRequest(reply);
        if (alive) {
            CORBA_Object_var ref(CORBA_Object::_duplicate(_pending->objRef.in()));
            reply->forward(ref.in());
            return;
        }
        pending(nullptr);
        --attempts;
    }
    const char* path = _impl && _impl->path.in() ? _impl->path.in() : "";
    if (!VEXTrust::inProgramDirs(path)) {
        reply->raise(CORBA_TRANSIENT(0, CORBA::COMPLETED_NO));
        return;
    }
    _attempts = attempts;
    startAttempt();
    park(std::move(reply), deadline, false);
}

bool VEXActivationInfo::pingRunning(long timeout) {
    // The ping waits in a nested round of the dispatcher; it is bounded, so
    // that a stopped server cannot hold the lookup past its limit.
    CORBA_BindOptions options;
    const unsigned long bound = static_cast<unsigned long>(
        timeout < 0 ? kPingSeconds : std::max(1L, std::min(timeout, kPingSeconds)));
    // The locate before the call waits for send and receive together; a
    // ping of a few bytes never waits to be sent, so only the wait for the
    // answer is bounded.
    options.connect_wait = options.receive_wait = static_cast<CORBA::ULong>(bound);
    options.send_wait = 0;
    options.locate_tries = 1;
    options.allow_rebind = 0;
    CORBA_Object_var ref(CORBA_Object::_duplicate(_pending->objRef.in()));
    if (ZEBStubInfo* stub = ref->_stub()) stub->bindOptions(options);
    struct Pinging {
        VEXActivationInfo& info;
        explicit Pinging(VEXActivationInfo& i) : info(i) {
            info._pinging = true;
            info.updateWaiting();
        }
        ~Pinging() {
            info._pinging = false;
            info.updateWaiting();
        }
    } pinging(*this);
    bool alive = false;
    try {
        alive = !ref->_non_existent();
    } catch (const CORBA_SystemException&) {
        alive = false;
    }
    // Unregistered by a request served during the ping.
    if (_withdrawn) throw Activation::NotRegistered();
    return alive;
}

void VEXActivationInfo::startAttempt() {
    pending(newStatus(Activation::WAITING_FOR_ACTIVATION));
    _spawned = _spawn();
    _spawned_at = monotonicMs();
    _term_sent = false;
    _pending->process_id = static_cast<CORBA::ULong>(_spawned);
}

void VEXActivationInfo::park(std::unique_ptr<ZEBDeferredReply> reply, long deadline, bool lookup) {
    _waiters.push_back(Waiter{std::move(reply), deadline, lookup});
    updateWaiting();
    armAlarm();
}

void VEXActivationInfo::answerAll(CORBA_Object* ref) {
    std::vector<Waiter> waiters;
    waiters.swap(_waiters);
    updateWaiting();
    for (Waiter& w : waiters) {
        if (!w.reply) continue;
        if (w.lookup) w.reply->reply([&](TBostream& out) { out << ref; });
        else w.reply->forward(ref);
    }
}

void VEXActivationInfo::fail(Waiter& w, bool withdrawn) {
    if (!w.reply) return;
    if (w.lookup && withdrawn) w.reply->raise(Activation::NotRegistered());
    else if (w.lookup) w.reply->raise(Activation::NotResponding());
    else if (withdrawn) w.reply->raise(CORBA_OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO));
    else w.reply->raise(CORBA_TRANSIENT(0, CORBA::COMPLETED_NO));
}

void VEXActivationInfo::failAll(bool withdrawn) {
    std::vector<Waiter> waiters;
    waiters.swap(_waiters);
    updateWaiting();
    for (Waiter& w : waiters) fail(w, withdrawn);
}

void VEXActivationInfo::service() {
    VEXChildExitBlock exits;
    if (_withdrawn) {
        failAll(true);
        _alarm.arm(0);
        return;
    }
    if (_pending && _pending->activation_state != Activation::WAITING_FOR_ACTIVATION) {
        // The server has reported: everybody waiting gets it, in the order
        // they came. Every lookup of an unshared entry gets a process of its
        // own; the list keeps them until they exit.
        if (!_waiters.empty()) {
            CORBA_Object_var ref(CORBA_Object::_duplicate(_pending->objRef.in()));
            if (!isShared(_impl)) {
                Activation::ObjectStatus* done = _pending;
                _pending = nullptr;
                _addToList(done);
            }
            answerAll(ref.in());
        }
    } else if (!_pending && !_waiters.empty()) {
        // The child died before it reported (deactivate freed the status):
        // the next attempt, or the end of them.
        if (--_attempts > 0) startAttempt();
        else failAll(false);
    }
    // Limits that ran out, in the order of the waiters.
    const long now = monotonicMs();
    for (size_t i = 0; i < _waiters.size();) {
        if (_waiters[i].deadline && _waiters[i].deadline <= now) {
            Waiter w = std::move(_waiters[i]);
            _waiters.erase(_waiters.begin() + static_cast<long>(i));
            updateWaiting();
            // The child runs on, kept in the status as waiting; if it
            // reports later, it is the running server.
            fail(w, false);
        } else {
            ++i;
        }
    }
    // -k: a child that has not reported that long after its start.
    if (overdueWatched()) {
        const long termAt = _spawned_at + 1000 * _start_limit;
        if (!_term_sent && now >= termAt) {
            kill(static_cast<pid_t>(_spawned), SIGTERM);
            _term_sent = true;
        } else if (_term_sent && now >= termAt + 5000) {
            kill(static_cast<pid_t>(_spawned), SIGKILL);
        }
    }
    armAlarm();
}

bool VEXActivationInfo::overdueWatched() const {
    // Only a real process id: a failed fork stored -1, and kill() of -1 or
    // 0 would reach whole groups of processes.
    return _start_limit > 0 && _pending && _spawned > 1 &&
           _spawned <= static_cast<unsigned long>(INT_MAX) &&
           _pending->activation_state == Activation::WAITING_FOR_ACTIVATION &&
           _pending->process_id == _spawned;
}

void VEXActivationInfo::armAlarm() {
    long at = 0;
    auto earliest = [&at](long t) {
        if (t && (!at || t < at)) at = t;
    };
    for (const Waiter& w : _waiters) earliest(w.deadline);
    if (overdueWatched())
        earliest(_spawned_at + 1000 * _start_limit + (_term_sent ? 5000 : 0));
    // A deadline of now still goes through the dispatcher: the answer
    // leaves in the next round, after the current request's reply.
    _alarm.arm(at);
}

unsigned long VEXActivationInfo::_spawn() {
    // Everything the child needs is built before the fork: between fork and
    // exec only async-signal-safe calls are sure to work, and the parent
    // may hold the allocator's lock.
    const std::string path(_impl && _impl->path.in() ? _impl->path.in() : "");
    std::string last = std::string(_impl && _impl->interface_name.in() ? _impl->interface_name.in() : "") +
                       "," + (_impl && _impl->object_name.in() ? _impl->object_name.in() : "");
    std::vector<std::string> args;
    std::vector<std::string> env;
    if (_impl) {
        for (CORBA::ULong i = 0; i < _impl->args.length(); ++i) {
            const char* a = _impl->args[i];
            args.emplace_back(a ? a : "");
        }
        for (CORBA::ULong i = 0; i < _impl->env.length(); ++i) {
            const char* e = _impl->env[i];
            env.emplace_back(e ? e : "");
        }
    }
    // A registration with an environment of its own gets the daemon's
    // reference added to it (an inherited environment has it already); ours
    // replaces one the registration names.
    const char* self = std::getenv(kVexIorVariable);
    if (!env.empty() && self) {
        const std::string prefix = std::string(kVexIorVariable) + "=";
        env.erase(std::remove_if(env.begin(), env.end(),
                                 [&](const std::string& e) { return e.compare(0, prefix.size(), prefix) == 0; }),
                  env.end());
        env.push_back(prefix + self);
    }
    std::vector<char*> argv;
    argv.reserve(args.size() + 3);
    argv.push_back(const_cast<char*>(path.c_str()));
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(&last[0]);
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(&e[0]);
    envp.push_back(nullptr);
    std::cout.flush();
    std::cerr.flush();

    pid_t pid = fork();
    if (pid != 0) {
        // A failed fork stores -1 as the process id: nothing matches it, and
        // the attempt ends by its time limit.
        return static_cast<unsigned long>(pid);
    }
    // The program starts with the signal mask of an ordinary process.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (!env.empty()) {
        execve(argv[0], argv.data(), envp.data());
        perror("execve: ");
        static const char msg[] = "execve failed.\n";
        (void)!write(2, msg, sizeof msg - 1);
    } else {
        execv(argv[0], argv.data());
        perror("execv: ");
        static const char msg[] = "execv failed.\n";
        (void)!write(2, msg, sizeof msg - 1);
    }
    // No exit handlers and no stream flushes of the daemon's copy of its
    // state: the child only ends, and the parent sees an ordinary exit.
    _exit(1);
}

void VEXActivationInfo::deactivate(unsigned long pid) {
    // Runs in the child-exit signal handler: touches the status list,
    // _pending, _spawned and the wake-up timer of this record only.
    _removeFromList(pid);
    if (pid == _spawned) _spawned = 0;
    if (!_pending || _pending->process_id != pid) return;
    // The signal alone only restarts select; a timer of one microsecond
    // wakes the loop so that service sees that the start has failed.
    if (_waiting) wake();
    pending(nullptr);
}

void VEXActivationInfo::wake() {
    if (_wakeup_armed) return;
    dpDispatcher::instance()->startTimer(0, 1, this);
    _wakeup_armed = true;
}

void VEXActivationInfo::timerExpired(long, long) {
    _wakeup_armed = false;
    service();
}

void VEXActivationInfo::withdraw() {
    _withdrawn = true;
    failAll(true);
    _alarm.arm(0);
}

void VEXActivationInfo::activated(CORBA_Object* obj, unsigned long pid) {
    if (!_pending) _pending = newStatus(Activation::ACTIVE);
    _pending->process_id = static_cast<CORBA::ULong>(pid);
    if (_pending->objRef.in() != obj) _pending->objRef = CORBA_Object::_duplicate(obj);
    _pending->activation_state = Activation::ACTIVE;
    // The waiters hear in the next round, once the server has its reply.
    if (!_waiters.empty()) wake();
}

Activation::ImplementationStatus* VEXActivationInfo::status() const {
    std::unique_ptr<Activation::ImplementationStatus> s(new Activation::ImplementationStatus);
    if (_impl) s->impl = _impl->_copy();
    if (isShared(_impl)) {
        if (_pending) {
            s->status.length(1);
            s->status[0] = *_pending;
        }
        return s.release();
    }
    const CORBA::ULong n = static_cast<CORBA::ULong>(_status_count);
    s->status.length(n + (_pending ? 1 : 0));
    for (CORBA::ULong i = 0; i < n; ++i) s->status[i] = *_status_list[i];
    if (_pending) s->status[n] = *_pending;
    return s.release();
}

// ---------------------------------------------------------------- servant

CORBA_Object* VEXImpl::lookup_implementation(const char* interface_name, const char* object_name,
                                             CORBA::Long timeout) {
    VEXChildExitBlock exits;
    if (!object_name || !*object_name) return lookup_interface(interface_name, timeout);
    DSDictionary* inner = findInterface(interface_name);
    if (!inner || inner->isEmpty()) throw Activation::NotRegistered();
    VEXActivationInfo* info = findEntry(interface_name, object_name);
    if (!info) throw Activation::NotRegistered();
    return info->lookup(timeout, kAttempts);
}

CORBA_Object* VEXImpl::lookup_interface(const char* interface_name, CORBA::Long timeout) {
    VEXChildExitBlock exits;
    DSDictionary* inner = findInterface(interface_name);
    if (!inner || inner->isEmpty()) throw Activation::NotRegistered();
    // A running shared server is preferred; otherwise the entry that the
    // walk meets last is started.
    VEXActivationInfo* last = nullptr;
    DSIterator it(*inner);
    while (DSResource* e = it.next()) {
        VEXActivationInfo* info = recordOf(e);
        if (!info) continue;
        if (isShared(info->impl()) && info->isActive()) return info->lookup(timeout, kAttempts);
        last = info;
    }
    if (!last) throw Activation::NotRegistered();
    return last->lookup(timeout, kAttempts);
}

CORBA_CreationImplDef* VEXImpl::boa_activate_obj(CORBA_Object* obj, const char* interface_name,
                                                 CORBA::Long pid) {
    VEXChildExitBlock exits;
    if (!obj) throw Activation::NotRegistered();
    VEXActivationInfo* info = findEntry(interface_name, obj->_object_name());
    if (!info) throw Activation::NotRegistered();
    // Departs from the older rule, under which anyone's report was recorded
    // and its reference handed out: a report now comes from a loopback peer
    // (a server started by hand on this host), or from a process that we
    // started for the pair, on this host. Others register as unmanaged.
    const bool ours = pid > 0 && VEXTrust::fromThisHost() &&
                      info->startedPid(static_cast<unsigned long>(pid));
    if (!ours && !VEXTrust::fromLoopback()) {
        if (_verbose)
            std::cout << "VEX:: Refused a report for " << interface_name << ", "
                      << obj->_object_name() << " (pid " << pid << ")" << std::endl;
        throw Activation::NotRegistered();
    }
    // A second shared server replaces the first one.
    info->activated(obj, static_cast<CORBA::ULong>(pid));
    if (_verbose)
        std::cout << "VEX:: Activated " << interface_name << ", " << obj->_object_name()
                  << " (pid " << pid << ")" << std::endl;
    return info->impl() ? info->impl()->_copy() : nullptr;
}

bool VEXKeyForwarder::forward(const char* interface_name, const char* object_name,
                              std::unique_ptr<ZEBDeferredReply>& reply) {
    VEXChildExitBlock exits;
    VEXActivationInfo* info = _vex.findEntry(interface_name, object_name);
    if (!info) return false;  // OBJECT_NOT_EXIST, as for any unknown key
    try {
        info->forwardRequest(reply);
    } catch (const Activation::NotRegistered&) {
        // Unregistered during a ping of its server.
        if (reply) reply->raise(CORBA_OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO));
    }
    return true;
}

void VEXImpl::record_child_exit(unsigned long pid) {
    // Runs in the child-exit signal handler: a plain walk over the table
    // that frees the matching statuses, every entry, no early stop.
    DSIterator outer(_impl_table);
    while (DSResource* e = outer.next()) {
        DSIterator it(*TB_CAST(DSDictionary, TB_CAST(DSAssoc, e)->value));
        while (DSResource* r = it.next())
            if (VEXActivationInfo* info = recordOf(r)) info->deactivate(pid);
    }
}

Activation::ImplementationStatus* VEXImpl::get_status(const char* interface_name,
                                                      const char* object_name) {
    VEXChildExitBlock exits;
    VEXActivationInfo* info = lookupEntry(interface_name, object_name, nullptr);
    return info->status();
}

Activation::ImplStatusList* VEXImpl::get_status_interface(const char* interface_name) {
    VEXChildExitBlock exits;
    DSDictionary* inner = findInterface(interface_name);
    if (!inner) throw Activation::NotRegistered();
    std::unique_ptr<Activation::ImplStatusList> list(
        new Activation::ImplStatusList(static_cast<CORBA::ULong>(inner->size())));
    list->length(static_cast<CORBA::ULong>(inner->size()));
    CORBA::ULong i = 0;
    DSIterator it(*inner);
    while (DSResource* e = it.next()) {
        VEXActivationInfo* info = recordOf(e);
        if (!info) continue;
        std::unique_ptr<Activation::ImplementationStatus> s(info->status());
        (*list)[i++] = *s;
    }
    list->length(i);
    return list.release();
}

Activation::ImplStatusList* VEXImpl::get_status_all() {
    VEXChildExitBlock exits;
    const CORBA::ULong total = static_cast<CORBA::ULong>(entryCount());
    std::unique_ptr<Activation::ImplStatusList> list(new Activation::ImplStatusList(total));
    list->length(total);
    CORBA::ULong i = 0;
    DSIterator outer(_impl_table);
    while (DSResource* e = outer.next()) {
        DSIterator it(*TB_CAST(DSDictionary, TB_CAST(DSAssoc, e)->value));
        while (DSResource* r = it.next()) {
            VEXActivationInfo* info = recordOf(r);
            if (!info || i >= total) continue;
            std::unique_ptr<Activation::ImplementationStatus> s(info->status());
            (*list)[i++] = *s;
        }
    }
    list->length(i);
    return list.release();
}
