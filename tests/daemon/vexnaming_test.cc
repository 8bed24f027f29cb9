// The daemon as a user runs it: beside a real naming service (omniNames on
// loopback), bound under "VEX", administered over IIOP by the generated
// Activation::VEX stub and by an omniORB client built from the same IDL.
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "repofile.h"
#include "vexfixture.h"
#include "zebstub.h"

using std::chrono::milliseconds;
using VexNaming = vextest::VexActivation;

TEST_F(VexNaming, RegistersServesItsInterfaceAndKeepsItsBindingFromASecond) {
    EXPECT_FALSE(_vex.wait(milliseconds(300))) << "vex ended: " << _vex.stdoutText();
    EXPECT_TRUE(_daemon->_is_a("IDL:pellomar/Activation/VEX:1.0"));

    // A second daemon registers too, and leaves the first one's binding.
    ktest::Process second;
    ASSERT_TRUE(startVex(second, std::to_string(ktest::freeLoopbackPort()))) << second.stdoutText();
    EXPECT_TRUE(second.running());
    Activation::VEX_var again(resolveVEX(nullptr));
    ASSERT_NE(again.in(), nullptr);
    EXPECT_EQ(std::to_string(again->_stub()->locator()->port), _port);
}

// SIGTERM with a connection open: status 1, the file as it was. Restarted on
// its port, the old reference reconnects and the registration is back.
TEST_F(VexNaming, RestartedOnItsPortServesOldReferencesFromItsFile) {
    Activation::VEX_ptr v = _daemon.in();
    CORBA_CreationImplDef kept("Demo::Echo", "kept", CORBA_OctetSequence(), "/bin/sh");
    CORBA_Object_var ref(v->reg_implementation(&kept));
    ASSERT_NE(ref.in(), nullptr);
    EXPECT_STREQ(ref->_object_name(), "kept");
    const std::string before = ktest::readFile(repo());
    EXPECT_EQ(before, repofile::file({repofile::entry("Demo::Echo", "kept")}));
    _vex.stop(15);
    EXPECT_EQ(_vex.exitCode(), 1) << _vex.stdoutText() << _vex.stderrText();
    EXPECT_EQ(ktest::readFile(repo()), before);
    ktest::Process again;
    ASSERT_TRUE(startVex(again, _port)) << again.stdoutText() << again.stderrText();
    CORBA_CreationImplDef_var got(v->get_implementation("Demo::Echo", "kept"));
    EXPECT_STREQ(got->path, "/bin/sh");
}

TEST_F(VexNaming, OmniorbClientAdministersTheDaemon) {
    const char* client = KELVANOR_OMNI_VEX_CLIENT_BINARY;
    if (client[0] == '\0') GTEST_SKIP() << "omniORB peers not built";
    const std::string ior = byNames(_daemon);
    auto run = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {client, ior});
        ktest::Outcome r = ktest::run(args);
        EXPECT_EQ(r.status, 0) << r.out << r.err;
        return r.out;
    };
    EXPECT_EQ(run({"reg", "Demo::Echo", "o", "/bin/sh", "1", "-x", "y"}), "ok reference\n");
    EXPECT_EQ(run({"change", "Demo::Echo", "o", "/bin/ls"}), "ok\n");
    EXPECT_EQ(run({"get", "Demo::Echo", "o"}), "ok Demo::Echo o /bin/ls 1 args -x y\n");
    EXPECT_EQ(run({"unreg-all"}), "ok\n");
}

TEST_F(VexNaming, VexctlFindsTheDaemonAndReportsRefusalsByStatus) {
    ktest::Outcome r = vexctl({"reg", "Demo::Echo", "e", "/bin/sh", "--policy", "unshared", "--arg=-OAport",
                    "--arg", "7", "--env", "A=1"});
    EXPECT_EQ(r.status, 0) << r.err;
    r = vexctl({"get", "Demo::Echo", "e"});
    EXPECT_EQ(r.out,
              "interface: Demo::Echo\nobject:    e\npath:      /bin/sh\npolicy:    unshared\n"
              "arg:       -OAport\narg:       7\nenv:       A=1\n");
    r = vexctl({"status"});
    EXPECT_EQ(r.out,
              "INTERFACE                OBJECT           POLICY     STATE     PID\n"
              "Demo::Echo               e                unshared   idle      -\n");
    const std::vector<std::pair<std::vector<std::string>, int>> refusals = {
        {{"reg", "Demo::Echo", "e", "/bin/sh"}, 11},
        {{"reg", "Demo::Echo", "f", "/no/such"}, 12},
        {{"unreg", "Demo::Echo", "f"}, 10},
        {{"frobnicate"}, 2},
    };
    for (const auto& c : refusals) {
        r = vexctl(c.first);
        EXPECT_EQ(r.status, c.second) << c.first[0] << ": " << r.err;
        EXPECT_NE(r.err, "");
    }
    EXPECT_EQ(vexctl({"unreg-all"}).status, 0);
    // Without a naming service to ask, and no --ior, there is no daemon.
    unsetenv("NS_SERVER_ROOT");
    setenv("NS_SERVER_ID", "nobody", 1);
    EXPECT_EQ(vexctl({"unreg-all"}).status, 3);
}
