// Servers started on demand: echo_server and small shell programs
// registered with the daemon.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "boa.h"
#include "giop.h"
#include "iorstr.h"
#include "orb_loopback.h"
#include "zebglob.h"
#include "vexfixture.h"

using vextest::kStartLimit;
using vextest::strings;
using VexActivation = vextest::VexActivation;
using std::chrono::milliseconds;

TEST_F(VexActivation, SharedServerStartsOnceAndIsRestartedAfterItDies) {
    registerEcho("shared");
    const CORBA::Long first = lookupPid("shared");
    ASSERT_GT(first, 1);
    // By interface, the running shared server is the one taken.
    CORBA_Object_var ref(_daemon->lookup_interface("Demo::Echo", kStartLimit));
    EXPECT_EQ(serverPid(ref), first);
    EXPECT_TRUE(oneActive("shared", first));
    // A server the daemon started is handed out unpinged: stopped, it still is.
    ASSERT_EQ(0, kill(first, SIGSTOP));
    const auto before = std::chrono::steady_clock::now();
    CORBA_Object_var again(_daemon->lookup_implementation("Demo::Echo", "shared", kStartLimit));
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    EXPECT_NE(again.in(), nullptr);
    ASSERT_EQ(0, kill(first, SIGCONT));

    ASSERT_EQ(0, kill(first, SIGKILL));
    EXPECT_TRUE(statusLengthBecomes("shared", 0));
    const CORBA::Long second = lookupPid("shared");
    EXPECT_GT(second, 1);
    EXPECT_NE(second, first);
}

TEST_F(VexActivation, ProgramThatExitsAtOnceIsTriedFiveTimes) {
    const std::string count = _dir.file("starts");
    CORBA::release(registerScript("dies", "echo \"$0\" >> " + count));
    EXPECT_THROW(_daemon->lookup_implementation("Demo::Echo", "dies", kStartLimit),
                 Activation::NotResponding);
    std::string expected;
    for (int i = 0; i < 5; ++i) expected += "Demo::Echo,dies\n";
    EXPECT_EQ(ktest::readFile(count), expected);
    EXPECT_EQ(Activation::ImplementationStatus_var(status("dies"))->status.length(), 0u);
    // Idle again: the next lookup starts over rather than being Busy.
    EXPECT_THROW(_daemon->lookup_implementation("Demo::Echo", "dies", kStartLimit),
                 Activation::NotResponding);
}

TEST_F(VexActivation, UnsharedEntryStartsAProcessPerLookup) {
    registerEcho("each", CORBA_CreationImplDef::UNSHARED_SERVER);
    // Pids come from the status: an unshared server may end with its client.
    for (int i = 0; i < 3; ++i)
        CORBA::release(_daemon->lookup_implementation("Demo::Echo", "each", kStartLimit));
    Activation::ImplementationStatus_var s(status("each"));
    ASSERT_EQ(s->status.length(), 3u);
    std::set<CORBA::ULong> pids;
    for (CORBA::ULong i = 0; i < 3; ++i) {
        track(s->status[i].process_id);
        pids.insert(s->status[i].process_id);
        EXPECT_TRUE(s->status[i].activation_state == Activation::ACTIVE && s->status[i].objRef.in());
    }
    ASSERT_EQ(pids.size(), 3u);
    const CORBA::ULong first = s->status[0].process_id, last = s->status[2].process_id;
    ASSERT_EQ(0, kill(static_cast<pid_t>(s->status[1].process_id), SIGKILL));
    ASSERT_TRUE(statusLengthBecomes("each", 2));
    s = status("each");
    EXPECT_EQ(s->status[0].process_id, first);
    EXPECT_EQ(s->status[1].process_id, last);

    Activation::ImplStatusList_var mine(_daemon->get_status_interface("Demo::Echo"));
    ASSERT_EQ(mine->length(), 1u);
    EXPECT_EQ((*mine)[0].status.length(), 2u);
    EXPECT_THROW(_daemon->get_status_interface("No::Such"), Activation::NotRegistered);
}

TEST_F(VexActivation, StartedServersInheritTheDaemonsReference) {
    // Even over a value in the registration's own environment.
    const std::string file = _dir.file("ownenv");
    const std::string script = "echo \"$KELVANOR_VEX_IOR\" > " + file + "; exec " +
                               KELVANOR_ECHO_SERVER_BINARY + " -OAipaddr 127.0.0.1 \"$0\"";
    CORBA_CreationImplDef d("Demo::Echo", "ownenv", CORBA_OctetSequence(), "/bin/sh",
                            CORBA_CreationImplDef::SHARED_SERVER, strings({"-c", script}),
                            strings({"KELVANOR_VEX_IOR=old"}));
    CORBA::release(_daemon->reg_implementation(&d));
    ASSERT_GT(lookupPid("ownenv"), 1);
    std::string got = ktest::readFile(file);
    got = got.substr(0, got.find('\n'));
    CORBA_Object_var inherited(ktest::loopbackOrb()->string_to_object(got.c_str()));
    ASSERT_NE(inherited.in(), nullptr) << got;
    EXPECT_EQ(byNames(inherited), byNames(_daemon));
}

TEST_F(VexActivation, ServerStartedByHandIsAdopted) {
    registerEcho("hand");
    // A stale daemon reference in the environment: it asks the naming service.
    std::unique_ptr<IOP::IOR> stale(ZEBGlobalTable::getIOR(_daemon));
    std::unique_ptr<IIOP::ObjectLocator> loc(
        IIOP::ObjectLocator::convert(stale->profiles[0].profile_data));
    loc->port = static_cast<CORBA::UShort>(ktest::freeLoopbackPort());
    stale->profiles[0].profile_data = *CORBA_OctetSequence_var(loc->convert()).ptr();
    const std::string staleText = CORBA_String_var(iorToString(*stale)).in();
    auto startEcho = [&](ktest::Process& p, const char* name) {
        ktest::Process::Options opts;
        opts.argv = {KELVANOR_ECHO_SERVER_BINARY, "-OAipaddr", "127.0.0.1", name};
        opts.env = {"KELVANOR_VEX_IOR=" + staleText};
        return p.start(opts) &&
               ktest::pollUntil([&] { return p.stdoutText().find("IOR:") == 0 || !p.running(); },
                                milliseconds(10000)) &&
               p.running();
    };
    ktest::Process hand;
    ASSERT_TRUE(startEcho(hand, "hand")) << hand.stderrText();
    EXPECT_TRUE(oneActive("hand", static_cast<CORBA::ULong>(hand.pid())));
    EXPECT_EQ(lookupPid("hand"), hand.pid());

    // A server of an unknown pair is refused and runs on regardless.
    ktest::Process stray;
    ASSERT_TRUE(startEcho(stray, "stray")) << stray.stderrText();
    EXPECT_THROW(status("stray"), Activation::NotRegistered);

    // Stopped, a server we did not start fails the ping within the limit:
    // taken as gone, with no time left for a start.
    ASSERT_EQ(0, kill(hand.pid(), SIGSTOP));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(_daemon->lookup_implementation("Demo::Echo", "hand", 1), Activation::NotResponding);
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1500));
    EXPECT_TRUE(statusLengthBecomes("hand", 0));
    kill(hand.pid(), SIGCONT);
}

TEST_F(VexActivation, ServerReportingAfterTheTimeLimitIsKeptAndAdopted) {
    const std::string pidFile = _dir.file("late.pid");
    CORBA::release(registerSlowEcho("late", 2, "echo $$ > " + pidFile + "; "));
    // The lookup ends at its own limit, not at the end of the start.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(_daemon->lookup_implementation("Demo::Echo", "late", 1),
                 Activation::NotResponding);
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1500));
    const CORBA::ULong pid =
        static_cast<CORBA::ULong>(std::strtoul(ktest::readFile(pidFile).c_str(), nullptr, 10));
    track(pid);
    ASSERT_GT(pid, 1u);
    // It stays as starting, and no second one is started beside it.
    Activation::ImplementationStatus_var s(status("late"));
    ASSERT_EQ(s->status.length(), 1u);
    EXPECT_EQ(s->status[0].process_id, pid);
    EXPECT_EQ(s->status[0].activation_state, Activation::WAITING_FOR_ACTIVATION);
    EXPECT_THROW(_daemon->lookup_implementation("Demo::Echo", "late", 1), Activation::Busy);
    ASSERT_TRUE(
        ktest::pollUntil([&] { return bool(oneActive("late", pid)); }, milliseconds(10000)));
    EXPECT_EQ(lookupPid("late"), static_cast<CORBA::Long>(pid));
}

TEST_F(VexActivation, AdapterCreatesImplementationsThroughTheDaemon) {
    int argc = 0;
    CORBA::BOA_ptr boa = ktest::loopbackOrb()->BOA_init(argc, nullptr);
    CORBA::Octet bytes[2] = {7, 9};
    CORBA_OctetSequence id(2, 2, bytes);
    CORBA_CreationImplDef d("Demo::Echo", "made", CORBA_OctetSequence(),
                            KELVANOR_ECHO_SERVER_BINARY, CORBA_CreationImplDef::SHARED_SERVER,
                            strings({"-OAipaddr", "127.0.0.1"}));
    CORBA_Object_var ref(boa->create(id, nullptr, &d));
    ASSERT_NE(ref.in(), nullptr);
    EXPECT_STREQ(ref->_object_name(), "made");
    CORBA_CreationImplDef_var got(_daemon->get_implementation("Demo::Echo", "made"));
    ASSERT_EQ(got->id.length(), 2u);
    EXPECT_EQ(got->id[1], 9);
    EXPECT_GT(lookupPid("made"), 1);
}

// What a looping client may wait beyond its limit, vexctl's own start
// included; that start is slower under the sanitizers.
#ifdef __SANITIZE_ADDRESS__
constexpr long kSlackMs = 1000;
#else
constexpr long kSlackMs = 500;
#endif

TEST_F(VexActivation, LoopingClientsNeverWaitPastTheirOwnLimits) {
    // A 20 s lookup of a program that never reports waits throughout.
    CORBA::release(registerScript("never", "exec sleep 30"));
    ktest::Process longWait;
    ASSERT_TRUE(longWait.start(vextest::command(
        {KELVANOR_VEXCTL_BINARY, "lookup", "Demo::Echo", "never", "--timeout", "20"})));
    ASSERT_TRUE(statusLengthBecomes("never", 1));
    // For ten seconds (thirty took too long), ten clients loop lookups with
    // limits of 1 and 2 s over starts of 1.5 s: they time out, find a start
    // under way (Busy), adopt kept children and reuse servers.
    for (int i = 0; i < 4; ++i)
        CORBA::release(registerSlowEcho(("loop" + std::to_string(i)).c_str(), 1, "sleep 0.5; "));
    const std::string script =
        std::string("end=$((SECONDS+10)); while [ $SECONDS -lt $end ]; do "
                    "o=loop$((RANDOM % 4)); l=$((1 + RANDOM % 2)); t0=$(date +%s%N); ") +
        KELVANOR_VEXCTL_BINARY +
        " lookup Demo::Echo $o --timeout $l >/dev/null 2>&1; r=$?; "
        "echo $l $(( ($(date +%s%N) - t0) / 1000000 )) $r; done";
    std::vector<std::unique_ptr<ktest::Process>> clients;
    for (int i = 0; i < 10; ++i) {
        clients.emplace_back(new ktest::Process);
        ASSERT_TRUE(clients.back()->start(vextest::command({"/bin/bash", "-c", script})));
    }
    int lookups = 0, answered = 0;
    for (auto& c : clients) {
        ASSERT_TRUE(c->wait(milliseconds(30000)));
        std::istringstream lines(c->stdoutText());
        long limit, ms, code;
        while (lines >> limit >> ms >> code) {
            ++lookups;
            answered += code == 0;
            EXPECT_LE(ms, 1000 * limit + kSlackMs) << "limit " << limit << " s, status " << code;
            EXPECT_TRUE(code == 0 || code == 14 || code == 15) << code;
        }
    }
    EXPECT_GT(lookups, 50);
    EXPECT_GT(answered, 0);
    EXPECT_TRUE(longWait.running());
    for (int i = 0; i < 4; ++i) statusLengthBecomes(("loop" + std::to_string(i)).c_str(), 1);
}

class VexDaemonLimits : public vextest::VexActivation {
protected:
    VexDaemonLimits() { _vexArgs.insert(_vexArgs.end(), {"-t", "1", "-k", "1"}); }
};

TEST_F(VexDaemonLimits, DefaultLimitAndChildrenThatNeverReportAreEnded) {
    CORBA::release(registerScript("stubborn", "trap '' TERM; exec sleep 30"));
    // -t: a lookup with no limit of its own has the daemon's.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(_daemon->lookup_implementation("Demo::Echo", "stubborn", -1),
                 Activation::NotResponding);
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1500));
    // -k: SIGTERM a second after the start, which this one ignores, and
    // SIGKILL five seconds later; it stays as starting until then.
    ASSERT_TRUE(ktest::pollUntil(
        [&] { return std::chrono::steady_clock::now() - start > milliseconds(3000); },
        milliseconds(4000)));
    Activation::ImplementationStatus_var s(status("stubborn"));
    ASSERT_EQ(s->status.length(), 1u);
    EXPECT_EQ(s->status[0].activation_state, Activation::WAITING_FOR_ACTIVATION);
    EXPECT_TRUE(statusLengthBecomes("stubborn", 0));
}
