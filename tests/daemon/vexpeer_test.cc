// The daemon with omniORB on the other ends: an omniORB client that looks
// objects up through it, and an omniORB Demo::Echo server that it starts
// and that reports back under Kelvanor's own persistent key. Then the
// daemon under faults: a client killed in the middle of its lookup, a
// server that reports twice, and many clients that bind by names at once.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "giop.h"
#include "mstrm.h"
#include "vexfixture.h"

namespace {

using std::chrono::milliseconds;
using vextest::kStartLimit;
using vextest::strings;

class VexPeers : public vextest::VexActivation {
protected:
    // The omniORB server under an object name; extra arguments go before
    // the daemon's "<interface>,<object>".
    void registerOmniEcho(const char* object, const std::vector<std::string>& args = {}) {
        CORBA_CreationImplDef d("Demo::Echo", object, CORBA_OctetSequence(),
                                KELVANOR_OMNI_VEX_ECHO_SERVER_BINARY,
                                CORBA_CreationImplDef::SHARED_SERVER, strings(args));
        try {
            CORBA::release(_daemon->reg_implementation(&d));
        } catch (const CORBA_Exception& e) {
            ADD_FAILURE() << "registering " << object << ": " << e;
        }
    }

    // omni_vex_client with the daemon found through the naming service.
    bool runOmniClient(ktest::Process& p, const std::vector<std::string>& args) {
        ktest::Process::Options opts;
        opts.argv = {KELVANOR_OMNI_VEX_CLIENT_BINARY, "-"};
        opts.argv.insert(opts.argv.end(), args.begin(), args.end());
        opts.env = {std::string("NS_SERVER_ROOT=") + getenv("NS_SERVER_ROOT"),
                    "NS_SERVER_ID=test"};
        return p.start(opts) && p.wait(milliseconds(30000));
    }

    static bool omniBuilt() { return KELVANOR_OMNI_VEX_ECHO_SERVER_BINARY[0] != '\0'; }
};

// The number after "pid" or "pid:" in the output of a client, or -1.
long pidIn(const std::string& out) {
    std::string::size_type at = out.find("pid");
    if (at == std::string::npos) return -1;
    at += 3;
    if (at < out.size() && out[at] == ':') ++at;
    return std::strtol(out.c_str() + at, nullptr, 10);
}

}  // namespace

TEST_F(VexPeers, OmniServerStartedOnLookupServesOmniAndKelvanorClients) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB peers not built";
    registerOmniEcho("omni");

    // An omniORB client starts the server through the daemon and calls it.
    // The reference comes typed as the server reported it, so omniORB's
    // _narrow asks nobody: its trace shows no remote _is_a.
    ktest::Process first;
    ASSERT_TRUE(runOmniClient(first, {"-ORBtraceInvocations", "1", "lookup", "Demo::Echo", "omni",
                                      "-1", "hello"}))
        << first.stderrText();
    EXPECT_EQ(first.exitCode(), 0) << first.stdoutText() << first.stderrText();
    EXPECT_EQ(first.stdoutText().find("ok say hello pid "), 0u) << first.stdoutText();
    EXPECT_NE(first.stderrText().find("Invoke 'say'"), std::string::npos) << first.stderrText();
    EXPECT_EQ(first.stderrText().find("'_is_a'"), std::string::npos) << first.stderrText();
    const long pid = pidIn(first.stdoutText());
    ASSERT_GT(pid, 1) << first.stdoutText();
    track(static_cast<CORBA::ULong>(pid));
    ASSERT_TRUE(oneActive("omni", static_cast<CORBA::ULong>(pid)));
    // The key that omniORB put in the reference is read as ours.
    Activation::ImplementationStatus_var s(status("omni"));
    EXPECT_STREQ(s->status[0].objRef->_object_name(), "omni");

    // A second lookup reuses the running server.
    ktest::Process second;
    ASSERT_TRUE(runOmniClient(second, {"lookup", "Demo::Echo", "omni", "-1", "again"}));
    EXPECT_EQ(second.stdoutText(), "ok say again pid " + std::to_string(pid) + "\n")
        << second.stderrText();

    // Kelvanor's client binds by names: it locates the key, sends __bind,
    // calls, and announces __unbind when it lets go.
    EXPECT_EQ(lookupPid("omni"), pid);
    {
        Demo::Echo_var echo(Demo::Echo::_bind("omni"));
        ASSERT_NE(echo.in(), nullptr);
        CORBA_String_var said(echo->say("by names"));
        EXPECT_STREQ(said.in(), "by names");
        EXPECT_EQ(echo->pid(), pid);
    }
    EXPECT_EQ(lookupPid("omni"), pid);

    // The daemon's refusals reach the omniORB client by their ids.
    ktest::Process refused;
    ASSERT_TRUE(runOmniClient(refused, {"lookup", "Demo::Echo", "nobody", "5", "x"}));
    EXPECT_EQ(refused.stdoutText(), "exception IDL:pellomar/Activation/NotRegistered:1.0\n")
        << refused.stderrText();
}

TEST_F(VexPeers, RepliesOnlyWhenAskedAndHandsOutTheServersOwnType) {
    registerEcho("typed");
    // Two-way operations sent without response_expected get no reply; a
    // stray one would be read as the answer to the next call.
    for (int i = 0; i < 2; ++i) {
        GIOPstream* s = _daemon->_create_request("get_implementation", 0, 0);
        *s << "Demo::Echo" << "typed";
        _daemon->_send();
        CORBA_CreationImplDef_var d(_daemon->get_implementation("Demo::Echo", "typed"));
        EXPECT_STREQ(d->object_name.in(), "typed");
    }

    // The reference handed out is typed as the server reported it, so that a
    // client of another ORB can narrow it without asking the server.
    GIOPstream* s = _daemon->_create_request("lookup_implementation", 1, 0);
    *s << "Demo::Echo" << "typed" << static_cast<CORBA::Long>(-1);
    s = _daemon->_invoke();
    IOP::IOR ior;
    *s >> ior;
    s->flushRead();
    EXPECT_STREQ(ior.type_id.in(), "IDL:Demo/Echo:1.0");
    Activation::ImplementationStatus_var st(status("typed"));
    ASSERT_EQ(st->status.length(), 1u);
    track(st->status[0].process_id);
}

TEST_F(VexPeers, LookupsDuringAStartAreBusyAndAKilledClientLeavesTheDaemonServing) {
    if (!echoClientBuilt()) GTEST_SKIP() << "echo_client not built";
    CORBA_Object_var slow(registerSlowEcho("slow", 2));
    ktest::Process client;
    ASSERT_TRUE(startEchoClient(client, byNames(slow))) << client.error();
    ASSERT_TRUE(startBegins("slow"));
    // A lookup by interface meets the start too (by pair: a late report,
    // in vexact_test; the waiting client answered: fifty clients below).
    EXPECT_THROW(_daemon->lookup_interface("Demo::Echo", kStartLimit), Activation::Busy);
    // Killed while the daemon still waits for the server to report.
    ASSERT_TRUE(client.stop(SIGKILL, milliseconds(5000)));

    // Others are served meanwhile, and the server is recorded once it
    // reports; the next lookup takes it.
    registerEcho("other");
    EXPECT_GT(lookupPid("other"), 1);
    ASSERT_TRUE(ktest::pollUntil([&] { return bool(oneActive("slow")); }, milliseconds(15000)));
    Activation::ImplementationStatus_var s(status("slow"));
    EXPECT_EQ(lookupPid("slow"), static_cast<CORBA::Long>(s->status[0].process_id));
}

TEST_F(VexPeers, ServerReportingTwiceIsRecordedOnce) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB peers not built";
    registerOmniEcho("twice", {"--reports", "2"});
    const CORBA::Long pid = lookupPid("twice");
    ASSERT_GT(pid, 1);
    // The same report once more, from here this time.
    {
        Activation::ImplementationStatus_var s(status("twice"));
        ASSERT_EQ(s->status.length(), 1u);
        CORBA_CreationImplDef_var def(
            _daemon->boa_activate_obj(s->status[0].objRef.in(), "Demo::Echo", pid));
        ASSERT_NE(def.ptr(), nullptr);
        EXPECT_STREQ(def->path, KELVANOR_OMNI_VEX_ECHO_SERVER_BINARY);
    }
    EXPECT_TRUE(oneActive("twice", static_cast<CORBA::ULong>(pid)));
    EXPECT_EQ(lookupPid("twice"), pid);
}

TEST_F(VexPeers, FiftyClientsBindingAtOnceDuringAStartGetOneServer) {
    if (access(echoClientBinary().c_str(), X_OK) != 0) GTEST_SKIP() << "echo_client not built";
    // A start long enough for all fifty to arrive during it.
    CORBA_Object_var shared(registerScript(
        "crowd", std::string("sleep 3; exec ") + KELVANOR_ECHO_SERVER_BINARY +
                     " -OAipaddr 127.0.0.1 \"$0\""));
    const std::string ior = byNames(shared);
    std::set<long> pids;
    // The first crowd comes during the start; the second finds the server
    // running, and every lookup of it asks the server whether it is alive
    // while the others wait.
    for (int crowd = 0; crowd < 2; ++crowd) {
        std::vector<std::unique_ptr<ktest::Process>> clients;
        for (int i = 0; i < 50; ++i) {
            clients.emplace_back(new ktest::Process);
            ASSERT_TRUE(startEchoClient(*clients.back(), ior)) << clients.back()->error();
        }
        int busy = 0;
        for (auto& c : clients) {
            ASSERT_TRUE(c->wait(milliseconds(60000))) << c->stdoutText() << c->stderrText();
            if (c->exitCode() != 0) {
                // One start runs per entry: who comes during it is told so
                // rather than queued.
                EXPECT_NE(c->stderrText().find("Activation::Busy"), std::string::npos)
                    << c->stderrText();
                ++busy;
                continue;
            }
            const long pid = pidIn(c->stdoutText());
            if (pid > 1) track(static_cast<CORBA::ULong>(pid));
            pids.insert(pid);
        }
        ASSERT_EQ(pids.size(), 1u) << "crowd " << crowd;
        EXPECT_GT(*pids.begin(), 1);
        if (crowd == 0) EXPECT_LT(busy, 50);
        else EXPECT_EQ(busy, 0);
    }
    // The daemon serves on, with the one server recorded.
    Activation::ImplementationStatus_var s(status("crowd"));
    ASSERT_EQ(s->status.length(), 1u);
    EXPECT_EQ(s->status[0].process_id, static_cast<CORBA::ULong>(*pids.begin()));
    EXPECT_EQ(lookupPid("crowd"), *pids.begin());
}

namespace {

// Plain omniORB clients that resolve a name bound by "vexctl bind" and know
// nothing of the daemon: the road of any CORBA client to a registered pair.
class VexTransparent : public VexPeers {
protected:
    int vexctl(const std::vector<std::string>& args) {
        std::vector<std::string> argv{KELVANOR_VEXCTL_BINARY};
        argv.insert(argv.end(), args.begin(), args.end());
        return ktest::run(argv).status;
    }

    // omni_echo_client, with a LocateRequest first (omniORB's default) or
    // the call itself; after the first round it waits for "<go>.<round>".
    bool startClient(ktest::Process& p, const std::string& name, bool locateFirst, int rounds = 1) {
        return p.start(vextest::command({KELVANOR_OMNI_ECHO_CLIENT_BINARY,
                                         "-ORBverifyObjectExistsAndType", locateFirst ? "1" : "0",
                                         "name:" + name, "rounds", std::to_string(rounds), go()}));
    }
    std::string go() const { return _dir.file("go"); }
};

}  // namespace

TEST_F(VexTransparent, TwentyClientsDuringOneStartAreForwardedToOneServer) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB peers not built";
    CORBA::release(registerSlowEcho("crowd", 2));
    ASSERT_EQ(vexctl({"bind", "Demo::Echo", "crowd", "crowd"}), 0);
    std::vector<std::unique_ptr<ktest::Process>> clients;
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back(new ktest::Process);
        ASSERT_TRUE(startClient(*clients.back(), "crowd", i % 2 == 0));
    }
    std::set<std::string> answers;
    for (auto& c : clients) {
        ASSERT_TRUE(c->wait(milliseconds(30000)));
        EXPECT_EQ(c->exitCode(), 0) << c->stdoutText() << c->stderrText();
        answers.insert(c->stdoutText());
    }
    ASSERT_EQ(answers.size(), 1u);
    const long pid = std::strtol(answers.begin()->c_str() + 3, nullptr, 10);
    track(static_cast<CORBA::ULong>(pid));
    EXPECT_TRUE(oneActive("crowd", static_cast<CORBA::ULong>(pid))) << *answers.begin();
}

TEST_F(VexTransparent, CallsAreForwardedStartedAgainOrRefused) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB peers not built";
    registerEcho("phoenix");
    // A program that dies at once: five attempts, then TRANSIENT.
    CORBA::release(registerScript("dies", "exit 1"));
    // A pair unregistered after its name was bound (twice: rebound).
    registerEcho("left");
    for (const char* name : {"phoenix", "dies", "left", "left"})
        ASSERT_EQ(vexctl({"bind", "Demo::Echo", name, name}), 0);
    _daemon->unreg_implementation("Demo::Echo", "left");
    EXPECT_EQ(vexctl({"ior", "Demo::Echo", "left"}), 10);
    for (bool locateFirst : {true, false}) {
        // After kill -9 of the server, the same client's next call goes
        // back to the daemon, which starts a new one.
        ktest::Process client, dies, left;
        ASSERT_TRUE(startClient(client, "phoenix", locateFirst, 2));
        ASSERT_TRUE(startClient(dies, "dies", locateFirst));
        ASSERT_TRUE(startClient(left, "left", locateFirst));
        ASSERT_TRUE(ktest::pollUntil(
            [&] { return client.stdoutText().find('\n') != std::string::npos; },
            milliseconds(15000)))
            << client.stderrText();
        const long first = std::strtol(client.stdoutText().c_str() + 3, nullptr, 10);
        track(static_cast<CORBA::ULong>(first));
        ASSERT_EQ(0, kill(static_cast<pid_t>(first), SIGKILL));
        ASSERT_TRUE(statusLengthBecomes("phoenix", 0));
        ASSERT_TRUE(ktest::writeFile(go() + ".2", ""));
        for (ktest::Process* p : {&client, &dies, &left}) ASSERT_TRUE(p->wait(milliseconds(20000)));
        unlink((go() + ".2").c_str());
        const std::string out = client.stdoutText();
        const long second = std::strtol(out.c_str() + out.find('\n') + 4, nullptr, 10);
        track(static_cast<CORBA::ULong>(second));
        EXPECT_GT(second, 1) << out << client.stderrText();
        EXPECT_NE(second, first);
        EXPECT_EQ(dies.stdoutText(), "TRANSIENT\n") << dies.stderrText();
        EXPECT_EQ(left.stdoutText(), "OBJECT_NOT_EXIST\n") << left.stderrText();
    }
    EXPECT_EQ(vexctl({"unbind", "left"}), 0);
    EXPECT_EQ(vexctl({"unbind", "left"}), 16);
}
