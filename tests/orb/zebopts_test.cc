// The broker's command line; the fixture puts every option back.
#include "zebglob.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "dsdummyuser.h"
#include "nvlist.h"

namespace {

using G = ZEBGlobalTable;
using Strings = std::vector<std::string>;

#define OPTION_FIELDS(X)                                                                    \
    X(boa_ipaddr) X(boa_port) X(shm_bufsize) X(orb_send_bufsize) X(orb_rcv_bufsize)         \
    X(boa_send_bufsize) X(boa_rcv_bufsize) X(agent_addr) X(agent_port) X(agent_verbose)    \
    X(enable_shm) X(tcp_block_size) X(tcp_read_size) X(keep_alive_timer) X(check_narrow)   \
    X(orb_no_delay) X(boa_no_delay) X(is_vex) X(synch_object) X(has_callback) X(recursion) \
    X(do_cleanup) X(call_bind_unbind) X(_dsuser)

class ZEBOptions : public ::testing::Test {
protected:
    void SetUp() override { clearSVC(); }
    void TearDown() override {
#define RESTORE(f) G::f = _saved.f;
        OPTION_FIELDS(RESTORE)
#undef RESTORE
        clearSVC();
    }
    static void clearSVC() {
        while (G::_svc_params.count()) G::_svc_params.remove(0);
    }

private:
    struct Saved {
#define SAVE(f) decltype(G::f) f = G::f;
        OPTION_FIELDS(SAVE)
#undef SAVE
    } _saved;
};

class Argv {
public:
    Argv(std::initializer_list<const char*> args) : _store(args.begin(), args.end()) {
        for (std::string& s : _store) _ptrs.push_back(&s[0]);
        argc = static_cast<int>(_ptrs.size());
        _ptrs.push_back(nullptr);
    }

    Argv& parse() {
        G::parse_args(argc, _ptrs.data());
        return *this;
    }
    Strings kept() const { return Strings(_ptrs.begin(), _ptrs.begin() + argc); }
    char* const* argv() const { return _ptrs.data(); }

    int argc;

private:
    Strings _store;
    std::vector<char*> _ptrs;
};

// The options that take a value; the text options take any value.
const struct ValueOption {
    const char* name;
    unsigned long* field;  // null for the text options and the port
    bool text;
} kValueOptions[] = {
    {"-OAipaddr", nullptr, true},           {"-OAport", nullptr, false},
    {"-ORBshmsize", &G::shm_bufsize, false}, {"-ORBkeepalive", &G::keep_alive_timer, false},
    {"-ORBagentaddr", nullptr, true},       {"-ORBagentport", &G::agent_port, false},
    {"-OAmbufsize", &G::tcp_read_size, false}, {"-ORBmbufsize", &G::tcp_block_size, false},
};

std::string svc(const char* name) {
    CORBA_String_var v = G::get_SVCparam(name);
    return v.in() ? v.in() : "<null>";
}

struct RecordingUser : DSDummyUser {
    RecordingUser() : DSDummyUser(nullptr, nullptr) {}
    void switchAgent(int port) override { ports.push_back(port); }
    void verbose(int on) override { verboseCalls.push_back(on); }
    std::vector<int> ports, verboseCalls;
};

}  // namespace

TEST_F(ZEBOptions, KeepsProgramNameAndForeignElementsInOrder) {
    Argv a{"prog", "-fooORB", "-OAport", "1234", "-orbX", "-ORBrecursion", "-SVCa=1", "-OA", "y"};
    a.argc = 7;  // the last two elements lie beyond argc and are not looked at
    EXPECT_EQ(a.parse().kept(), (Strings{"prog", "-fooORB", "-orbX"}));
    EXPECT_EQ(a.argv()[3], nullptr);
    EXPECT_EQ(G::boa_port, 1234);
    EXPECT_TRUE(G::recursion);
    EXPECT_EQ(svc("SVCa"), "1");

    // A text option's value is taken whatever it looks like, even a broker
    // option, and pointed at where it stands.
    Argv t{"p", "-OAipaddr", "127.0.0.1", "-ORBagentaddr", "-ORBfoo"};
    EXPECT_EQ(t.parse().argc, 1);
    EXPECT_EQ(G::boa_ipaddr, t.argv()[2]);
    EXPECT_EQ(G::agent_addr, t.argv()[4]);
    // The agent session, in the base library, reads its own copies.
    EXPECT_EQ(DSUser::boa_ipaddr, t.argv()[2]);
    EXPECT_EQ(DSUser::agent_addr, t.argv()[4]);
    DSUser::boa_ipaddr = DSUser::agent_addr = nullptr;
}

TEST_F(ZEBOptions, NumbersStoreTheirFieldsUnchecked) {
    for (const ValueOption& o : kValueOptions) {
        if (!o.field) continue;
        Argv a{"p", o.name, "4096", "rest"};
        EXPECT_EQ(a.parse().kept(), (Strings{"p", "rest"}));
        EXPECT_EQ(*o.field, 4096u) << o.name;
        Argv{"p", o.name, ""}.parse();
        EXPECT_EQ(*o.field, 0u) << o.name;
        Argv{"p", o.name, "4294967297"}.parse();  // past 32 bits: the low 32 stay
        EXPECT_EQ(*o.field, 1u) << o.name;
    }
    const struct {
        const char* text;
        unsigned short port;
    } ports[] = {{"70000", 4464}, {"65535", 65535}, {"65536", 0}, {"", 0}, {"0080", 80}};
    for (const auto& c : ports) {
        G::boa_port = 7;
        Argv{"p", "-OAport", c.text}.parse();
        EXPECT_EQ(G::boa_port, c.port) << c.text;
    }
}

TEST_F(ZEBOptions, SwitchesSetTheirFlags) {
    const struct {
        const char* option;
        CORBA::Boolean* field;
        CORBA::Boolean value;
    } cases[] = {
        {"-ORBrecursion", &G::recursion, 1},     {"-ORBnorecursion", &G::recursion, 0},
        {"-OAshm", &G::enable_shm, 0},           {"-OAtcpnodelay", &G::boa_no_delay, 1},
        {"-ORBstdtypecodes", &G::std_typecodes, 1},
    };
    for (const auto& c : cases) {
        *c.field = !c.value;
        EXPECT_EQ(Argv({"p", c.option}).parse().argc, 1) << c.option;
        EXPECT_EQ(*c.field, c.value) << c.option;
    }
    G::std_typecodes = 0;  // the other tests of this program use the broker's own form
}

TEST_F(ZEBOptions, AgentOptionsReachAnExistingAgentClient) {
    G::_dsuser = nullptr;
    Argv{"p", "-ORBagentport", "15000", "-ORBagentverbose"}.parse();  // fields alone
    EXPECT_EQ(G::agent_port, 15000u);

    RecordingUser user;
    G::_dsuser = &user;
    Argv{"p", "-ORBagentport", "15001", "-ORBagentverbose"}.parse();
    EXPECT_EQ(user.ports, std::vector<int>{15001});
    EXPECT_EQ(user.verboseCalls, std::vector<int>{1});
    EXPECT_EQ(G::agent_port, 15001u);
}

TEST_F(ZEBOptions, ServiceParametersKeepTheFirstOfAName) {
    Argv a{"p", "-SVCx", "-SVCy=", "-SVCx=5", "-SVCz=a=b", "keep"};
    EXPECT_EQ(a.parse().kept(), (Strings{"p", "keep"}));
    EXPECT_EQ(svc("SVCx"), "true");
    EXPECT_EQ(svc("SVCy"), "");
    EXPECT_EQ(svc("SVCz"), "a=b");  // split at the first "="
    EXPECT_EQ(svc("x"), "<null>");   // the name keeps its "SVC"
    ASSERT_EQ(G::_svc_params.count(), 4u);  // the repeated name is stored again

    G::add_SVCparam("plain=1");  // called directly, without the "-"
    EXPECT_EQ(svc("plain"), "1");
}

// The death test reads standard error.
static void parseToStderr(std::initializer_list<const char*> args) {
    dup2(2, 1);
    Argv a(args);
    a.parse();
}

#define EXPECT_PARSE_EXITS(message, ...)                                    \
    EXPECT_EXIT(parseToStderr({__VA_ARGS__}), ::testing::ExitedWithCode(0), \
                std::string("^") + (message) + "\n$")

TEST(ZEBOptionsDeathTest, MissingAndInvalidValuesExitWithStatusZero) {
    for (const ValueOption& o : kValueOptions) {
        SCOPED_TRACE(o.name);
        EXPECT_PARSE_EXITS(std::string("Kelvanor: ") + o.name + " is not followed by an? [a-z]+",
                           "prog", "a", o.name);
        if (o.text) continue;
        for (const char* bad : {"12x", "-1", " 1", "0x10"})
            EXPECT_PARSE_EXITS("Kelvanor: Invalid [A-Za-z ]+", "prog", o.name, bad, "rest");
    }
}

TEST(ZEBOptionsDeathTest, UnknownBrokerOptionsExitWithStatusZero) {
    for (const char* bad : {"-ORBfoo", "-OAfoo", "-ORB", "-OA", "-OAportx"}) {
        EXPECT_PARSE_EXITS(std::string("Kelvanor: Unknown option - ") + bad +
                               " passed to initialization routines",
                           "prog", "-ORBrecursion", bad);
    }
    EXPECT_PARSE_EXITS("Kelvanor: Unknown option - -ORBx passed to initialization routines",
                       "-ORBx");  // even as element 0
}
