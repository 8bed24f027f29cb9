// Anys between Kelvanor and omniORB through Peer::AnyEcho
// (tests/peers/omniorb/anyecho.idl): basic kinds and strings pass in either
// TypeCode form; a complex TypeCode in the broker's own form gets a system
// exception from omniORB on a connection that serves on; with
// -ORBstdtypecodes every kind passes both ways, indirections included.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "any.h"
#include "echo_child.h"
#include "mstrm.h"
#include "orb_loopback.h"
#include "process.h"
#include "typecode.h"
#include "zebglob.h"

namespace {

using std::chrono::milliseconds;

// The TypeCodes of anyecho.idl, built as its generated code would.
struct PeerTypes {
    PeerTypes() {
        ZEBTCMember pm[] = {{"x", CORBA::_tc_long, nullptr}, {"y", CORBA::_tc_double, nullptr}};
        point = new CORBA_TypeCode(CORBA::tk_struct, "IDL:Peer/Point:1.0", "Point", pm, 2, 0);
        ZEBTCMember lm[] = {{"a", point, nullptr}, {"b", point, nullptr}};
        line = new CORBA_TypeCode(CORBA::tk_struct, "IDL:Peer/Line:1.0", "Line", lm, 2, 0);
        const char* colors[] = {"red", "green", "blue"};
        color = new CORBA_TypeCode("IDL:Peer/Color:1.0", "Color", colors, 3, 0);
        CORBA_Any one, two;
        one <<= CORBA::Long(1);
        two <<= CORBA::Long(2);
        ZEBTCMember sm[] = {{"p", point, &one}, {"name", CORBA::_tc_string, &two},
                            {"c", color, nullptr}};
        shape = new CORBA_TypeCode("IDL:Peer/Shape:1.0", "Shape", CORBA::_tc_long, sm, 3, 0);
        CORBA_TypeCode_var seq = new CORBA_TypeCode(CORBA::tk_sequence, 0, point, 0);
        points = new CORBA_TypeCode("IDL:Peer/Points:1.0", "Points", seq, 0);
        CORBA_TypeCode_var arr = new CORBA_TypeCode(CORBA::tk_array, 3, CORBA::_tc_long, 0);
        triple = new CORBA_TypeCode("IDL:Peer/Triple:1.0", "Triple", arr, 0);
        name = new CORBA_TypeCode("IDL:Peer/Name:1.0", "Name", CORBA::_tc_string, 0);
    }
    CORBA_TypeCode_var point, line, color, shape, points, triple, name;
};

// An Any of tc whose value write() puts in a block.
template <class F>
CORBA_Any anyOf(CORBA_TypeCode* tc, F&& write) {
    CORBA_MarshalOutBuffer b;
    write(b);
    return CORBA_Any(CORBA_TypeCode::_duplicate(tc), b);
}

CORBA_Any echo(CORBA_Object* obj, const CORBA_Any& a) {
    GIOPstream* s = obj->_create_request("echo", 1, 0);
    *s << a;
    s = obj->_invoke();
    CORBA_Any r;
    *s >> r;
    s->flushRead();
    return r;
}

bool passes(CORBA_Object* obj, const CORBA_Any& a) { return compare(a, echo(obj, a)) == 0; }

// The form is process-wide; each test leaves it as it found it.
struct Form {
    explicit Form(bool std) { ZEBGlobalTable::std_typecodes = std; }
    ~Form() { ZEBGlobalTable::std_typecodes = 0; }
};

bool omniBuilt() { return ktest::runnable(KELVANOR_OMNI_ANY_SERVER_BINARY); }

TEST(OmniorbAny, OwnFormPassesBasicKindsOnly) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB not built";
    Form form(false);
    ktest::EchoChild server({KELVANOR_OMNI_ANY_SERVER_BINARY});
    ASSERT_TRUE(server.ready()) << server.output();
    CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(server.ior.c_str()));
    CORBA_Any l, s, d;
    l <<= CORBA::Long(-7);
    s <<= "text";
    d <<= 2.5;
    EXPECT_TRUE(passes(obj, l) && passes(obj, s) && passes(obj, d));
    PeerTypes t;
    CORBA_Any p = anyOf(t.point, [](TBostream& b) { b << 1L << 2.5; });
    EXPECT_THROW(echo(obj, p), CORBA_SystemException);
    EXPECT_TRUE(passes(obj, l));
    EXPECT_TRUE(server.running());
}

TEST(OmniorbAny, StdFormPassesEveryKindToOmniorb) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB not built";
    Form form(true);
    ktest::EchoChild server({KELVANOR_OMNI_ANY_SERVER_BINARY});
    ASSERT_TRUE(server.ready()) << server.output();
    CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(server.ior.c_str()));
    PeerTypes t;
    CORBA_Any line = anyOf(t.line, [](TBostream& b) { b << 1L << 2.5 << -3L << 0.125; });
    CORBA_Any inner(line), nested;
    nested <<= inner;
    const CORBA_Any anys[] = {
        line,
        anyOf(t.color, [](TBostream& b) { b << 2UL; }),
        anyOf(t.shape, [](TBostream& b) { b << 1L << 4L << 0.5; }),
        anyOf(t.shape, [](TBostream& b) { b << 2L << "circle"; }),
        anyOf(t.points, [](TBostream& b) { b << 2UL << 1L << 2.5 << 3L << 4.5; }),
        anyOf(t.triple, [](TBostream& b) { b << 4L << 5L << 6L; }),
        anyOf(t.name, [](TBostream& b) { b << "alias"; }),
        nested};
    for (const CORBA_Any& a : anys) {
        SCOPED_TRACE(CORBA_TypeCode::kindName(a.kind()));
        CORBA_Any r = echo(obj, a);
        EXPECT_EQ(0, compare(a, r));

        // compare passes over repository ids; they come back all the same.
        if (a.kind() != CORBA::tk_any) {
            EXPECT_STREQ(a.type()->id(), r.type()->id());
        }
    }
}

TEST(OmniorbAny, OmniClientChecksStdFormServer) {
    if (!omniBuilt()) GTEST_SKIP() << "omniORB not built";
    ktest::EchoChild server({KELVANOR_ANY_ECHO_SERVER_BINARY, "-OAipaddr", "127.0.0.1",
                             "-ORBstdtypecodes"});
    ASSERT_TRUE(server.ready()) << server.output();
    ktest::Process::Options opts;
    opts.argv = {KELVANOR_OMNI_ANY_CLIENT_BINARY, server.ior};
    ktest::Process client;
    ASSERT_TRUE(client.start(opts)) << client.error();
    const bool ended = client.wait(milliseconds(30000));
    if (!ended) client.stop(9, milliseconds(0));
    EXPECT_TRUE(ended) << "the client did not finish in time";
    EXPECT_EQ(0, client.exitCode()) << client.stdoutText() << client.stderrText();
    EXPECT_NE(std::string::npos, client.stdoutText().find("check passed"));
    EXPECT_TRUE(server.running()) << server.output();
}

}  // namespace
