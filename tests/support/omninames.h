// A private omniNames naming service for tests: started on 127.0.0.1 with
// GIOP 1.0 at most, on a free port, with its data in a fresh temporary
// directory; ready once its root context reference has been printed and its
// port accepts connections. Stopped by its pid on every way out.
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
    // True if the binary is installed; tests skip when it is not.
    static bool available();

    OmniNames() = default;
    ~OmniNames();
    OmniNames(const OmniNames&) = delete;
    OmniNames& operator=(const OmniNames&) = delete;

    // Starts it and waits until it serves. False, with error() saying why,
    // if it did not come up within `limit` (a few ports are tried).
    bool start(std::chrono::milliseconds limit = std::chrono::milliseconds(15000));
    // Stops it by its pid; also done by the destructor.
    void stop();

    // "IOR:..." of the root naming context.
    const std::string& rootIOR() const { return _ior; }
    const char* host() const { return "127.0.0.1"; }
    unsigned short port() const { return _port; }
    pid_t pid() const { return _proc ? _proc->pid() : -1; }
    const std::string& error() const { return _error; }
    // What it printed so far (its log goes to standard error).
    std::string output() const;

private:
    bool tryPort(unsigned short port, std::chrono::steady_clock::time_point deadline);

    std::unique_ptr<TempDir> _dir;
    std::unique_ptr<Process> _proc;
    std::string _ior;
    std::string _error;
    unsigned short _port = 0;
};

// A port on 127.0.0.1 that nobody listens on right now; 0 if none found.
unsigned short freeLoopbackPort();
// True once a TCP connection to 127.0.0.1:port succeeds.
bool loopbackPortOpen(unsigned short port);

}  // namespace ktest

// In a test body: skips the test when omniNames is not installed.
#define KELVANOR_REQUIRE_OMNINAMES()                                         \
    do {                                                                     \
        if (!::ktest::OmniNames::available())                                \
            GTEST_SKIP() << ::ktest::OmniNames::binary() << " is not installed"; \
    } while (0)

#endif
