// omni_echo_client: calls a Demo::Echo object through omniORB over GIOP 1.0,
// to check a server against an independent ORB and to time it.
//   check      _is_a, say (empty, short, 10,000 characters), pid, note and
//              _non_existent, one line each; exit 0 only if all are right
//   latency N  N two-way pid() calls; prints microseconds per call
//   oneway N   N note("") then one pid() to flush; prints calls per second
//   bulk N     N say() calls of 64 KiB each; prints calls per second
//   rounds N G N rounds of say("hi") and pid(), "hi <pid>" or the exception's
//              name each; before round k > 1 it waits up to 20 s for file G.k
// The object is a reference, or "name:<id>": resolved in the naming service
// that omni_vex_naming.h finds, as any client that knows nothing of vex.
// Usage: omni_echo_client [-ORB options] <IOR:...|name:id>
//            check|latency N|oneway N|bulk N|rounds N G
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>
#include <thread>

#include <unistd.h>

#include <echo.hh>

#include "omni_vex_naming.h"

namespace {

const char* const kRepoId = "IDL:Demo/Echo:1.0";

using Clock = std::chrono::steady_clock;

// One line per call, "<what>: ok" or "<what>: FAILED" with the name of the
// exception if it threw; true if ok.
bool line(const std::string& what, const std::function<bool()>& call) {
    bool ok = false;
    std::string detail;
    try {
        ok = call();
    } catch (const CORBA::Exception& e) {
        detail = std::string(" (") + e._name() + ")";
    }
    std::cout << what << ": " << (ok ? "ok" : "FAILED") << detail << std::endl;
    return ok;
}

// The stub's _is_a answers from the type it was made for without asking the
// server; a dynamic request makes the server answer.
bool remoteIsA(CORBA::Object_ptr obj, const char* repoId) {
    CORBA::Request_var req = obj->_request("_is_a");
    req->add_in_arg() <<= repoId;
    req->set_return_type(CORBA::_tc_boolean);
    req->invoke();
    CORBA::Boolean result = 0;
    req->return_value() >>= CORBA::Any::to_boolean(result);
    return result;
}

bool check(Demo::Echo_ptr echo) {
    bool ok = line("_is_a", [&] { return remoteIsA(echo, kRepoId); });
    for (const std::string& s : {std::string(), std::string("hello"), std::string("a b\tc"), std::string(10000, 'k')})
        ok &= line("say(" + std::to_string(s.size()) + " chars)",
                   [&] { return s == CORBA::String_var(echo->say(s.c_str())).in(); });
    ok &= line("pid", [&] { return echo->pid() > 0; });
    ok &= line("note", [&] { return echo->note("a note"), true; });
    ok &= line("_non_existent", [&] { return !echo->_non_existent(); });
    std::cout << (ok ? "check passed" : "check FAILED") << std::endl;
    return ok;
}

// N calls of one kind after one that connects, timed.
void timed(Demo::Echo_ptr echo, const std::string& mode, long n) {
    const std::string text(64 * 1024, 'k');
    echo->pid();
    auto start = Clock::now();
    for (long i = 0; i < n; ++i) {
        if (mode == "latency")
            echo->pid();
        else if (mode == "oneway")
            echo->note("");
        else if (std::strlen(CORBA::String_var(echo->say(text.c_str())).in()) != text.size())
            throw CORBA::MARSHAL();
    }
    if (mode == "oneway") echo->pid();  // returns once the server has taken every note
    const double s = std::chrono::duration<double>(Clock::now() - start).count();
    if (mode == "latency")
        std::cout << "latency " << s * 1e6 / n << " us/call (" << n << " calls)" << std::endl;
    else
        std::cout << mode << " " << static_cast<long>(n / s) << " calls/s (" << n
                  << (mode == "bulk" ? " calls of 64 KiB)" : " calls)") << std::endl;
}

int rounds(Demo::Echo_ptr echo, long n, const std::string& go) {
    int status = 0;
    for (long k = 1; k <= n; ++k) {
        const std::string file = go + "." + std::to_string(k);
        for (auto end = Clock::now() + std::chrono::seconds(20);
             k > 1 && access(file.c_str(), F_OK) != 0 && Clock::now() < end;)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        try {
            CORBA::String_var back = echo->say("hi");
            std::cout << back.in() << " " << echo->pid() << std::endl;
        } catch (const CORBA::Exception& e) {
            std::cout << e._name() << std::endl;
            status = 1;
        }
    }
    return status;
}

int usage() {
    std::cerr << "usage: omni_echo_client [-ORB options] <IOR:...|name:id> "
                 "check|latency N|oneway N|bulk N|rounds N G"
              << std::endl;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const char* options[][2] = {{"maxGIOPVersion", "1.0"},
                                {"diiThrowsSysExceptions", "1"},
                                {nullptr, nullptr}};
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv, "omniORB4", options);
        if (argc < 3) return usage();
        std::string mode = argv[2];
        long n = argc > 3 ? std::atol(argv[3]) : 0;
        if (mode != "check" && n <= 0) return usage();

        const std::string target = argv[1];
        CORBA::Object_var obj = target.compare(0, 5, "name:") == 0
                                    ? omniResolve(orb, target.c_str() + 5)
                                    : orb->string_to_object(argv[1]);
        // Unchecked: whether the object is an Echo is one of the checks.
        Demo::Echo_var echo = Demo::Echo::_unchecked_narrow(obj);
        int status = 0;
        if (mode == "check")
            status = check(echo) ? 0 : 1;
        else if (mode == "rounds" && argc > 4)
            status = rounds(echo, n, argv[4]);
        else if (mode == "latency" || mode == "oneway" || mode == "bulk")
            timed(echo, mode, n);
        else
            status = usage();
        orb->destroy();
        return status;
    } catch (const CORBA::Exception& e) {
        std::cerr << "omni_echo_client: " << e._name() << std::endl;
        return 1;
    }
}
