// A private omniNames for tests: 127.0.0.1 with its default options (its
// references carry IIOP 1.2), a free port, data in a temporary directory;
// ready once it printed its root reference and accepts connections. Stopped by its pid on every way out.
#ifndef KELVANOR_TEST_OMNINAMES_H
#define KELVANOR_TEST_OMNINAMES_H

#include <chrono>
#include <memory>
#include <string>

#include "process.h"

namespace ktest {

class OmniNames {
public:
    static const char* binary() { return "/usr/bin/omniNames"; }
    static bool available();  // tests skip when it is not installed

    OmniNames() = default;
    ~OmniNames();
    OmniNames(const OmniNames&) = delete;
    OmniNames& operator=(const OmniNames&) = delete;

    // False, with error() saying why, if it did not serve within `limit`.
    bool start(std::chrono::milliseconds limit = std::chrono::milliseconds(15000));
    void stop();  // by its pid; also done by the destructor
    const std::string& rootIOR() const { return _ior; }
    unsigned short port() const { return _port; }
    const std::string& error() const { return _error; }
    std::string output() const;  // what it printed so far

private:
    bool tryPort(unsigned short port, std::chrono::steady_clock::time_point deadline);

    std::unique_ptr<TempDir> _dir;
    std::unique_ptr<Process> _proc;
    std::string _ior;
    std::string _error;
    unsigned short _port = 0;
};

}  // namespace ktest

// In a test body: skips the test when omniNames is not installed.
#define KELVANOR_REQUIRE_OMNINAMES()                                         \
    do {                                                                     \
        if (!::ktest::OmniNames::available())                                \
            GTEST_SKIP() << ::ktest::OmniNames::binary() << " is not installed"; \
    } while (0)

#endif
