// Child processes, temporary directories and deadline polling for tests.
#include "process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ktest {

namespace {

std::string makeTempDir(const std::string& prefix) {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    return mkdtemp(&tmpl[0]) ? tmpl : std::string();
}

}  // namespace

TempDir::TempDir(const std::string& prefix) : _path(makeTempDir(prefix)) {}

// What cannot be removed stays.
TempDir::~TempDir() {
    std::error_code ignored;
    if (!_path.empty()) std::filesystem::remove_all(_path, ignored);
}

std::string TempDir::file(const std::string& name) const { return _path + "/" + name; }

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::string();
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

bool pollUntil(const std::function<bool()>& pred, std::chrono::milliseconds limit,
               std::chrono::milliseconds step) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (pred()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return pred();
        std::this_thread::sleep_for(step);
    }
}

Process::~Process() {
    if (_pid > 0 && !_reaped) killAndReap();
    std::error_code ignored;
    if (!_ownDir.empty()) std::filesystem::remove_all(_ownDir, ignored);
}

void Process::killAndReap() {
    ::kill(_pid, SIGKILL);
    int status = 0;
    while (waitpid(_pid, &status, 0) < 0 && errno == EINTR) {
    }
    record(status);
}

bool Process::start(const Options& opts) {
    if (_pid > 0 || opts.argv.empty()) {
        _error = _pid > 0 ? "already started" : "no program";
        return false;
    }
    _ownDir = makeTempDir("kelvanor-proc");
    if (_ownDir.empty()) {
        _error = std::string("mkdtemp: ") + std::strerror(errno);
        return false;
    }
    _stdoutPath = _ownDir + "/stdout";
    _stderrPath = _ownDir + "/stderr";

    std::vector<char*> argv;
    for (const auto& a : opts.argv) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    std::vector<std::string> envStore;
    for (char** e = environ; !opts.clearEnv && e && *e; ++e) envStore.emplace_back(*e);
    for (const auto& add : opts.env) {
        std::string key = add.substr(0, add.find('=') + 1);
        auto same = [&](const std::string& have) { return have.compare(0, key.size(), key) == 0; };
        envStore.erase(std::remove_if(envStore.begin(), envStore.end(), same), envStore.end());
        envStore.push_back(add);
    }
    std::vector<char*> envp;
    for (auto& e : envStore) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);

    // The child starts with no signal blocked and SIGPIPE at its default, as
    // from a shell; the output files are opened before the change of folder.
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(
        &files, 0, opts.stdinPath.empty() ? "/dev/null" : opts.stdinPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, _stdoutPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&files, 2, _stderrPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!opts.cwd.empty()) posix_spawn_file_actions_addchdir_np(&files, opts.cwd.c_str());
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, pipe;
    sigemptyset(&none);
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &pipe);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    // An open, a chdir or the exec that fails is this call's result.
    const int rc = posix_spawn(&_pid, argv[0], &files, &attr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) {
        _pid = -1;
        _error = "start " + opts.argv[0] + ": " + std::strerror(rc);
        return false;
    }
    return true;
}

void Process::record(int status) {
    _reaped = true;
    _exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool Process::running() {
    if (_pid <= 0 || _reaped) return false;
    int status = 0;
    pid_t r = waitpid(_pid, &status, WNOHANG);
    if (r == _pid) {
        record(status);
        return false;
    }
    if (r < 0 && errno == ECHILD) return !(_reaped = true);  // reaped by another
    return true;
}

bool Process::wait(std::chrono::milliseconds limit) {
    if (_pid <= 0) return true;
    return pollUntil([this] { return !running(); }, limit, std::chrono::milliseconds(5));
}

bool Process::stop(int sig, std::chrono::milliseconds grace) {
    if (!running()) return true;
    ::kill(_pid, sig);
    if (wait(grace)) return true;
    killAndReap();
    return false;
}

Outcome run(const Process::Options& opts, std::chrono::milliseconds limit) {
    Outcome r;
    Process p;
    if (!p.start(opts)) {
        ADD_FAILURE() << p.error();
    } else if (!p.wait(limit)) {
        ADD_FAILURE() << opts.argv[0] << " did not end in time";
    } else {
        r.status = p.exitCode();
    }
    r.out = p.stdoutText();
    r.err = p.stderrText();
    return r;
}

}  // namespace ktest
