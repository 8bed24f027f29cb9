// A child that prints its reference first; stopped by its pid with the holder.
#ifndef KELVANOR_TEST_ECHO_CHILD_H
#define KELVANOR_TEST_ECHO_CHILD_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "giop.h"
#include "iorstr.h"
#include "process.h"
#include "zebglob.h"

namespace ktest {

// Test programs that were not built have an empty path.
inline bool runnable(const char* path) { return path[0] != '\0' && access(path, X_OK) == 0; }
inline bool echoServerBuilt() { return runnable(KELVANOR_ECHO_SERVER_BINARY); }

inline std::vector<std::string> echoServerArgv(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> argv{KELVANOR_ECHO_SERVER_BINARY, "-OAipaddr", "127.0.0.1"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    return argv;
}

class EchoChild {
public:
    explicit EchoChild(std::vector<std::string> argv = echoServerArgv()) {
        Process::Options opts;
        opts.argv = std::move(argv);
        if (!_proc.start(opts)) return;
        pollUntil(
            [&] {
                std::string out = _proc.stdoutText();
                std::string::size_type end = out.find('\n');
                if (end != std::string::npos && out.compare(0, 4, "IOR:") == 0)
                    ior = out.substr(0, end);
                return !ior.empty() || !_proc.running();
            },
            std::chrono::milliseconds(15000));
        std::unique_ptr<IOP::IOR> parsed(ior.empty() ? nullptr : stringToIOR(ior.c_str()));
        if (parsed) locator.reset(ZEBGlobalTable::getLocator(*parsed));
        if (locator) port = locator->port;
    }
    bool ready() const { return !ior.empty() && port != 0; }
    pid_t pid() const { return _proc.pid(); }
    bool running() { return _proc.running(); }
    void kill() { _proc.stop(9, std::chrono::milliseconds(2000)); }
    std::string output() const { return _proc.stdoutText() + _proc.stderrText(); }

    std::string ior;
    std::unique_ptr<IIOP::ObjectLocator> locator;  // of the first IIOP profile
    unsigned short port = 0;

private:
    Process _proc;
};

}  // namespace ktest

#endif
