// The daemon against clients that stall it, never read, or use up its
// descriptors: the others are served all the same, and it never ends.
#include <sys/resource.h>

#include <memory>

#include "../orb/handcdr.h"
#include "giop.h"
#include "sockets.h"
#include "vexfixture.h"
#include "zebglob.h"

namespace {

class VexLimits : public vextest::VexActivation {
protected:
    void SetUp() override {
        // Room for more connections than there will be descriptors.
        const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        if (test.find("NeverEnd") != std::string::npos)
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

TEST_F(VexLimits, StalledClientsHoldNobodyUp) {
    std::unique_ptr<IIOP::ObjectLocator> loc(ZEBGlobalTable::getLocator(_daemon.in()));
    const std::string key(reinterpret_cast<const char*>(loc->object_key.get_buffer()),
                          loc->object_key.length());
    CORBA_CreationImplDef big("Demo::Echo", "big", CORBA_OctetSequence(), "/bin/sh",
                              CORBA_CreationImplDef::SHARED_SERVER,
                              vextest::strings({std::string(64 << 10, 'a')}));
    CORBA::release(_daemon->reg_implementation(&big));
    registerEcho("e");
    std::string burst;  // 4 MiB of replies, never read
    for (uint32_t i = 0; i < 64; ++i)
        burst += handcdr::request(true, i, true, key, "get_status").string("Demo::Echo").string("big").message();
    crowd(burst.substr(0, 6));                                      // half a header
    crowd(burst.substr(0, 12 + (burst.size() / 64 - 12) / 2));       // a header, half a body
    for (int i = 0; i < 30; ++i) crowd(burst);

    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(Activation::ImplementationStatus_var(status("big"))->impl->args.length(), 1u);
    EXPECT_GT(lookupPid("e"), 0);
}

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
