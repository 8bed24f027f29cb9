// Who may administer the daemon, which programs it runs, whose reports it
// takes, and the modes of its files.
#include "vextrust.h"

#include <sched.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "repofile.h"
#include "vexfixture.h"
#include "vexsrv.h"

namespace {

// -x in process: what registration and a stored entry meet.
class VEXTrustPrograms : public ::testing::Test {
protected:
    void SetUp() override {
        VEXTrust::reset();
        ASSERT_EQ(0, system(("mkdir -p " + bin + " && cp /bin/true " + bin + "/prog && ln -s /bin/sh " +
                             bin + "/link && touch " + bin + "/plain").c_str()));
    }
    void TearDown() override { VEXTrust::reset(); }
    void reg(VEXImpl& repo, const std::string& path) {
        CORBA_CreationImplDef d("A", path.c_str(), CORBA_OctetSequence(), path.c_str());
        CORBA::release(repo.reg_implementation(&d));
    }
    repofile::Env env;
    std::string bin = env.dir() + "/bin";
};

TEST_F(VEXTrustPrograms, OnlyExecutableFilesWithinTheDirectoriesAreRegistered) {
    VEXImpl repo(0);
    // Not a regular executable file, with or without -x.
    for (const std::string& p : {bin, bin + "/plain", bin + "/none"})
        EXPECT_THROW(reg(repo, p), Activation::InvalidPath) << p;
    reg(repo, "/bin/sh");

    EXPECT_FALSE(VEXTrust::addProgramDir((bin + "/prog").c_str()));
    ASSERT_TRUE(VEXTrust::addProgramDir((bin + "/").c_str()));
    reg(repo, bin + "/prog");
    // Outside, also through a link that resolves outside or a dot-dot.
    for (const std::string& p : {std::string("/bin/true"), bin + "/link", bin + "/../bin2/prog"})
        EXPECT_THROW(reg(repo, p), Activation::InvalidPath) << p;
    CORBA_CreationImplDef old("A", "/bin/sh", CORBA_OctetSequence(), "/bin/sh");
    CORBA_CreationImplDef moved("A", "/bin/sh", CORBA_OctetSequence(), "/bin/true");
    EXPECT_THROW(repo.change_implementation(&old, &moved), Activation::InvalidPath);
}

TEST_F(VEXTrustPrograms, StoredEntriesOutsideAreKeptButNeverStarted) {
    { VEXImpl before(0); reg(before, "/bin/true"); }
    ASSERT_TRUE(VEXTrust::addProgramDir(bin.c_str()));
    std::ostringstream out;
    std::streambuf* old = std::cout.rdbuf(out.rdbuf());
    CORBA_Object* ref = nullptr;
    {
        VEXImpl repo(1);
        EXPECT_EQ(repo.entryCount(), 1u);
        try {
            ref = repo.lookup_implementation("A", "/bin/true", 5);
        } catch (const Activation::NotResponding&) {
        }
        EXPECT_EQ(repo.get_status("A", "/bin/true")->status.length(), 0u);
    }
    std::cout.rdbuf(old);
    EXPECT_EQ(ref, nullptr);
    EXPECT_NE(out.str().find("VEX:: Not starting /bin/true: it is outside the program directories " +
                             bin + "\n"),
              std::string::npos)
        << out.str();
}

TEST_F(VEXTrustPrograms, RepositoryAndTemporaryFilesArePrivate) {
    mode_t mask = umask(0);  // the widest umask: the modes come from the daemon alone
    {
        VEXImpl repo(0);
        reg(repo, "/bin/sh");
    }
    umask(mask);
    struct stat st;
    ASSERT_EQ(0, stat(env.repo().c_str(), &st));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

// A network of the test's own: lo, and a veth pair 10.99.0.1 / 10.99.0.2 in
// one namespace, where a connection to .1 leaves from .2, so that the
// daemon on .1 sees every client of this process as a peer off loopback.
bool enterPrivateNetwork() {
    if (unshare(CLONE_NEWNET) != 0) {
        const std::string uid = std::to_string(getuid()), gid = std::to_string(getgid());
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
        std::ofstream("/proc/self/gid_map") << "0 " << gid << " 1";
    }
    return system("ip link set lo up && ip link add v0 type veth peer name v1 && "
                  "ip addr add 10.99.0.1/24 dev v0 && ip addr add 10.99.0.2/24 dev v1 && "
                  "ip link set v0 up && ip link set v1 up && "
                  "ip route replace local 10.99.0.1 dev v0 table local src 10.99.0.2") == 0;
}

class VexRemotePeer : public vextest::VexActivation {
protected:
    void SetUp() override {
        if (!enterPrivateNetwork()) GTEST_SKIP() << "no network namespace (unshare, ip)";
        _vexArgs = {"-v", "-OAipaddr", "10.99.0.1"};
        if (std::string(::testing::UnitTest::GetInstance()->current_test_info()->name())
                .find("WithA") != std::string::npos)
            _vexArgs.push_back("-a");
        // One registration, made on the host, for the lookups.
        ASSERT_EQ(0, system(("mkdir -p " + _dir.path() + "/impl_dir").c_str()));
        ASSERT_TRUE(ktest::writeFile(
            _dir.path() + "/impl_dir/impl_rep",
            repofile::file({repofile::entry("Demo::Echo", "e", KELVANOR_ECHO_SERVER_BINARY, 0,
                                            {"-OAipaddr", "127.0.0.1"})})));
        VexActivation::SetUp();
    }
    CORBA_CreationImplDef def(const char* obj) {
        return CORBA_CreationImplDef("Demo::Echo", obj, CORBA_OctetSequence(), "/bin/sh");
    }
};

#define EXPECT_NO_PERMISSION(call)                                       \
    try {                                                                \
        call;                                                            \
        ADD_FAILURE() << #call " was served";                            \
    } catch (const CORBA_NO_PERMISSION& e) {                             \
        EXPECT_EQ(e.minor(), 0u);                                        \
        EXPECT_EQ(e.completed(), CORBA::COMPLETED_NO);                   \
    }

TEST_F(VexRemotePeer, IsRefusedAdministrationAndFakeReportsButLooksUp) {
    CORBA_CreationImplDef d = def("x"), e = def("e");
    EXPECT_NO_PERMISSION(CORBA::release(_daemon->reg_implementation(&d)));
    EXPECT_NO_PERMISSION(_daemon->unreg_implementation("Demo::Echo", "e"));
    EXPECT_NO_PERMISSION(_daemon->unreg_interface("Demo::Echo"));
    EXPECT_NO_PERMISSION(_daemon->change_implementation(&e, &d));
    EXPECT_NO_PERMISSION(_daemon->unregister_all());
    EXPECT_NE(_vex.stdoutText().find("VEX:: Refused reg_implementation from 10.99.0.2"),
              std::string::npos);

    // The server the daemon starts reports from .2 as well, and is taken by
    // its pid; a report under any other pid is not.
    CORBA::Long pid = lookupPid("e");
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(oneActive("e", static_cast<CORBA::ULong>(pid)));
    CORBA_Object_var ref(_daemon->lookup_implementation("Demo::Echo", "e", vextest::kStartLimit));
    for (CORBA::Long fake : {static_cast<CORBA::Long>(getpid()), 0, -1})
        EXPECT_THROW(CORBA_CreationImplDef_var(_daemon->boa_activate_obj(ref, "Demo::Echo", fake)),
                     Activation::NotRegistered);
    EXPECT_TRUE(oneActive("e", static_cast<CORBA::ULong>(pid)));
    CORBA_CreationImplDef_var(_daemon->boa_activate_obj(ref, "Demo::Echo", pid));
}

TEST_F(VexRemotePeer, AdministersWithA) {
    CORBA_CreationImplDef d = def("x");
    CORBA::release(_daemon->reg_implementation(&d));
    _daemon->unregister_all();
    Activation::ImplStatusList_var all(_daemon->get_status_all());
    EXPECT_EQ(all->length(), 0u);
}

}  // namespace
