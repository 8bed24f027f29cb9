// The activation engine: starting server processes on demand, waiting for
// their reports in a nested dispatcher loop, following their exits, and the
// status queries of administration tools.
#include <unistd.h>

#include <algorithm>
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

VEXActivationInfo* recordOf(DSResource* assoc) {
    DSWrapper* w = TB_CAST(DSWrapper, TB_CAST(DSAssoc, assoc)->value);
    return w ? static_cast<VEXActivationInfo*>(w->value) : nullptr;
}

}  // namespace

// ------------------------------------------------------------------ timer

VEXTimer::~VEXTimer() {
    if (_armed) dpDispatcher::instance()->stopTimer(this);
}

void VEXTimer::start(long sec) {
    dpDispatcher::instance()->startTimer(sec, 0, this);
    _armed = true;
}

void VEXTimer::timerExpired(long, long) {
    _expired = true;
    _armed = false;
}

// ------------------------------------------------------ activation record

CORBA_Object* VEXActivationInfo::getObjectRef(long timeout, long retries) {
    if (retries <= 0) throw Activation::NotResponding();
    // One start per entry at a time; other clients are told, not queued.
    if (_pending && _pending->activation_state == Activation::WAITING_FOR_ACTIVATION)
        throw Activation::Busy();
    if (isShared(_impl) && _pending) {
        // Departs from the older rule of pinging every running server before
        // handing it out: one this daemon started, whose exit has not been
        // reaped, is alive as far as anyone can tell without asking, and the
        // ping doubled the cost of a warm lookup. A server it did not start
        // (adopted, or on another host) is still asked.
        const bool ours = _spawned != 0 && _pending->process_id == _spawned;
        bool gone = true;
        try {
            gone = _pending->objRef.in() == nullptr ||
                   (!ours && _pending->objRef->_non_existent());
        } catch (const CORBA_SystemException&) {
            gone = true;
        }
        if (!gone) return CORBA_Object::_duplicate(_pending->objRef.in());
        // A server that vanished without an exit reaching us (started by
        // hand, or already reaped): forget it and start a new one.
        pending(nullptr);
        return _getNewObjectRef(timeout, retries - 1);
    }
    return _getNewObjectRef(timeout, retries);
}

CORBA_Object* VEXActivationInfo::_getNewObjectRef(long timeout, long retries) {
    // A registration stored before the program directories were narrowed
    // stays in the table and the file, but its program is never run.
    const char* path = _impl && _impl->path.in() ? _impl->path.in() : "";
    if (!VEXTrust::inProgramDirs(path)) {
        if (vex && vex->verbose())
            std::cout << "VEX:: Not starting " << path << ": it is outside the program directories "
                      << VEXTrust::programDirs() << std::endl;
        throw Activation::NotResponding();
    }
    for (;;) {
        pending(newStatus(Activation::WAITING_FOR_ACTIVATION));
        _spawned = _spawn();
        _pending->process_id = static_cast<CORBA::ULong>(_spawned);

        VEXTimer timer;
        if (timeout != -1) timer.start(timeout);
        // Cleared on every way out, an exception out of the dispatcher too.
        struct WaitFlag {
            bool& flag;
            explicit WaitFlag(bool& f) : flag(f) { flag = true; }
            ~WaitFlag() { flag = false; }
        } waitFlag(_waiting);
        dpDispatcher* d = dpDispatcher::instance();
        for (;;) {
            {
                VEXChildExitAllow exits;
                d->dispatch();
            }
            if (_withdrawn) {
                // Unregistered by a request served in this loop: the record
                // is kept alive for us, but its start no longer counts.
                pending(nullptr);
                throw Activation::NotRegistered();
            }
            // The child died: deactivate, from the signal handler, freed
            // the status.
            if (!_pending) break;
            if (timeout != -1 && timer.expired()) {
                // The child runs on; if it reports later, it is adopted.
                pending(nullptr);
                throw Activation::NotResponding();
            }
            if (_pending->activation_state != Activation::WAITING_FOR_ACTIVATION) {
                CORBA_Object* ref = CORBA_Object::_duplicate(_pending->objRef.in());
                if (!isShared(_impl)) {
                    // Every lookup of an unshared entry gets a process of
                    // its own; the list keeps them until they exit.
                    Activation::ObjectStatus* done = _pending;
                    _pending = nullptr;
                    _addToList(done);
                }
                return ref;
            }
        }
        if (--retries <= 0) throw Activation::NotResponding();
    }
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
    // _pending and the wake-up timer of this record only.
    _removeFromList(pid);
    if (pid == _spawned) _spawned = 0;
    if (!_pending || _pending->process_id != pid) return;
    if (_waiting && !_wakeup_armed) {
        // The signal alone only restarts select; a timer of one microsecond
        // wakes the nested loop so that it sees the start has failed.
        dpDispatcher::instance()->startTimer(0, 1, this);
        _wakeup_armed = true;
    }
    pending(nullptr);
}

void VEXActivationInfo::withdraw() {
    _withdrawn = true;
    if (_waiting && !_wakeup_armed) {
        dpDispatcher::instance()->startTimer(0, 1, this);
        _wakeup_armed = true;
    }
}

void VEXActivationInfo::activated(CORBA_Object* obj, unsigned long pid) {
    if (!_pending) _pending = newStatus(Activation::ACTIVE);
    _pending->process_id = static_cast<CORBA::ULong>(pid);
    if (_pending->objRef.in() != obj) _pending->objRef = CORBA_Object::_duplicate(obj);
    _pending->activation_state = Activation::ACTIVE;
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
    return info->getObjectRef(timeout, kAttempts);
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
        if (isShared(info->impl()) && info->isActive()) return info->getObjectRef(timeout, kAttempts);
        last = info;
    }
    if (!last) throw Activation::NotRegistered();
    return last->getObjectRef(timeout, kAttempts);
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
