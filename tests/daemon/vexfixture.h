// The daemon beside a real naming service; the servers it starts are killed
// by the pids its status reports, and the daemon by its own.
#ifndef KELVANOR_TESTS_VEXFIXTURE_H
#define KELVANOR_TESTS_VEXFIXTURE_H

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Activation.h"
#include "echo.h"
#include "except.h"
#include "impldef.h"
#include "omninames.h"
#include "orb.h"
#include "process.h"
#include "sockets.h"
#include "vex_functions.h"

namespace vextest {

using std::chrono::milliseconds;

// Seconds a single start may take before the daemon gives up on it.
constexpr CORBA::Long kStartLimit = 20;

inline CORBA_StringSequence strings(const std::vector<std::string>& v) {
    CORBA_StringSequence s(static_cast<CORBA::ULong>(v.size()));
    s.length(static_cast<CORBA::ULong>(v.size()));
    for (CORBA::ULong i = 0; i < v.size(); ++i) s[i] = CORBA::string_dup(v[i].c_str());
    return s;
}

// The options of a program run with these arguments and nothing else set.
inline ktest::Process::Options command(std::vector<std::string> argv) {
    ktest::Process::Options opts;
    opts.argv = std::move(argv);
    return opts;
}

class VexActivation : public ::testing::Test {
protected:
    void SetUp() override {
        KELVANOR_REQUIRE_OMNINAMES();
        if (KELVANOR_ECHO_SERVER_BINARY[0] == '\0') GTEST_SKIP() << "echo_server not built";
        ASSERT_TRUE(_ns.start()) << _ns.error();
        const std::string web = _dir.path() + "/web";
        ASSERT_EQ(0, system(("mkdir -p " + web + "/wai/NameService " + _dir.path() +
                             "/impl_dir").c_str()));
        ASSERT_TRUE(ktest::writeFile(web + "/wai/NameService/test.IOR", _ns.rootIOR() + "\n"));
        setenv("NS_SERVER_ROOT", web.c_str(), 1);
        setenv("NS_SERVER_ID", "test", 1);

        _port = std::to_string(ktest::freeLoopbackPort());
        ASSERT_TRUE(startVex(_vex, _port)) << _vex.stdoutText() << _vex.stderrText();
        _daemon = resolveVEX(nullptr);
        ASSERT_NE(_daemon.in(), nullptr);
    }

    // Starts a daemon on port; true once it says it registered by name.
    bool startVex(ktest::Process& p, const std::string& port) {
        ktest::Process::Options opts;
        opts.argv = {KELVANOR_VEX_BINARY, "-OAport", port};
        opts.argv.insert(opts.argv.end(), _vexArgs.begin(), _vexArgs.end());
        opts.env = {"KELVANOR_IMPL_PATH=" + _dir.path() + "/impl_dir"};
        opts.cwd = _dir.path();
        return p.start(opts) &&
               ktest::pollUntil(
                   [&] {
                       return p.stdoutText().find("naming service") != std::string::npos ||
                              !p.running();
                   },
                   milliseconds(15000)) &&
               p.stdoutText().find("VEX registered with naming service\n") != std::string::npos;
    }

    std::string repo() const { return _dir.path() + "/impl_dir/impl_rep"; }

    void TearDown() override {
        // Ask the daemon for its children's pids before it goes.
        if (_daemon.in()) {
            try {
                Activation::ImplStatusList_var all(_daemon->get_status_all());
                for (CORBA::ULong i = 0; i < all->length(); ++i)
                    for (CORBA::ULong j = 0; j < (*all)[i].status.length(); ++j)
                        track((*all)[i].status[j].process_id);
            } catch (const CORBA_Exception&) {
            }
        }
        for (pid_t p : _servers) kill(p, SIGKILL);
        _vex.stop(SIGKILL, milliseconds(2000));
    }

    // Only real pids: kill() of 0 or below would reach process groups.
    void track(CORBA::ULong pid) {
        if (pid > 1 && pid <= static_cast<CORBA::ULong>(INT_MAX))
            _servers.insert(static_cast<pid_t>(pid));
    }

    // echo_server under its own object name, loopback only.
    void registerEcho(const char* object,
                      CORBA_CreationImplDef::Policy policy = CORBA_CreationImplDef::SHARED_SERVER) {
        CORBA_CreationImplDef d("Demo::Echo", object, CORBA_OctetSequence(),
                                KELVANOR_ECHO_SERVER_BINARY, policy,
                                strings({"-OAipaddr", "127.0.0.1"}));
        CORBA::release(_daemon->reg_implementation(&d));
    }

    // A shell program; the daemon's last argument becomes its $0.
    CORBA_Object* registerScript(const char* object, const std::string& script) {
        CORBA_CreationImplDef d("Demo::Echo", object, CORBA_OctetSequence(), "/bin/sh",
                                CORBA_CreationImplDef::SHARED_SERVER, strings({"-c", script}));
        return _daemon->reg_implementation(&d);
    }

    // Runs `first`, sleeps `seconds`, then becomes echo_server.
    CORBA_Object* registerSlowEcho(const char* object, int seconds, const std::string& first = "") {
        return registerScript(object, first + "sleep " + std::to_string(seconds) + "; exec " +
                                          KELVANOR_ECHO_SERVER_BINARY +
                                          " -OAipaddr 127.0.0.1 \"$0\"");
    }

    static ktest::Outcome vexctl(std::vector<std::string> args) {
        args.insert(args.begin(), KELVANOR_VEXCTL_BINARY);
        return ktest::run(args);
    }

    // echo_client binding by the names in ior, which makes it ask the daemon.
    static bool startEchoClient(ktest::Process& p, const std::string& ior) {
        const std::string server(KELVANOR_ECHO_SERVER_BINARY);
        return p.start(command({server.substr(0, server.rfind('/') + 1) + "echo_client", ior, "hi"}));
    }

    std::string byNames(CORBA_Object* ref) {
        int argc = 0;
        CORBA_String_var ior(CORBA::ORB_init(argc, nullptr)->object_to_string(ref));
        return ior.in();
    }

    // The pid of the server behind ref, asked of the server itself.
    CORBA::Long serverPid(CORBA_Object* ref) {
        Demo::Echo_var echo(Demo::Echo::_narrow(ref));
        if (!echo.in()) return -1;
        CORBA::Long pid = echo->pid();
        track(static_cast<CORBA::ULong>(pid));
        return pid;
    }

    CORBA::Long lookupPid(const char* object) {
        CORBA_Object_var ref(_daemon->lookup_implementation("Demo::Echo", object, kStartLimit));
        return serverPid(ref);
    }

    Activation::ImplementationStatus* status(const char* object) {
        return _daemon->get_status("Demo::Echo", object);
    }

    // The entry's one server: active, with a reference, of pid if given.
    ::testing::AssertionResult oneActive(const char* object, CORBA::ULong pid = 0) {
        Activation::ImplementationStatus_var s(status(object));
        if (s->status.length() != 1)
            return ::testing::AssertionFailure() << s->status.length() << " servers";
        const Activation::ObjectStatus& o = s->status[0];
        if (o.activation_state == Activation::ACTIVE && o.objRef.in() &&
            (!pid || o.process_id == pid))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "pid " << o.process_id << ", state "
                                             << o.activation_state;
    }

    // Waits until the entry has n servers, started or running, and tracks them.
    bool statusLengthBecomes(const char* object, CORBA::ULong n) {
        return ktest::pollUntil(
            [&] {
                Activation::ImplementationStatus_var s(status(object));
                for (CORBA::ULong i = 0; i < s->status.length(); ++i)
                    track(s->status[i].process_id);
                return s->status.length() == n;
            },
            milliseconds(10000));
    }

    ktest::TempDir _dir{"vexact"};
    ktest::OmniNames _ns;
    ktest::Process _vex;
    std::string _port;  // the daemon's
    std::vector<std::string> _vexArgs{"-OAipaddr", "127.0.0.1"};  // more of its options
    Activation::VEX_var _daemon;
    std::set<pid_t> _servers;
};

}  // namespace vextest

#endif
