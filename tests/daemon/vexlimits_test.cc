// The daemon out of descriptors: it refuses what needs a file, never ends,
// and serves again once the crowd has gone. (Stalled clients are the echo
// server's test: the same serving loop.)
#include <sys/resource.h>

#include <memory>

#include "sockets.h"
#include "vexfixture.h"
#include "zebglob.h"

namespace {

class VexLimits : public vextest::VexActivation {
protected:
    void SetUp() override {
        // Room for more connections than there will be descriptors.
        _vexArgs.insert(_vexArgs.end(), {"-OAmaxconn", "100"});
        VexActivation::SetUp();
    }
    // A raw connection to the daemon that sends bytes and then sits.
    void crowd(const std::string& bytes) {
        _crowd.emplace_back(new ktest::Fd(ktest::connectLoopback(std::stoi(_port))));
        ASSERT_TRUE(_crowd.back()->fd >= 0 && ktest::sendAll(_crowd.back()->fd, bytes));
    }
    std::vector<std::unique_ptr<ktest::Fd>> _crowd;
};

// Out of descriptors: a registration is served or refused, the daemon never
// ends, and it serves again once the crowd has gone.
TEST_F(VexLimits, FortyIdleClientsNeverEndTheDaemon) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers' own checks need descriptors";
#endif
    Activation::ImplStatusList_var none(_daemon->get_status_all());  // connected first
    struct rlimit lim;
    ASSERT_EQ(0, prlimit(_vex.pid(), RLIMIT_NOFILE, nullptr, &lim));
    lim.rlim_cur = 32;
    ASSERT_EQ(0, prlimit(_vex.pid(), RLIMIT_NOFILE, &lim, nullptr));
    for (int i = 0; i < 40; ++i) crowd("");
    bool refused = false;
    for (int i = 0; i < 5 && !refused; ++i) {
        try {
            registerEcho(("during" + std::to_string(i)).c_str());
        } catch (const CORBA_PERSIST_STORE& e) {
            refused = e.minor() == EMFILE;
        }
        usleep(100000);
    }
    EXPECT_TRUE(refused);
    _crowd.clear();
    EXPECT_TRUE(ktest::pollUntil(
        [&] {
            try {
                registerEcho("after");
                return true;
            } catch (const CORBA_SystemException&) {
                return false;
            }
        },
        vextest::milliseconds(10000)));
    EXPECT_GT(lookupPid("after"), 0);
}

}  // namespace
