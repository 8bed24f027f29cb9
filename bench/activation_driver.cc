// The client side of activation_bench.sh: registers echo_server with a
// running daemon and times, in microseconds,
//   cold_shared   lookup_implementation of an entry whose server is not
//                 running, until the reference is in hand (the daemon
//                 starts the server and waits for its report);
//   cold_static   the same with the statically linked echo_server;
//   warm          lookup_implementation of the running shared server;
//   null          Demo::Echo::pid() on that server, the null call;
//   omni_start    a bare omniORB server, from spawning it to the first line
//                 of its output, its reference.
// Each figure is a median, printed as "<name> <microseconds>". Every server
// pid is appended to <pid-file> before anything else is done with it, so
// that the script can stop whatever is left by pid.
// The daemon is found through $NS_SERVER_ROOT and $NS_SERVER_ID.
// Usage: activation_driver <echo_server> <echo_server_static|-> <omni_echo_server>
//                          <runs> <calls> <pid-file>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "Activation.h"
#include "echo.h"
#include "except.h"
#include "impldef.h"
#include "orb.h"
#include "vex_functions.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kInterface = "Demo::Echo";

double microsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

class PidLog {
public:
    explicit PidLog(const std::string& path) : _out(path, std::ios::app) {}
    void add(long pid) {
        if (pid > 1) _out << pid << std::endl;
    }

private:
    std::ofstream _out;
};

// Waits until the entry has no process, for at most ten seconds.
bool waitIdle(Activation::VEX* vex, const char* object) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (Clock::now() < deadline) {
        Activation::ImplementationStatus_var s(vex->get_status(kInterface, object));
        if (s->status.length() == 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

// Kills the servers of an entry by the pids that the daemon reports.
void stopServers(Activation::VEX* vex, const char* object, PidLog& log) {
    Activation::ImplementationStatus_var s(vex->get_status(kInterface, object));
    for (CORBA::ULong i = 0; i < s->status.length(); ++i) {
        const long pid = static_cast<long>(s->status[i].process_id);
        log.add(pid);
        if (pid > 1) kill(static_cast<pid_t>(pid), SIGKILL);
    }
}

// On a failure: every server the daemon knows of, stopped by its pid.
void stopAll(Activation::VEX* vex, PidLog& log) {
    if (!vex) return;
    try {
        Activation::ImplStatusList_var all(vex->get_status_all());
        for (CORBA::ULong i = 0; i < all->length(); ++i)
            for (CORBA::ULong j = 0; j < (*all)[i].status.length(); ++j) {
                const long pid = static_cast<long>((*all)[i].status[j].process_id);
                log.add(pid);
                if (pid > 1) kill(static_cast<pid_t>(pid), SIGKILL);
            }
    } catch (const CORBA_Exception&) {
    }
}

void registerEcho(Activation::VEX* vex, const char* object, const char* path) {
    CORBA_StringSequence args(2);
    args.length(2);
    args[0] = CORBA::string_dup("-OAipaddr");
    args[1] = CORBA::string_dup("127.0.0.1");
    CORBA_CreationImplDef d(kInterface, object, CORBA_OctetSequence(), path,
                            CORBA_CreationImplDef::SHARED_SERVER, args);
    CORBA::release(vex->reg_implementation(&d));
}

// Median time of a lookup that has to start the server, over `runs` starts.
double coldActivation(Activation::VEX* vex, const char* object, const char* path, int runs,
                      PidLog& log) {
    registerEcho(vex, object, path);
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        if (!waitIdle(vex, object)) throw std::runtime_error("the entry stays busy");
        const auto start = Clock::now();
        CORBA_Object_var ref(vex->lookup_implementation(kInterface, object, -1));
        times.push_back(microsSince(start));
        stopServers(vex, object, log);
        if (!ref.in()) throw std::runtime_error("a lookup gave no reference");
    }
    if (!waitIdle(vex, object)) throw std::runtime_error("the entry stays busy");
    return median(times);
}

// Median time from spawning the program to the end of its first line of
// output; the process is killed after each run.
double firstLineTime(const char* path, int runs, PidLog& log) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        int fds[2];
        if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
        const auto start = Clock::now();
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(fds[1], 1);
            close(fds[0]);
            close(fds[1]);
            char* argv[] = {const_cast<char*>(path), nullptr};
            execv(path, argv);
            _exit(127);
        }
        close(fds[1]);
        if (pid < 0) {
            close(fds[0]);
            throw std::runtime_error("fork failed");
        }
        std::string line;
        char c;
        while (read(fds[0], &c, 1) == 1 && c != '\n') line += c;
        const double t = microsSince(start);
        log.add(pid);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(fds[0]);
        if (line.compare(0, 4, "IOR:") != 0)
            throw std::runtime_error(std::string(path) + " printed no reference");
        times.push_back(t);
    }
    return median(times);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 7) {
        std::cerr << "usage: activation_driver <echo_server> <echo_server_static|-> "
                     "<omni_echo_server> <runs> <calls> <pid-file>"
                  << std::endl;
        return 2;
    }
    const char* echoPath = argv[1];
    const std::string staticPath = argv[2];
    const char* omniPath = argv[3];
    const int runs = std::atoi(argv[4]);
    const int calls = std::atoi(argv[5]);
    PidLog log(argv[6]);
    if (runs <= 0 || calls <= 0) {
        std::cerr << "activation_driver: runs and calls must be positive" << std::endl;
        return 2;
    }
    Activation::VEX_var vex;
    try {
        int orbArgc = 1;
        CORBA::ORB_init(orbArgc, argv);
        vex = resolveVEX(nullptr);
        if (!vex.in()) {
            std::cerr << "activation_driver: no daemon in the naming service" << std::endl;
            return 1;
        }
        // The connection to the daemon is made before anything is timed.
        Activation::ImplStatusList_var all(vex->get_status_all());

        std::cout << "cold_shared " << coldActivation(vex, "cold", echoPath, runs, log)
                  << std::endl;
        if (staticPath != "-")
            std::cout << "cold_static "
                      << coldActivation(vex, "cold_static", staticPath.c_str(), runs, log)
                      << std::endl;

        registerEcho(vex, "warm", echoPath);
        CORBA_Object_var first(vex->lookup_implementation(kInterface, "warm", -1));
        Demo::Echo_var echo(Demo::Echo::_narrow(first));
        if (!echo.in()) throw std::runtime_error("the warm server gave no Demo::Echo");
        log.add(echo->pid());
        // Lookups and null calls take turns in blocks, so that a change of
        // load on the machine falls on both.
        std::vector<double> lookups, nulls;
        const int blocks = 10;
        const int perBlock = std::max(1, calls / blocks);
        for (int b = 0; b < blocks; ++b) {
            for (int i = 0; i < perBlock; ++i) {
                const auto start = Clock::now();
                CORBA_Object_var ref(vex->lookup_implementation(kInterface, "warm", -1));
                lookups.push_back(microsSince(start));
            }
            for (int i = 0; i < perBlock; ++i) {
                const auto start = Clock::now();
                echo->pid();
                nulls.push_back(microsSince(start));
            }
        }
        std::cout << "warm " << median(lookups) << std::endl;
        std::cout << "null " << median(nulls) << std::endl;
        stopServers(vex, "warm", log);

        std::cout << "omni_start " << firstLineTime(omniPath, runs, log) << std::endl;
    } catch (const CORBA_Exception& e) {
        std::cerr << "activation_driver: " << e << std::endl;
        stopAll(vex, log);
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "activation_driver: " << e.what() << std::endl;
        stopAll(vex, log);
        return 1;
    }
    return 0;
}
