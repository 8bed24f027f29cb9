// Repository speed and size in one run, for the bench table: the time to
// load the file at start (what the daemon's constructor does) and to
// rewrite it after a change, at 100, 1,000 and 10,000 entries, and the peak
// resident size of a process that has loaded 10,000 entries. Output, and
// nothing else on stdout:
//   repo load <n> <ms>
//   repo rewrite <n> <ms>
//   repo rss 10000 <MB>
// Times are medians over several runs. The size comes from a fresh copy of
// this program (re-executed with --rss) that sets up the broker as the daemon
// does, loads the file and reports its peak resident set.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "impldef.h"
#include "orb.h"
#include "vexsrv.h"
#include "zebglob.h"

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// A private repository directory, removed with its files at the end.
class RepoDir {
public:
    RepoDir() {
        char tmpl[] = "/tmp/vextimesXXXXXX";
        _path = mkdtemp(tmpl) ? tmpl : "";
    }
    ~RepoDir() {
        if (_path.empty()) return;
        unlink(file().c_str());
        rmdir(_path.c_str());
    }
    bool ok() const { return !_path.empty(); }
    const std::string& path() const { return _path; }
    std::string file() const { return _path + "/impl_rep"; }
    // Points the daemon's repository at this directory.
    void select() const {
        setenv("KELVANOR_IMPL_PATH", _path.c_str(), 1);
        unsetenv("KELVANOR_IMPL_NAME");
        unsetenv("KELVANOR");
    }

private:
    std::string _path;
};

// n entries over 10 interfaces, each with two arguments and one environment
// string, written by the daemon's own rewrite.
void makeFile(const RepoDir& dir, long n) {
    dir.select();
    unlink(dir.file().c_str());
    VEXImpl repo(0);
    CORBA_StringSequence args;
    args.length(2);
    args[0] = "-ORBport";
    args[1] = "0";
    CORBA_StringSequence env;
    env.length(1);
    env[0] = "LANG=C";
    for (long i = 0; i < n; ++i) {
        std::string iface = "IDL:Bench/Iface" + std::to_string(i % 10) + ":1.0";
        std::string obj = "object-" + std::to_string(i);
        CORBA_CreationImplDef d(iface.c_str(), obj.c_str(), CORBA_OctetSequence(), "/bin/sh",
                                CORBA_CreationImplDef::SHARED_SERVER, args, env);
        repo._addImpl(&d);
    }
    repo._updateRepository(VEXImpl::RepoEdit());
}

void measure(const RepoDir& dir, long n, int runs) {
    makeFile(dir, n);
    std::vector<double> load, rewrite;
    for (int r = 0; r < runs; ++r) {
        Clock::time_point start = Clock::now();
        std::unique_ptr<VEXImpl> repo(new VEXImpl(0));
        load.push_back(msSince(start));
        if (repo->entryCount() != static_cast<unsigned long>(n)) {
            std::cerr << "repository_times: loaded " << repo->entryCount() << " of " << n
                      << " entries" << std::endl;
            exit(1);
        }
        start = Clock::now();
        repo->_updateRepository(VEXImpl::RepoEdit());
        rewrite.push_back(msSince(start));
    }
    std::printf("repo load %ld %.2f\n", n, median(load));
    std::printf("repo rewrite %ld %.2f\n", n, median(rewrite));
    std::fflush(stdout);
}

// The child of --rss: the broker set up as the daemon sets it up, then the
// load; the peak resident set in MB goes to stdout.
int rssChild(int argc, char** argv) {
    CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv, nullptr);
    orb->BOA_init(argc, argv, nullptr);
    ZEBGlobalTable::call_bind_unbind = 0;
    ZEBGlobalTable::recursion = 1;
    ZEBGlobalTable::is_vex = 1;
    VEXImpl repo(0);
    rusage use;
    if (getrusage(RUSAGE_SELF, &use) != 0) return 1;
    std::printf("%.1f\n", use.ru_maxrss / 1024.0);  // ru_maxrss is in KB
    return 0;
}

// Runs this program again with --rss on the 10,000-entry file; its answer,
// or a negative number.
double rssOfLoad(const RepoDir& dir) {
    makeFile(dir, 10000);
    int out[2];
    if (pipe(out) != 0) return -1;
    pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        dup2(out[1], 1);
        ::close(out[0]);
        ::close(out[1]);
        execl("/proc/self/exe", "repository_times", "--rss", static_cast<char*>(nullptr));
        _exit(127);
    }
    ::close(out[1]);
    std::string text;
    char buf[64];
    ssize_t k;
    while ((k = read(out[0], buf, sizeof buf)) != 0) {
        if (k < 0) break;
        text.append(buf, static_cast<size_t>(k));
    }
    ::close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || text.empty()) return -1;
    return std::atof(text.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--rss") == 0) return rssChild(argc, argv);
    RepoDir dir;
    if (!dir.ok()) {
        std::cerr << "repository_times: no temporary directory" << std::endl;
        return 1;
    }
    // The first servant sets up the broker's global table; keep that out of
    // the times.
    makeFile(dir, 10);
    { VEXImpl warm(0); }
    measure(dir, 100, 21);
    measure(dir, 1000, 11);
    measure(dir, 10000, 7);
    double rss = rssOfLoad(dir);
    if (rss < 0) {
        std::cerr << "repository_times: the size could not be measured" << std::endl;
        return 1;
    }
    std::printf("repo rss 10000 %.1f\n", rss);
    return 0;
}
