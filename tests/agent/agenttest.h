// What the agent tests share: the dispatcher served until a condition
// holds, a provider on 127.0.0.1, a trigger handler that counts, and the
// time of a test agent's log line.
#ifndef KELVANOR_TESTS_AGENTTEST_H
#define KELVANOR_TESTS_AGENTTEST_H

#include <arpa/inet.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>

#include "dispatch.h"
#include "dsprovider.h"
#include "dstrigger.h"

// Serves the shared dispatcher until pred holds or ms have passed; gives pred().
inline bool pumpUntil(const std::function<bool()>& pred, int ms) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!pred() && std::chrono::steady_clock::now() < end) {
        timeval tv{0, 50000};
        dpDispatcher::instance()->dispatch(&tv);
    }
    return pred();
}

// An object provider, referenced once by the caller.
inline DSProvider* provider(const char* name, int port = 2000) {
    DSProvider* p = new DSProvider(DSName(name, DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr),
                                   DSAddr(port, inet_addr("127.0.0.1")), DS_PROTOCOL_DEFAULT, 0);
    TBResource::ref(p);
    return p;
}

// Counts the calls of a trigger and keeps the last name it was given.
struct Counter : DSTriggerHandler {
    int calls = 0;
    std::string last;
    void serviceAvailable(DSProvider* p) override {
        ++calls;
        last = p->name().name();
    }
};

inline double seconds(const std::string& logLine) { return std::atof(logLine.c_str()) / 1000.0; }

#endif
