// A client of the echo example through its generated stub, the way user code
// calls objects: bind, then Demo::Echo::pid() and note(), for echo_bench.sh.
// bulk N sends N say() calls of 64 KiB each and prints calls per second;
// p99 N prints the 99th percentile of N pid() round trips; dii N times N
// pid() calls each made as a new dynamic request.
// Usage: stub_echo_client [broker options] <IOR:...|@file> latency N|oneway N|bulk N|p99 N|dii N
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "any.h"
#include "echo.h"
#include "except.h"
#include "orb.h"
#include "request.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string readReference(const std::string& arg) {
    if (arg.empty() || arg[0] != '@') return arg;
    std::ifstream in(arg.substr(1));
    std::string ior;
    in >> ior;
    return ior;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
        const long n = argc == 4 ? std::atol(argv[3]) : 0;
        const std::string mode = argc == 4 ? argv[2] : "";
        if (n <= 0 || (mode != "latency" && mode != "oneway" && mode != "bulk" && mode != "p99" &&
                       mode != "dii")) {
            std::cerr << "usage: stub_echo_client [broker options] <IOR:...|@file> "
                         "latency N|oneway N|bulk N|p99 N|dii N"
                      << std::endl;
            return 2;
        }
        CORBA_Object_var obj(orb->string_to_object(readReference(argv[1]).c_str()));
        Demo::Echo_var echo(Demo::Echo::_narrow(obj));
        if (!echo.in()) return 1;
        echo->pid();  // binds
        auto start = Clock::now();
        if (mode == "latency") {
            for (long i = 0; i < n; ++i) echo->pid();
            std::cout << "latency " << secondsSince(start) * 1e6 / n << " us/call (" << n
                      << " calls)" << std::endl;
        } else if (mode == "dii") {
            for (long i = 0; i < n; ++i) {
                CORBA_Request_var r(echo->_request("pid"));
                r->return_value() <<= CORBA::Long(0);
                r->invoke();
            }
            std::cout << "dii " << secondsSince(start) * 1e6 / n << " us/call (" << n
                      << " calls)" << std::endl;
        } else if (mode == "p99") {
            std::vector<double> us(static_cast<size_t>(n));
            for (double& u : us) {
                const auto t = Clock::now();
                echo->pid();
                u = secondsSince(t) * 1e6;
            }
            std::sort(us.begin(), us.end());
            std::cout << "p99 " << us[static_cast<size_t>(n * 99 / 100)] << " us (" << n
                      << " calls)" << std::endl;
        } else if (mode == "bulk") {
            const std::string text(64 * 1024, 'k');
            start = Clock::now();
            for (long i = 0; i < n; ++i) {
                CORBA_String_var back(echo->say(text.c_str()));
                if (std::strlen(back.in()) != text.size()) return 1;
            }
            std::cout << "bulk " << static_cast<long>(n / secondsSince(start)) << " calls/s ("
                      << n << " calls of 64 KiB)" << std::endl;
        } else {
            for (long i = 0; i < n; ++i) echo->note("");
            echo->pid();  // the reply comes after the server has read every note
            std::cout << "oneway " << static_cast<long>(n / secondsSince(start)) << " calls/s ("
                      << n << " calls)" << std::endl;
        }
    } catch (const CORBA_Exception& e) {
        std::cerr << "stub_echo_client: " << e << std::endl;
        return 1;
    }
    return 0;
}
