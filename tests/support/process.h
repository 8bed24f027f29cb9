// Child processes for tests: start a program with its arguments, extra
// environment and working directory, capture what it prints to files, wait
// for it with a deadline, and stop it by its pid on every way out (RAII).
// Also a temporary directory that removes itself and a poll-with-deadline
// helper, so that no test sleeps to wait for readiness.
#ifndef KELVANOR_TEST_PROCESS_H
#define KELVANOR_TEST_PROCESS_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ktest {

// A fresh directory under $TMPDIR (or /tmp), removed with all its content
// by the destructor.
class TempDir {
public:
    explicit TempDir(const std::string& prefix = "kelvanor");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return _path; }
    // path() + "/" + name
    std::string file(const std::string& name) const;

private:
    std::string _path;
};

// Whole content of a file; empty if it cannot be read.
std::string readFile(const std::string& path);
bool writeFile(const std::string& path, const std::string& text);

// Calls pred every `step` until it is true or `limit` has passed; gives the
// last result of pred.
bool pollUntil(const std::function<bool()>& pred, std::chrono::milliseconds limit,
               std::chrono::milliseconds step = std::chrono::milliseconds(10));

class Process {
public:
    struct Options {
        // argv[0] is the path of the program (no PATH search).
        std::vector<std::string> argv;
        // "NAME=value" entries added to (or replacing in) the environment.
        std::vector<std::string> env;
        // Start from an empty environment instead of ours.
        bool clearEnv = false;
        // Working directory; empty keeps ours.
        std::string cwd;
        // Where stdout and stderr go; empty means a file in a private
        // temporary directory, readable with stdoutText()/stderrText().
        std::string stdoutPath;
        std::string stderrPath;
        // Standard input; empty means /dev/null.
        std::string stdinPath;
    };

    Process() = default;
    explicit Process(const Options& opts) { start(opts); }
    // Kills the child with SIGKILL by its pid if it still runs, and reaps it.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // False (with error() telling why) if the program could not be started,
    // exec failures included. A Process starts at most one child.
    bool start(const Options& opts);

    pid_t pid() const { return _pid; }
    bool started() const { return _pid > 0; }
    // True while the child has not been reaped; reaps it if it has ended.
    bool running();
    // Waits until the child ends or `limit` passes. True if it ended.
    bool wait(std::chrono::milliseconds limit);
    // Sends sig to the child's pid (never to a group), waits up to `grace`
    // for it to end, then SIGKILL and reap. True if it ended on `sig`'s
    // account or by itself within the grace time.
    bool stop(int sig = 15, std::chrono::milliseconds grace = std::chrono::milliseconds(2000));

    // After the child ended: its exit code, or -1 if it was killed by a
    // signal; termSignal() is that signal, 0 otherwise.
    int exitCode() const { return _exitCode; }
    int termSignal() const { return _termSignal; }
    bool exited() const { return _reaped; }

    std::string stdoutText() const { return readFile(_stdoutPath); }
    std::string stderrText() const { return readFile(_stderrPath); }
    const std::string& stdoutPath() const { return _stdoutPath; }
    const std::string& stderrPath() const { return _stderrPath; }
    const std::string& error() const { return _error; }

private:
    void record(int status);

    pid_t _pid = -1;
    bool _reaped = false;
    int _exitCode = -1;
    int _termSignal = 0;
    std::string _stdoutPath, _stderrPath, _error;
    std::vector<std::string> _ownFiles;  // capture files we made
    std::string _ownDir;
};

}  // namespace ktest

#endif
