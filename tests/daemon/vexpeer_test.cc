// The daemon with omniORB clients and servers, and under faults: a client
// killed in its lookup, a server that reports twice, a crowd at one start.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vexfixture.h"

namespace {

using std::chrono::milliseconds;
using vextest::kStartLimit;
using vextest::strings;

class VexPeers : public vextest::VexActivation {
protected:
    // The omniORB server; args go before the daemon's "<interface>,<object>".
    void registerOmniEcho(const char* object, const std::vector<std::string>& args = {}) {
        CORBA_CreationImplDef d("Demo::Echo", object, CORBA_OctetSequence(),
                                KELVANOR_OMNI_VEX_ECHO_SERVER_BINARY,
                                CORBA_CreationImplDef::SHARED_SERVER, strings(args));
        CORBA::release(_daemon->reg_implementation(&d));
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

}  // namespace

TEST_F(VexPeers, OmniServerStartedOnLookupServesOmniAndKelvanorClients) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB peers not built";
    registerOmniEcho("omni", {"--reports", "2"});

    // An omniORB client starts the server through the daemon and calls it.
    // Typed as the server reported it: omniORB's _narrow sends no _is_a.
    ktest::Process first;
    ASSERT_TRUE(runOmniClient(first, {"-ORBtraceInvocations", "1", "lookup", "Demo::Echo", "omni",
                                      "-1", "hello"}))
        << first.stderrText();
    EXPECT_EQ(first.exitCode(), 0) << first.stdoutText() << first.stderrText();
    ASSERT_EQ(first.stdoutText().find("ok say hello pid "), 0u) << first.stdoutText();
    EXPECT_NE(first.stderrText().find("Invoke 'say'"), std::string::npos) << first.stderrText();
    EXPECT_EQ(first.stderrText().find("'_is_a'"), std::string::npos) << first.stderrText();
    const long pid = std::strtol(first.stdoutText().c_str() + 17, nullptr, 10);
    ASSERT_GT(pid, 1) << first.stdoutText();
    track(static_cast<CORBA::ULong>(pid));
    // It reported twice; once more from here: recorded once all the same.
    Activation::ImplementationStatus_var s(status("omni"));
    ASSERT_EQ(s->status.length(), 1u);
    CORBA_CreationImplDef_var def(_daemon->boa_activate_obj(s->status[0].objRef.in(), "Demo::Echo",
                                                            static_cast<CORBA::Long>(pid)));
    EXPECT_STREQ(def->path, KELVANOR_OMNI_VEX_ECHO_SERVER_BINARY);
    ASSERT_TRUE(oneActive("omni", static_cast<CORBA::ULong>(pid)));
    // The key that omniORB put in the reference is read as ours.
    EXPECT_STREQ(s->status[0].objRef->_object_name(), "omni");

    // Kelvanor's client binds by names: locate, __bind, the call, __unbind.
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

TEST_F(VexPeers, LookupsDuringAStartAreBusyAndKilledOrRefusedClientsLeaveTheDaemonServing) {
    CORBA_Object_var slow(registerSlowEcho("slow", 2));
    ktest::Process client;
    ASSERT_TRUE(startEchoClient(client, byNames(slow))) << client.error();
    ASSERT_TRUE(statusLengthBecomes("slow", 1));
    EXPECT_THROW(_daemon->lookup_interface("Demo::Echo", kStartLimit), Activation::Busy);
    // Killed while the daemon still waits for the server to report.
    ASSERT_TRUE(client.stop(SIGKILL, milliseconds(5000)));

    // Others are served meanwhile; the server is recorded once it reports.
    registerEcho("other");
    EXPECT_GT(lookupPid("other"), 1);
    ASSERT_TRUE(ktest::pollUntil([&] { return bool(oneActive("slow")); }, milliseconds(15000)));
    Activation::ImplementationStatus_var s(status("slow"));
    EXPECT_EQ(lookupPid("slow"), static_cast<CORBA::Long>(s->status[0].process_id));

    // Unregistered during its start, a waiting lookup ends with a refusal.
    CORBA_Object_var gone(registerSlowEcho("gone", 2));
    ktest::Process waiting;
    ASSERT_TRUE(startEchoClient(waiting, byNames(gone))) << waiting.error();
    ASSERT_TRUE(statusLengthBecomes("gone", 1));
    _daemon->unreg_implementation("Demo::Echo", "gone");
    ASSERT_TRUE(waiting.wait(milliseconds(20000)));
    EXPECT_NE(waiting.exitCode(), 0);
    EXPECT_EQ(Activation::ImplStatusList_var(_daemon->get_status_all())->length(), 2u);
}

namespace {

// Plain omniORB clients of a name bound by "vexctl bind", unaware of the daemon.
class VexTransparent : public VexPeers {
protected:

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
    ASSERT_EQ(vexctl({"bind", "Demo::Echo", "crowd", "crowd"}).status, 0);
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
    CORBA::release(registerSlowEcho("phoenix", 1));
    // A program that dies at once: five attempts, then TRANSIENT.
    CORBA::release(registerScript("dies", "exit 1"));
    // A pair unregistered after its name was bound (twice: rebound).
    registerEcho("left");
    for (const char* name : {"phoenix", "dies", "left", "left"})
        ASSERT_EQ(vexctl({"bind", "Demo::Echo", name, name}).status, 0);
    _daemon->unreg_implementation("Demo::Echo", "left");
    EXPECT_EQ(vexctl({"ior", "Demo::Echo", "left"}).status, 10);
    for (bool locateFirst : {true, false}) {
        // After kill -9 of the server the client's next call starts a new one.
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
        for (ktest::Process* p : {&client, &dies, &left})
            ASSERT_TRUE(p->wait(milliseconds(20000)));
        const std::string out = client.stdoutText();
        unlink((go() + ".2").c_str());
        const long second = std::strtol(out.c_str() + out.find('\n') + 4, nullptr, 10);
        track(static_cast<CORBA::ULong>(second));
        EXPECT_GT(second, 1) << out << client.stderrText();
        EXPECT_NE(second, first);
        EXPECT_EQ(dies.stdoutText(), "TRANSIENT\n") << dies.stderrText();
        EXPECT_EQ(left.stdoutText(), "OBJECT_NOT_EXIST\n") << left.stderrText();
    }
    EXPECT_EQ(vexctl({"unbind", "left"}).status, 0);
    EXPECT_EQ(vexctl({"unbind", "left"}).status, 16);
}
