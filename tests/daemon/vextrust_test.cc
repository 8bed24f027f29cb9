// Who may administer the daemon, which programs it runs, whose reports it
// takes, and the mode of its files; the batching of its standard output.
#include "vextrust.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <sstream>

#include "netns.h"
#include "repofile.h"
#include "thrown.h"
#include "vexbatch.h"
#include "vexfixture.h"
#include "vexsrv.h"

namespace {

// The text the stream was given and how often it was flushed.
struct Sink : std::stringbuf {
    int flushes = 0;
    int sync() override { return ++flushes, 0; }
};

void reg(VEXImpl& repo, const std::string& path) {
    CORBA_CreationImplDef d("A", path.c_str(), CORBA_OctetSequence(), path.c_str());
    CORBA::release(repo.reg_implementation(&d));
}

TEST(VEXTrust, ProgramsAreExecutableFilesWithinTheDirectoriesAndTheFileIsPrivate) {
    VEXTrust::reset();
    repofile::Env env;
    const std::string bin = env.dir() + "/bin";
    ASSERT_EQ(0, system(("mkdir " + bin + " && cp /bin/true " + bin + "/prog && ln -s /bin/sh " +
                         bin + "/link && touch " + bin + "/plain").c_str()));
    mode_t mask = umask(0);
    {
        VEXImpl repo(0);
        for (const std::string& p : {bin, bin + "/plain", bin + "/none"})
            EXPECT_THROW(reg(repo, p), Activation::InvalidPath) << p;
        reg(repo, "/bin/true");  // stored before -x

        ASSERT_FALSE(VEXTrust::addProgramDir((bin + "/prog").c_str()));
        ASSERT_TRUE(VEXTrust::addProgramDir((bin + "/").c_str()));
        reg(repo, bin + "/prog");
        for (const std::string& p : {std::string("/bin/sh"), bin + "/link", bin + "/../bin2/prog"})
            EXPECT_THROW(reg(repo, p), Activation::InvalidPath) << p;
    }
    umask(mask);
    struct stat st;
    ASSERT_EQ(0, stat(env.repo().c_str(), &st));
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // The entry stored before is loaded, and never started. A verbose load
    // goes out in a few large writes, not one per line.
    Sink out;
    std::streambuf* old = std::cout.rdbuf(&out);
    {
        VEXImpl repo(1);
        EXPECT_LE(out.flushes, 4);
        EXPECT_EQ(repo.entryCount(), 2u);
        EXPECT_THROW(CORBA::release(repo.lookup_implementation("A", "/bin/true", 5)),
                     Activation::NotResponding);
    }
    std::cout.rdbuf(old);
    VEXTrust::reset();
    EXPECT_NE(out.str().find("VEX:: Not starting /bin/true: it is outside the program "
                             "directories " + bin + "\n"),
              std::string::npos)
        << out.str();
}

// A veth pair 10.99.0.1 / .2 in a namespace of our own, routed so that a
// connection to .1 leaves from .2: the daemon on .1 sees a peer off loopback.
bool enterPrivateNetwork(std::string& why) {
    if (!ktest::enterNetNamespace(why) || !ktest::addVethPair(why)) return false;
    why = "ip could not route 10.99.0.1 from 10.99.0.2";
    return system("ip addr add 10.99.0.2/24 dev kvb && "
                  "ip route replace local 10.99.0.1 dev kva table local src 10.99.0.2") == 0;
}

class VexRemotePeer : public vextest::VexActivation {
protected:
    void SetUp() override {
        std::string why;
        if (!enterPrivateNetwork(why)) GTEST_SKIP() << why;
        _vexArgs = {"-v", "-OAipaddr", "10.99.0.1"};
        const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        if (test.find("WithA") != std::string::npos) _vexArgs.push_back("-a");
        // One entry, made on the host, for the lookups.
        ASSERT_EQ(0, system(("mkdir -p " + _dir.path() + "/impl_dir").c_str()));
        ASSERT_TRUE(ktest::writeFile(_dir.path() + "/impl_dir/impl_rep",
                                     repofile::file({repofile::entry(
                                         "Demo::Echo", "e", KELVANOR_ECHO_SERVER_BINARY, 0,
                                         {"-OAipaddr", "127.0.0.1"})})));
        VexActivation::SetUp();
    }
    CORBA_CreationImplDef def(const char* obj) {
        return CORBA_CreationImplDef("Demo::Echo", obj, CORBA_OctetSequence(), "/bin/sh");
    }
};

TEST_F(VexRemotePeer, IsRefusedAdministrationAndFakeReportsButLooksUp) {
    CORBA_CreationImplDef d = def("x"), e = def("e");
    const std::vector<std::function<void()>> admin = {
        [&] { CORBA::release(_daemon->reg_implementation(&d)); },
        [&] { _daemon->unreg_implementation("Demo::Echo", "e"); },
        [&] { _daemon->unreg_interface("Demo::Echo"); },
        [&] { _daemon->change_implementation(&e, &d); },
        [&] { _daemon->unregister_all(); }};
    for (const auto& op : admin) {
        const CORBA_NO_PERMISSION x = ktest::thrown<CORBA_NO_PERMISSION>(op);
        EXPECT_TRUE(x.minor() == 0 && x.completed() == CORBA::COMPLETED_NO);
    }
    EXPECT_NE(_vex.stdoutText().find("VEX:: Refused reg_implementation from 10.99.0.2"),
              std::string::npos);

    // The server the daemon starts reports from .2 too and is taken by its
    // pid; a report under another pid is not.
    CORBA::Long pid = lookupPid("e");
    CORBA_Object_var ref(_daemon->lookup_implementation("Demo::Echo", "e", vextest::kStartLimit));
    for (CORBA::Long fake : {static_cast<CORBA::Long>(getpid()), 0, -1})
        EXPECT_THROW(CORBA_CreationImplDef_var(_daemon->boa_activate_obj(ref, "Demo::Echo", fake)),
                     Activation::NotRegistered);
    EXPECT_TRUE(oneActive("e", static_cast<CORBA::ULong>(pid)));
}

TEST_F(VexRemotePeer, AdministersWithA) {
    CORBA_CreationImplDef d = def("x");
    CORBA::release(_daemon->reg_implementation(&d));
    _daemon->unregister_all();
}

TEST(VEXOutputBatch, AFullBlockGoesOnWhileHeldNothingIsLostAndTheSignalPathWritesTheRest) {
    Sink sink;
    std::ostream os(&sink);
    std::string expected;
    {
        VEXOutputBatch batch(os);
        VEXOutputBatch::Hold hold;
        for (int i = 0; i < 20000; ++i) {
            std::string line = "line " + std::to_string(i) + "\n";
            os << line << std::flush;
            expected += line;
        }
        // Well over one block was written: some of it has gone on, in blocks.
        EXPECT_GT(sink.str().size(), 0u);
        EXPECT_EQ(sink.str(), expected.substr(0, sink.str().size()));
        EXPECT_LT(sink.flushes, 10);
    }
    EXPECT_EQ(sink.str(), expected);

    ktest::TempDir dir("vexbatch");
    const std::string file = dir.file("out");
    VEXOutputBatch batch(os);
    {
        VEXOutputBatch::Hold hold;
        os << "held" << std::endl;
    }
    std::cout.flush();
    int saved = dup(1);
    ASSERT_GE(saved, 0);
    int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    dup2(fd, 1);
    close(fd);
    VEXOutputBatch::flushFromSignal();
    dup2(saved, 1);
    close(saved);
    EXPECT_EQ(ktest::readFile(file), "held\n");
}

}  // namespace
