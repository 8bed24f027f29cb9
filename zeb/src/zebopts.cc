// The broker's command line: the option fields with their defaults, the
// parser that takes "-ORB..." and "-OA..." options out of argv, and the
// service parameters that "-SVC..." elements leave behind.
#include "zebglob.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <vector>

#include "any.h"
#include "dsuser.h"
#include "nvlist.h"

using G = ZEBGlobalTable;

CORBA_NVList ZEBGlobalTable::_svc_params(16);

const char* ZEBGlobalTable::boa_ipaddr = nullptr;
unsigned short ZEBGlobalTable::boa_port = 0;
unsigned long ZEBGlobalTable::shm_bufsize = ZEBGlobalTable::default_shm_bufsize;
unsigned long ZEBGlobalTable::orb_send_bufsize = 0;
unsigned long ZEBGlobalTable::orb_rcv_bufsize = 0;
unsigned long ZEBGlobalTable::boa_send_bufsize = 0;
unsigned long ZEBGlobalTable::boa_rcv_bufsize = 0;
unsigned long ZEBGlobalTable::boa_max_conn = 0;
unsigned long ZEBGlobalTable::boa_idle = 600;
const char* ZEBGlobalTable::agent_addr = nullptr;
unsigned long ZEBGlobalTable::agent_port = ZEBGlobalTable::default_agent_port;
CORBA::Boolean ZEBGlobalTable::agent_verbose = 0;
CORBA::Boolean ZEBGlobalTable::enable_shm = 0;
unsigned long ZEBGlobalTable::tcp_block_size = ZEBGlobalTable::default_tcp_block_size;
unsigned long ZEBGlobalTable::tcp_read_size = ZEBGlobalTable::default_tcp_read_size;
unsigned long ZEBGlobalTable::keep_alive_timer = 0;
CORBA::Boolean ZEBGlobalTable::check_narrow = 1;
CORBA::Boolean ZEBGlobalTable::orb_no_delay = 0;
CORBA::Boolean ZEBGlobalTable::boa_no_delay = 1;
CORBA::Boolean ZEBGlobalTable::is_vex = 0;
CORBA::Boolean ZEBGlobalTable::synch_object = 0;
CORBA::Boolean ZEBGlobalTable::has_callback = 1;
CORBA::Boolean ZEBGlobalTable::recursion = 0;
CORBA::Boolean ZEBGlobalTable::do_cleanup = 0;
CORBA::Boolean ZEBGlobalTable::call_bind_unbind = 1;
CORBA::Boolean ZEBGlobalTable::std_typecodes = 0;

namespace {

enum class Arg { NONE, NUMBER, TEXT };

// One row of the option table. apply gets the value element for TEXT, its
// number for NUMBER, and nothing for NONE.
struct Option {
    const char* name;
    Arg arg;
    void (*apply)(const char* text, unsigned long number);
    const char* missing;  // the value element is absent
    const char* invalid;  // the value holds a non-digit
};

// Tested in this order; the first row whose name equals the element wins.
const Option kOptions[] = {
    {"-OAipaddr", Arg::TEXT, [](const char* t, unsigned long) { G::boa_ipaddr = DSUser::boa_ipaddr = t; },
     "Kelvanor: -OAipaddr is not followed by an address", nullptr},
    // The wording of the message is odd, and kept.
    {"-OAport", Arg::NUMBER,
     [](const char*, unsigned long n) { G::boa_port = static_cast<unsigned short>(n); },
     "Kelvanor: -OAport is not followed by an address", "Kelvanor: Invalid boa port value"},
    {"-ORBshmsize", Arg::NUMBER, [](const char*, unsigned long n) { G::shm_bufsize = n; },
     "Kelvanor: -ORBshmsize is not followed by a value", "Kelvanor: Invalid shared memory size"},
    {"-ORBsendbufsize", Arg::NUMBER, [](const char*, unsigned long n) { G::orb_send_bufsize = n; },
     "Kelvanor: -ORBsendbufsize is not followed by a value",
     "Kelvanor: Invalid ORB send buffer size"},
    {"-ORBrcvbufsize", Arg::NUMBER, [](const char*, unsigned long n) { G::orb_rcv_bufsize = n; },
     "Kelvanor: -ORBrcvbufsize is not followed by a value",
     "Kelvanor: Invalid ORB rcv buffer size"},
    {"-ORBkeepalive", Arg::NUMBER, [](const char*, unsigned long n) { G::keep_alive_timer = n; },
     "Kelvanor: -ORBkeepalive is not followed by a value",
     "Kelvanor: Invalid ORB keep alive timer value"},
    {"-OAsendbufsize", Arg::NUMBER, [](const char*, unsigned long n) { G::boa_send_bufsize = n; },
     "Kelvanor: -OAsendbufsize is not followed by a value",
     "Kelvanor: Invalid BOA send buffer size"},
    {"-OArcvbufsize", Arg::NUMBER, [](const char*, unsigned long n) { G::boa_rcv_bufsize = n; },
     "Kelvanor: -OArcvbufsize is not followed by a value",
     "Kelvanor: Invalid BOA rcv buffer size"},
    {"-ORBagentaddr", Arg::TEXT, [](const char* t, unsigned long) { G::agent_addr = DSUser::agent_addr = t; },
     "Kelvanor: -ORBagentaddr is not followed by a value", nullptr},
    {"-ORBagentport", Arg::NUMBER,
     [](const char*, unsigned long n) {
         G::agent_port = n;
         if (G::_dsuser) G::_dsuser->switchAgent(static_cast<int>(n));
     },
     "Kelvanor: -ORBagentport is not followed by a value", "Kelvanor: Invalid agent port num"},
    {"-ORBagentverbose", Arg::NONE,
     [](const char*, unsigned long) {
         G::agent_verbose = 1;
         if (G::_dsuser) G::_dsuser->verbose(1);
     },
     nullptr, nullptr},
    {"-ORBcallback", Arg::NONE, [](const char*, unsigned long) { G::has_callback = 1; }, nullptr,
     nullptr},
    {"-ORBnocallback", Arg::NONE, [](const char*, unsigned long) { G::has_callback = 0; },
     nullptr, nullptr},
    {"-ORBrecursion", Arg::NONE, [](const char*, unsigned long) { G::recursion = 1; }, nullptr,
     nullptr},
    {"-ORBnorecursion", Arg::NONE, [](const char*, unsigned long) { G::recursion = 0; }, nullptr,
     nullptr},
    {"-OAnoshm", Arg::NONE, [](const char*, unsigned long) { G::enable_shm = 0; }, nullptr,
     nullptr},
    // Shared memory stays off however the process is started: -OAshm is
    // accepted and writes false, like -OAnoshm.
    {"-OAshm", Arg::NONE, [](const char*, unsigned long) { G::enable_shm = 0; }, nullptr,
     nullptr},
    {"-OAnarrowcheck", Arg::NONE, [](const char*, unsigned long) { G::check_narrow = 1; },
     nullptr, nullptr},
    {"-OAnonarrowcheck", Arg::NONE, [](const char*, unsigned long) { G::check_narrow = 0; },
     nullptr, nullptr},
    {"-OAtcpnodelay", Arg::NONE, [](const char*, unsigned long) { G::boa_no_delay = 1; },
     nullptr, nullptr},
    {"-OAtcpdelay", Arg::NONE, [](const char*, unsigned long) { G::boa_no_delay = 0; }, nullptr,
     nullptr},
    {"-OAsynch", Arg::NONE, [](const char*, unsigned long) { G::synch_object = 1; }, nullptr,
     nullptr},
    {"-OAnosynch", Arg::NONE, [](const char*, unsigned long) { G::synch_object = 0; }, nullptr,
     nullptr},
    // -OAmbufsize sizes the input block, -ORBmbufsize the output block,
    // whatever their prefixes suggest.
    {"-OAmbufsize", Arg::NUMBER, [](const char*, unsigned long n) { G::tcp_read_size = n; },
     "Kelvanor: -OAmbufsize is not followed by a value", "Kelvanor: Invalid marshal block size"},
    {"-ORBtcpnodelay", Arg::NONE, [](const char*, unsigned long) { G::orb_no_delay = 1; },
     nullptr, nullptr},
    {"-ORBtcpdelay", Arg::NONE, [](const char*, unsigned long) { G::orb_no_delay = 0; }, nullptr,
     nullptr},
    {"-ORBcallbindunbind", Arg::NONE,
     [](const char*, unsigned long) { G::call_bind_unbind = true; }, nullptr, nullptr},
    {"-ORBnobindunbind", Arg::NONE,
     [](const char*, unsigned long) { G::call_bind_unbind = false; }, nullptr, nullptr},
    {"-ORBmbufsize", Arg::NUMBER, [](const char*, unsigned long n) { G::tcp_block_size = n; },
     "Kelvanor: -ORBmbufsize is not followed by a value", "Kelvanor: Invalid marshal block size"},
    // Limits that keep a server from being exhausted by its clients.
    {"-OAmaxconn", Arg::NUMBER, [](const char*, unsigned long n) { G::boa_max_conn = n; },
     "Kelvanor: -OAmaxconn is not followed by a value", "Kelvanor: Invalid connection limit"},
    {"-OAidle", Arg::NUMBER, [](const char*, unsigned long n) { G::boa_idle = n; },
     "Kelvanor: -OAidle is not followed by a value", "Kelvanor: Invalid idle time"},
    {"-ORBcleanup", Arg::NONE, [](const char*, unsigned long) { G::do_cleanup = 1; }, nullptr,
     nullptr},
    {"-ORBstdtypecodes", Arg::NONE, [](const char*, unsigned long) { G::std_typecodes = 1; },
     nullptr, nullptr},
};

[[noreturn]] void refuse(const char* message) {
    std::cout << message << std::endl;
    std::exit(0);
}

// A number made of digits only; the empty text is 0. No range is checked:
// a long number keeps its low 32 bits, so that a value beyond an int gets a
// defined result where atoi's would be undefined, and fields narrower than
// that keep their own low bits in turn.
bool parseNumber(const char* text, unsigned long& out) {
    uint32_t n = 0;
    for (const char* p = text; *p; ++p) {
        if (!std::isdigit(static_cast<unsigned char>(*p))) return false;
        n = n * 10u + static_cast<uint32_t>(*p - '0');
    }
    out = n;
    return true;
}

const Option* findOption(const char* element) {
    for (const Option& o : kOptions)
        if (std::strcmp(element, o.name) == 0) return &o;
    return nullptr;
}

bool startsWith(const char* s, const char* prefix) {
    return std::strncmp(s, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

void ZEBGlobalTable::parse_args(int& argc, char* const* argv) {
    if (argc <= 0 || !argv) return;
    std::vector<char*> kept;
    kept.reserve(static_cast<size_t>(argc));
    for (int i = 0; i < argc; ++i) {
        char* element = argv[i];
        if (!element) {
            kept.push_back(element);
            continue;
        }
        if (const Option* o = findOption(element)) {
            const char* text = nullptr;
            unsigned long number = 0;
            if (o->arg != Arg::NONE) {
                if (i + 1 >= argc || !argv[i + 1]) refuse(o->missing);
                text = argv[++i];
                if (o->arg == Arg::NUMBER && !parseNumber(text, number)) refuse(o->invalid);
            }
            o->apply(text, number);
        } else if (startsWith(element, "-ORB") || startsWith(element, "-OA")) {
            std::cout << "Kelvanor: Unknown option - " << element
                      << " passed to initialization routines" << std::endl;
            std::exit(0);
        } else if (startsWith(element, "-SVC")) {
            add_SVCparam(element);
        } else {
            kept.push_back(element);
        }
    }
    // argv is main's own vector, writable although the signature promises
    // otherwise; the caller's argc tells how much of it remains.
    char** out = const_cast<char**>(argv);
    for (size_t j = 0; j < kept.size(); ++j) out[j] = kept[j];
    if (static_cast<int>(kept.size()) < argc) out[kept.size()] = nullptr;
    argc = static_cast<int>(kept.size());
}

void ZEBGlobalTable::add_SVCparam(const char* text) {
    if (!text) return;
    if (*text == '-') ++text;
    CORBA_String_var name(text);
    const char* value = "true";
    if (char* eq = std::strchr(name.inout(), '=')) {
        *eq = '\0';
        value = eq + 1;
    }
    // Appended even when the name is there already: lookups find the first,
    // so the earliest of repeated parameters is the one that counts.
    CORBA_Any any;
    any <<= value;
    CORBA::release(_svc_params.add_value(name.in(), any, 0));
}

CORBA_NamedValue* ZEBGlobalTable::find_SVCparam(const char* name) {
    if (!name) return nullptr;
    for (CORBA::ULong i = 0; i < _svc_params.count(); ++i) {
        CORBA_NamedValue* nv = _svc_params.item(i);
        if (nv->name() && std::strcmp(nv->name(), name) == 0) return nv;
        CORBA::release(nv);
    }
    return nullptr;
}

char* ZEBGlobalTable::get_SVCparam(const char* name) {
    CORBA_NamedValue_var nv = find_SVCparam(name);
    char* value = nullptr;
    if (!nv || !nv->value() || !(*nv->value() >>= value)) return nullptr;
    return value;
}
