// The daemon beside a real naming service, for the tests of servers that it
// starts: every process that the daemon starts is killed by the pid that its
// status reports, and the daemon by its own pid, whatever the outcome.
#ifndef KELVANOR_TESTS_VEXFIXTURE_H
#define KELVANOR_TESTS_VEXFIXTURE_H

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Activation.h"
#include "echo.h"
#include "except.h"
#include "impldef.h"
#include "omninames.h"
#include "orb.h"
#include "process.h"
#include "vex_functions.h"

namespace vextest {

using std::chrono::milliseconds;

// Seconds a single start may take before the daemon gives up on it.
constexpr CORBA::Long kStartLimit = 20;

inline unsigned short freePort() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    close(fd);
    return ntohs(a.sin_port);
}

inline CORBA_StringSequence strings(const std::vector<std::string>& v) {
    CORBA_StringSequence s(static_cast<CORBA::ULong>(v.size()));
    s.length(static_cast<CORBA::ULong>(v.size()));
    for (CORBA::ULong i = 0; i < v.size(); ++i) s[i] = CORBA::string_dup(v[i].c_str());
    return s;
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

        ktest::Process::Options opts;
        opts.argv = {KELVANOR_VEX_BINARY, "-OAipaddr", "127.0.0.1", "-OAport",
                     std::to_string(freePort())};
        opts.env = {"NS_SERVER_ROOT=" + web, "NS_SERVER_ID=test",
                    "KELVANOR_IMPL_PATH=" + _dir.path() + "/impl_dir"};
        opts.cwd = _dir.path();
        ASSERT_TRUE(_vex.start(opts)) << _vex.error();
        ASSERT_TRUE(ktest::pollUntil(
            [&] {
                return _vex.stdoutText().find("naming service") != std::string::npos ||
                       !_vex.running();
            },
            milliseconds(15000)));
        ASSERT_NE(_vex.stdoutText().find("VEX registered with naming service\n"),
                  std::string::npos)
            << _vex.stdoutText() << _vex.stderrText();
        _daemon = resolveVEX(nullptr);
        ASSERT_NE(_daemon.in(), nullptr);
    }

    void TearDown() override {
        // The servers are the daemon's children: ask it for their pids
        // before it goes, then stop them and it by pid.
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

    // Only a real process id: kill() of 0 or of a negative number would
    // reach whole groups of processes.
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

    // A shell program: the daemon's last argument "<interface>,<object>"
    // becomes $0 of the script.
    CORBA_Object* registerScript(const char* object, const std::string& script) {
        CORBA_CreationImplDef d("Demo::Echo", object, CORBA_OctetSequence(), "/bin/sh",
                                CORBA_CreationImplDef::SHARED_SERVER, strings({"-c", script}));
        return _daemon->reg_implementation(&d);
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

    bool statusLengthBecomes(const char* object, CORBA::ULong n) {
        return ktest::pollUntil(
            [&] {
                Activation::ImplementationStatus_var s(status(object));
                return s->status.length() == n;
            },
            milliseconds(10000));
    }

    ktest::TempDir _dir{"vexact"};
    ktest::OmniNames _ns;
    ktest::Process _vex;
    Activation::VEX_var _daemon;
    std::set<pid_t> _servers;
};

}  // namespace vextest

#endif
