// Starting and stopping a private omniNames for tests.
#include "omninames.h"

#include <thread>

#include <unistd.h>

#include "sockets.h"

namespace ktest {

bool OmniNames::available() { return access(binary(), X_OK) == 0; }

OmniNames::~OmniNames() { stop(); }

std::string OmniNames::output() const {
    return _proc ? _proc->stderrText() + _proc->stdoutText() : std::string();
}

bool OmniNames::start(std::chrono::milliseconds limit) {
    if (_proc || !available()) {
        _error = _proc ? "already started" : std::string(binary()) + " is not installed";
        return false;
    }
    auto deadline = std::chrono::steady_clock::now() + limit;
    // Another process may take the port between our probe and omniNames'
    // bind; then it ends at once and the next port is tried.
    for (int attempt = 0; attempt < 3 && std::chrono::steady_clock::now() < deadline; ++attempt) {
        if (tryPort(freeLoopbackPort(), deadline)) return true;
        stop();
    }
    if (_error.empty()) _error = "omniNames did not start in time";
    return false;
}

bool OmniNames::tryPort(unsigned short port, std::chrono::steady_clock::time_point deadline) {
    _dir.reset(new TempDir("kelvanor-omninames"));
    const std::string p = std::to_string(port);
    Process::Options opts;
    opts.argv = {binary(), "-start", p, "-logdir", _dir->path(), "-ORBendPoint", "giop:tcp:127.0.0.1:" + p};
    opts.cwd = _dir->path();
    _proc.reset(new Process);
    if (!_proc->start(opts)) return _error = _proc->error(), false;
    // Ready once its log holds the whole line "Root context is IOR:..." and
    // the port accepts connections.
    const std::string marker = "Root context is ";
    for (;;) {
        const std::string log = output();
        const size_t at = log.find(marker + "IOR:"), end = log.find_first_of("\r\n", at);
        if (end != std::string::npos && Fd(connectLoopback(port)).fd >= 0) {
            _ior = log.substr(at + marker.size(), end - at - marker.size());
            _port = port;
            _error.clear();
            return true;
        }
        if (!_proc->running() || std::chrono::steady_clock::now() >= deadline) {
            _error = (_proc->running() ? "omniNames did not serve in time: " : "omniNames ended early: ") + log;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void OmniNames::stop() {
    if (_proc) _proc->stop(15, std::chrono::milliseconds(3000));
    _proc.reset();
    _dir.reset();
    _ior.clear();
    _port = 0;
}

}  // namespace ktest
