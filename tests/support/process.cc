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

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ktest {

namespace {

void removeTree(const std::string& path) {
    std::error_code ignored;  // what cannot be removed stays
    std::filesystem::remove_all(path, ignored);
}

std::string makeTempDir(const std::string& prefix) {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    return mkdtemp(&tmpl[0]) ? tmpl : std::string();
}

}  // namespace

TempDir::TempDir(const std::string& prefix) : _path(makeTempDir(prefix)) {}

TempDir::~TempDir() {
    if (!_path.empty()) removeTree(_path);
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
    if (!_ownDir.empty()) removeTree(_ownDir);
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
    _stdoutPath = opts.stdoutPath;
    _stderrPath = opts.stderrPath;
    if (_stdoutPath.empty() || _stderrPath.empty()) {
        _ownDir = makeTempDir("kelvanor-proc");
        if (_ownDir.empty()) {
            _error = std::string("mkdtemp: ") + std::strerror(errno);
            return false;
        }
        if (_stdoutPath.empty()) _stdoutPath = _ownDir + "/stdout";
        if (_stderrPath.empty()) _stderrPath = _ownDir + "/stderr";
    }

    // After fork the child may only make async-signal-safe calls.
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

    int in = ::open(opts.stdinPath.empty() ? "/dev/null" : opts.stdinPath.c_str(),
                    O_RDONLY | O_CLOEXEC);
    int out = ::open(_stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    int err = ::open(_stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    int report[2] = {-1, -1};
    if (in < 0 || out < 0 || err < 0 || pipe2(report, O_CLOEXEC) != 0) {
        _error = std::string("open: ") + std::strerror(errno);
        for (int fd : {in, out, err, report[0], report[1]})
            if (fd >= 0) ::close(fd);
        return false;
    }

    pid_t pid = fork();
    if (pid == 0) {
        // An exec failure goes to the parent as errno through the pipe.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        signal(SIGPIPE, SIG_DFL);
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        if (opts.cwd.empty() || chdir(opts.cwd.c_str()) == 0)
            execve(argv[0], argv.data(), envp.data());
        int code = errno;
        ssize_t ignored = ::write(report[1], &code, sizeof code);
        (void)ignored;  // nothing more the child can do
        _exit(127);
    }
    int forkErrno = errno;
    ::close(in);
    ::close(out);
    ::close(err);
    ::close(report[1]);
    if (pid < 0) {
        ::close(report[0]);
        _error = std::string("fork: ") + std::strerror(forkErrno);
        return false;
    }
    _pid = pid;

    int code = 0;
    ssize_t n;
    while ((n = ::read(report[0], &code, sizeof code)) < 0 && errno == EINTR) {
    }
    ::close(report[0]);
    if (n == static_cast<ssize_t>(sizeof code)) {  // exec failed: reap the child
        wait(std::chrono::milliseconds(5000));
        _error = "exec " + opts.argv[0] + ": " + std::strerror(code);
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

}  // namespace ktest
