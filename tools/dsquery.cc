// dsquery: asks the directory agent what it knows, and registers or watches
// a name for trying things out.
//
//   dsquery [broker options] <command> [arguments]
//
// The agent is found as every session finds it: -ORBagentaddr, this
// machine, TOLAGENT_ADDR and TOLAGENT_ADDR_FILE, then a broadcast, on
// -ORBagentport or TOLAGENT_PORT. Results go to standard output; a failure
// is one line on standard error and an exit status of its own (see usage()).
#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "dispatch.h"
#include "dsname.h"
#include "dsprovider.h"
#include "dstrigger.h"
#include "dsuser.h"
#include "orb.h"
#include "zebglob.h"
#include <kelvanor/version.h>

namespace {

enum Status { OK = 0, USAGE = 2, NO_AGENT = 3, NOT_FOUND = 4, FAILURE = 5, DOWN = 6 };

int usage(std::ostream& os, int status) {
    os << "usage: dsquery [broker options] <command> [arguments]\n"
          "       dsquery --help | --version\n"
          "commands:\n"
          "  provider <name> [<type>] [--wait <s>]  the provider of a name (type 4,\n"
          "                                         waiting 30 s at most)\n"
          "  providers [<name>] [--all]             the providers the agent (or every\n"
          "                                         agent) knows, of a name or all\n"
          "  names [--all]                          the names the agent (or all) knows\n"
          "  agents                                 the other agents of the network\n"
          "  watch <name> [<type>]                  wait for a provider and print it\n"
          "  register <name> <type> <host>:<port>   register a provider, and stay up\n"
          "  verify <host>:<port>                   is a process answering there?\n"
          "exit status: 0 done, 2 usage, 3 no agent, 4 not found, 5 failure, 6 down\n";
    return status;
}

int fail(int status, const std::string& text) {
    std::cerr << "dsquery: " << text << std::endl;
    return status;
}

std::string dotted(const DSAddr& a) { return std::string(a.ntoa()) + ":" + std::to_string(a.port()); }

void print(const DSProvider& p) {
    std::cout << p.name().name() << " " << p.name().serviceType() << " " << dotted(p.address())
              << " agent " << dotted(p.agentAddr()) << std::endl;
}

void printSet(const DSSet& set) {
    DSIterator it(set);
    while (DSResource* e = it.next()) {
        if (DSProvider* p = dynamic_cast<DSProvider*>(e)) print(*p);
        else if (DSName* n = dynamic_cast<DSName*>(e)) std::cout << n->name() << " " << n->serviceType() << std::endl;
        else if (DSAddr* a = dynamic_cast<DSAddr*>(e)) std::cout << dotted(*a) << std::endl;
    }
}

// host:port in dotted form; false if it is not one.
bool endpoint(const std::string& text, DSAddr& out) {
    const std::string::size_type colon = text.rfind(':');
    if (colon == std::string::npos) return false;
    const unsigned a = inet_addr(text.substr(0, colon).c_str());
    const int port = std::atoi(text.c_str() + colon + 1);
    if (a == INADDR_NONE || port <= 0 || port > 65535) return false;
    out = DSAddr(port, a);
    return true;
}

bool flag(std::vector<std::string>& words, const char* name) {
    for (auto i = words.begin(); i != words.end(); ++i)
        if (*i == name) {
            words.erase(i);
            return true;
        }
    return false;
}

struct Printer : DSTriggerHandler {
    bool fired = false;
    void serviceAvailable(DSProvider* p) override {
        print(*p);
        fired = true;
    }
};

struct Verdict : DSVerify {
    int result = -1;
    void isAlive() override { result = OK; }
    void isDown() override { result = DOWN; }
};

void serve(const bool& until) {
    while (!until) dpDispatcher::instance()->dispatch(nullptr);
}

int listing(DSSet* set, int status) {
    if (!set) return fail(FAILURE, "no listing (status " + std::to_string(status) + ")");
    printSet(*set);
    delete set;
    return OK;
}

int run(DSUser* user, const std::string& cmd, std::vector<std::string> a) {
    int st = 0;
    const bool all = flag(a, "--all");
    if (cmd == "provider" && !a.empty()) {
        long wait = 30;
        for (size_t i = 0; i + 1 < a.size(); ++i)
            if (a[i] == "--wait") {
                wait = std::atol(a[i + 1].c_str());
                a.erase(a.begin() + i, a.begin() + i + 2);
                break;
            }
        const int type = a.size() > 1 ? std::atoi(a[1].c_str()) : DS_SERVICE_OBJECT;
        DSName name(a[0].c_str(), DS_ARG_DEFAULT, static_cast<DSServiceType>(type), nullptr);
        std::unique_ptr<DSProvider> p(user->getProvider(&name, st, wait));
        if (!p) return fail(st == DSUser::STATUS_NO_PROVIDER ? NOT_FOUND : FAILURE,
                            "no provider of " + a[0] + " (status " + std::to_string(st) + ")");
        print(*p);
        return OK;
    }
    if (cmd == "providers" && a.size() <= 1) {
        std::unique_ptr<DSName> name(a.empty() ? nullptr
                                               : new DSName(a[0].c_str(), DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr));
        return listing(user->allProviders(name.get(), st, all), st);
    }
    if (cmd == "names" && a.empty()) return listing(user->allNames(st, all), st);
    if (cmd == "agents" && a.empty()) return listing(user->allAgentAddresses(st), st);
    if (cmd == "watch" && !a.empty() && a.size() <= 2) {
        const int type = a.size() > 1 ? std::atoi(a[1].c_str()) : DS_SERVICE_OBJECT;
        DSName name(a[0].c_str(), DS_ARG_DEFAULT, static_cast<DSServiceType>(type), nullptr);
        Printer printer;
        if (int rc = user->trigger(&name, printer)) return fail(FAILURE, "no trigger (status " + std::to_string(rc) + ")");
        serve(printer.fired);
        return OK;
    }
    DSAddr where(0, 0u);
    if (cmd == "register" && a.size() == 3 && endpoint(a[2], where)) {
        DSName name(a[0].c_str(), DS_ARG_DEFAULT, static_cast<DSServiceType>(std::atoi(a[1].c_str())), nullptr);
        DSProvider* p = new DSProvider(name, where, DS_PROTOCOL_DEFAULT, 0);
        TBResource::ref(p);
        if (int rc = user->registerProvider(p)) return fail(FAILURE, "not registered (status " + std::to_string(rc) + ")");
        std::cout << "registered " << a[0] << std::endl;
        const bool never = false;
        serve(never);  // a signal ends it
    }
    return usage(std::cerr, USAGE);
}

}  // namespace

int main(int argc, char** argv) {
    CORBA::ORB_init(argc, argv);
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) return usage(std::cout, OK);
    if (!words.empty() && words[0] == "--version") {
        std::cout << "dsquery (Kelvanor) " << kelvanor_version << std::endl;
        return OK;
    }
    if (words.empty()) return usage(std::cerr, USAGE);
    const std::string cmd = words[0];
    words.erase(words.begin());
    if (cmd == "verify") {
        DSAddr peer(0, 0u);
        if (words.size() != 1 || !endpoint(words[0], peer)) return usage(std::cerr, USAGE);
        Verdict v;
        if (v.verify(peer) != DSVerify::OK && v.result < 0) return fail(DOWN, words[0] + " is down");
        while (v.result < 0) dpDispatcher::instance()->dispatch(nullptr);
        std::cout << words[0] << (v.result == OK ? " is alive" : " is down") << std::endl;
        return v.result;
    }
    DSUser* user = DSUser::open("dsquery", "", static_cast<int>(ZEBGlobalTable::agent_port));
    ZEBGlobalTable::setAgentClient(user);
    if (user->state() < DSUser::STATE_LOGGED_IN) return fail(NO_AGENT, "no agent answered");
    return run(user, cmd, words);
}
