// Child processes for tests, stopped by their pid on every way out, a
// self-removing temporary directory and polling with a deadline.
#ifndef KELVANOR_TEST_PROCESS_H
#define KELVANOR_TEST_PROCESS_H

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace ktest {

// A fresh directory under $TMPDIR (or /tmp), removed with its content.
class TempDir {
public:
    explicit TempDir(const std::string& prefix = "kelvanor");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return _path; }
    std::string file(const std::string& name) const;

private:
    std::string _path;
};

// Whole content of a file; empty if unreadable.
std::string readFile(const std::string& path);
bool writeFile(const std::string& path, const std::string& text);

// Calls pred every `step` until it is true or `limit` has passed.
bool pollUntil(const std::function<bool()>& pred, std::chrono::milliseconds limit,
               std::chrono::milliseconds step = std::chrono::milliseconds(10));

class Process {
public:
    struct Options {
        std::vector<std::string> argv;  // argv[0]: path of the program
        std::vector<std::string> env;   // "NAME=value", added or replacing
        bool clearEnv = false;          // start from an empty environment
        std::string cwd;                // empty keeps ours
        std::string stdinPath;          // empty: /dev/null
        // Standard output and error go to private files.
    };

    Process() = default;
    ~Process();  // SIGKILL by pid if still running, then reap
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // False, with error() telling why, if the program could not be started.
    bool start(const Options& opts);

    pid_t pid() const { return _pid; }
    bool running();  // reaps the child if it has ended
    bool wait(std::chrono::milliseconds limit);  // true if it ended
    // sig to the pid (never a group), then SIGKILL after `grace`; true if
    // it ended within the grace time.
    bool stop(int sig = 15, std::chrono::milliseconds grace = std::chrono::milliseconds(2000));

    int exitCode() const { return _exitCode; }  // -1 if killed by a signal

    std::string stdoutText() const { return readFile(_stdoutPath); }
    std::string stderrText() const { return readFile(_stderrPath); }
    const std::string& error() const { return _error; }

private:
    void record(int status);
    void killAndReap();

    pid_t _pid = -1;
    bool _reaped = false;
    int _exitCode = -1;
    std::string _stdoutPath, _stderrPath, _error;
    std::string _ownDir;
};

// A program run to its end: its status (-1 if it was killed by a signal, or
// did not start or end within the limit, which also fails the test) and
// what it printed.
struct Outcome {
    int status = -1;
    std::string out, err;
};
Outcome run(const Process::Options& opts,
            std::chrono::milliseconds limit = std::chrono::milliseconds(20000));
inline Outcome run(std::vector<std::string> argv,
                   std::chrono::milliseconds limit = std::chrono::milliseconds(20000)) {
    Process::Options opts;
    opts.argv = std::move(argv);
    return run(opts, limit);
}

}  // namespace ktest

#endif
