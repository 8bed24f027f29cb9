// raw_echo_client: calls a Demo::Echo object with GIOP 1.0 Requests built by
// hand on one ZEBIIOPstream, without stubs or an ORB object, so that timing
// a server adds little more than the broker's own stream to what it measures.
//   check      _is_a, say (empty, short, 10,000 characters), pid, note and
//              _non_existent, one line each; exit 0 only if all are right
//   latency N  N two-way pid() calls; prints microseconds per call
//   oneway N   N note("") then one pid() to flush; prints calls per second
// Usage: raw_echo_client [broker options] [-nodelay] <IOR:...|@file> check|latency N|oneway N
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

#include "except.h"
#include "giop.h"
#include "iorstr.h"
#include "zebglob.h"
#include "zebstrm.h"

namespace {

const char* const kRepoId = "IDL:Demo/Echo:1.0";
// The checks wait at most this long for a reply. The timed modes wait without
// a limit: a blocking read costs less than a wait in the dispatcher, and the
// benchmark script bounds the whole run instead.
constexpr unsigned long kCheckTimeout = 10;

using Clock = std::chrono::steady_clock;
using Args = std::function<void(TBostream&)>;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A failed call: a system exception from the server, or an unexpected reply.
struct CallFailed {
    std::string why;
};

// The request header of one operation, built once: only the id changes.
class Operation {
public:
    Operation(const CORBA_OctetSequence& key, const char* name, bool response) {
        _header.object_key = key;
        _header.operation = name;
        _header.response_expected = response ? 1 : 0;
    }
    IIOP::RequestHeader& header() { return _header; }

private:
    IIOP::RequestHeader _header;
};

// One connection to the object's IIOP end point.
class EchoConnection {
public:
    EchoConnection(const IIOP::ObjectLocator& loc, unsigned long timeout)
        : _key(loc.object_key), _timeout(timeout), _pid(_key, "pid", true),
          _note(_key, "note", false) {
        _stream.connect(loc.host.in(), loc.port, 5);
    }

    ZEBIIOPstream& stream() { return _stream; }

    // Writes and sends one Request; the arguments come from args.
    void send(Operation& op, const Args& args = Args()) {
        op.header().request_id = ++_lastId;
        _stream.beginWrite(0);
        _stream.writeMessageHeader(IIOP::Request);
        _stream << op.header();
        if (args) args(_stream);
        _stream.sendMessage(_timeout);
    }

    // Reads the reply to the request sent last and leaves the stream at
    // its result.
    void receive() {
        _stream.receiveMessage(_timeout);
        if (_stream.msgHeader().message_type != IIOP::Reply)
            throw CallFailed{"message type " + std::to_string(_stream.msgHeader().message_type)};
        IIOP::ReplyHeader reply;
        _stream >> reply;
        if (reply.request_id != _lastId)
            throw CallFailed{"reply to request " + std::to_string(reply.request_id)};
        if (reply.reply_status == IIOP::NO_EXCEPTION) return;
        if (reply.reply_status != IIOP::SYSTEM_EXCEPTION) {
            const char* name = IIOP::statusName(reply.reply_status);
            throw CallFailed{name ? name : "unknown reply status"};
        }
        CORBA_String_var id;
        CORBA::ULong minor = 0, completed = 0;
        _stream >> id.out() >> minor >> completed;
        throw CallFailed{std::string(id.in() ? id.in() : "") + " minor " + std::to_string(minor)};
    }

    // A two-way call of an operation used once or twice: header built here.
    void call(const char* name, const Args& args) {
        Operation op(_key, name, true);
        send(op, args);
        receive();
    }

    CORBA::Long pid() {
        send(_pid);
        receive();
        CORBA::Long pid = 0;
        _stream >> pid;
        return pid;
    }

    void note(const char* text) {
        send(_note, [text](TBostream& s) { s << text; });
    }

private:
    ZEBIIOPstream _stream;
    CORBA_OctetSequence _key;
    unsigned long _timeout;
    CORBA::ULong _lastId = 0;
    Operation _pid;
    Operation _note;
};

bool report(const std::string& what, bool ok, const std::string& detail = "") {
    std::cout << what << ": " << (ok ? "ok" : "FAILED") << (detail.empty() ? "" : " ")
              << detail << std::endl;
    return ok;
}

// Runs one check, turning a failure into a FAILED line.
bool attempt(const std::string& what, const std::function<bool()>& check) {
    try {
        return check();
    } catch (const CallFailed& f) {
        return report(what, false, "(" + f.why + ")");
    } catch (const CORBA_SystemException& e) {
        return report(what, false, std::string("(") + e._desc()->name + ")");
    }
}

bool booleanResult(EchoConnection& c) {
    CORBA::Boolean b = 0;
    c.stream() >> b;
    return b == 1;
}

bool check(EchoConnection& c) {
    bool ok = attempt("_is_a", [&] {
        c.call("_is_a", [](TBostream& s) { s << kRepoId; });
        return report("_is_a", booleanResult(c));
    });
    const std::string samples[] = {"", "hello", "a b\tc", std::string(10000, 'k')};
    for (const std::string& text : samples) {
        std::string what = "say(" + std::to_string(text.size()) + " chars)";
        ok &= attempt(what, [&] {
            c.call("say", [&](TBostream& s) { s << text.c_str(); });
            CORBA_String_var back;
            c.stream() >> back.out();
            return report(what, text == (back.in() ? back.in() : ""));
        });
    }
    ok &= attempt("pid", [&] {
        CORBA::Long pid = c.pid();
        return report("pid", pid > 0, std::to_string(pid));
    });
    ok &= attempt("note", [&] {
        c.note("a note");
        return report("note", true);
    });
    ok &= attempt("_non_existent", [&] {
        c.call("_non_existent", Args());
        return report("_non_existent", !booleanResult(c));
    });
    std::cout << (ok ? "check passed" : "check FAILED") << std::endl;
    return ok;
}

void latency(EchoConnection& c, long n) {
    c.pid();
    auto start = Clock::now();
    for (long i = 0; i < n; ++i) c.pid();
    std::cout << "latency " << secondsSince(start) * 1e6 / n << " us/call (" << n << " calls)"
              << std::endl;
}

void oneway(EchoConnection& c, long n) {
    c.pid();
    auto start = Clock::now();
    for (long i = 0; i < n; ++i) c.note("");
    c.pid();  // the reply comes after the server has read every note
    std::cout << "oneway " << static_cast<long>(n / secondsSince(start)) << " calls/s (" << n
              << " calls)" << std::endl;
}

// The reference itself, or the first word of the file named after '@'.
std::string readReference(const std::string& arg) {
    if (arg.empty() || arg[0] != '@') return arg;
    std::ifstream in(arg.substr(1));
    std::string ior;
    in >> ior;
    return ior;
}

// The IIOP end point of a stringified reference; null, with a message, if
// it has none.
IIOP::ObjectLocator* locate(const std::string& text) {
    std::unique_ptr<IOP::IOR> ior(stringToIOR(text.c_str()));
    if (!ior) {
        std::cerr << "raw_echo_client: not a stringified object reference" << std::endl;
        return nullptr;
    }
    for (CORBA::ULong i = 0; i < ior->profiles.length(); ++i)
        if (ior->profiles[i].tag == IOP::TAG_INTERNET_IOP)
            return IIOP::ObjectLocator::convert(ior->profiles[i].profile_data);
    std::cerr << "raw_echo_client: the reference has no IIOP profile" << std::endl;
    return nullptr;
}

int usage() {
    std::cerr << "usage: raw_echo_client [broker options] [-nodelay] <IOR:...|@file> "
                 "check|latency N|oneway N"
              << std::endl;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    // Broker options such as -ORBnocallback (wait for replies in a blocking
    // read instead of a nested dispatch) come first.
    ZEBGlobalTable::parse_args(argc, argv);
    int first = 1;
    if (argc > 1 && std::strcmp(argv[1], "-nodelay") == 0) {
        ZEBGlobalTable::orb_no_delay = 1;
        ++first;
    }
    if (argc - first < 2) return usage();
    std::string mode = argv[first + 1];
    long n = argc - first > 2 ? std::atol(argv[first + 2]) : 0;
    if (mode != "check" && mode != "latency" && mode != "oneway") return usage();
    if (mode != "check" && n <= 0) return usage();
    try {
        std::unique_ptr<IIOP::ObjectLocator> loc(locate(readReference(argv[first])));
        if (!loc) return 1;
        EchoConnection c(*loc, mode == "check" ? kCheckTimeout : 0);
        if (mode == "check") return check(c) ? 0 : 1;
        if (mode == "latency")
            latency(c, n);
        else
            oneway(c, n);
    } catch (const CallFailed& f) {
        std::cerr << "raw_echo_client: " << f.why << std::endl;
        return 1;
    } catch (const CORBA_SystemException& e) {
        std::cerr << "raw_echo_client: " << e._desc()->name << " minor " << e.minor() << std::endl;
        return 1;
    }
    return 0;
}
