// TypeCodes in the encapsulated form of -ORBstdtypecodes where omniORB cannot
// show them (dyn_test passes every kind with it): peer forms, hostile input.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "any.h"
#include "except.h"
#include "handcdr.h"
#include "tcpeer.h"
#include "typecode.h"
#include "zebglob.h"
#include "zebstrm.h"

namespace {

// The form is process-wide; each test sets it for its own length.
struct StdForm {
    StdForm() { ZEBGlobalTable::std_typecodes = 1; }
    ~StdForm() { ZEBGlobalTable::std_typecodes = 0; }
};

CORBA_TypeCode* pointTc() {
    ZEBTCMember m[] = {{"x", CORBA::_tc_long, nullptr}, {"y", CORBA::_tc_double, nullptr}};
    return new CORBA_TypeCode(CORBA::tk_struct, "IDL:P:1.0", "P", m, 2, 0);
}

std::string pointEncapsulation(bool little) {
    handcdr::Cdr e(little);
    e.octet(little ? 1 : 0).string("IDL:P:1.0").string("P").ulong(2);
    e.string("x").ulong(CORBA::tk_long).string("y").ulong(CORBA::tk_double);
    return e.bytes();
}

TEST(StdTypeCode, PeerEncapsulationsInEitherByteOrder) {
    StdForm form;
    ktest::StreamPair pair;
    CORBA_TypeCode_var p = pointTc();
    ZEBTCMember twice[] = {{"a", p, nullptr}, {"b", p, nullptr}};
    CORBA_TypeCode_var line = new CORBA_TypeCode(CORBA::tk_struct, "IDL:L:1.0", "L", twice, 2, 0);
    for (bool little : {false, true}) {
        // A big-endian message whose inner encapsulation is `little`, with
        // two spare bytes at its end that the reader must step over.
        handcdr::Cdr outer(false);
        handcdr::Cdr body(false);
        body.octet(0).string("IDL:L:1.0").string("L").ulong(2).string("a").ulong(CORBA::tk_struct);
        const size_t pAt = body.bytes().size() - 4;  // from the encapsulation's start
        body.octets(pointEncapsulation(little) + "zz").string("b");
        body.ulong(0xffffffff);
        const size_t offsetAt = body.bytes().size();
        body.ulong(static_cast<uint32_t>(pAt - offsetAt));
        outer.header(handcdr::kReply).ulong(CORBA::tk_struct).octets(body.bytes());
        pair.raw(outer.message());
        CORBA_TypeCode_var got;
        *pair.in >> got.out();
        EXPECT_TRUE(line->equal(got)) << little;
        EXPECT_EQ(0u, pair.in->messageBytesLeft());
    }
}

// A top-level TypeCode met again is taken from the encapsulations kept of
// earlier ones: types whose encapsulations have one length stay apart, and
// a TypeCode freed and another built at its address are not confused.
TEST(StdTypeCode, RepeatedTopLevelTypeCodesStayApart) {
    StdForm form;
    ktest::StreamPair pair;
    auto passed = [&](CORBA_TypeCode* tc) {
        pair.begin() << tc;
        pair.pass();
        CORBA_TypeCode_var got;
        *pair.in >> got.out();
        return std::string(got->name()) + (got->equal(tc) ? "" : " differs");
    };
    ZEBTCMember m[] = {{"x", CORBA::_tc_long, nullptr}, {"y", CORBA::_tc_double, nullptr}};
    CORBA_TypeCode_var p = pointTc();
    CORBA_TypeCode_var q = new CORBA_TypeCode(CORBA::tk_struct, "IDL:Q:1.0", "Q", m, 2, 0);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(passed(p), "P");
        EXPECT_EQ(passed(q), "Q");
    }
    for (char name = 'a'; name <= 'z'; ++name) {
        const std::string n(1, name);
        CORBA_TypeCode_var t =
            new CORBA_TypeCode(CORBA::tk_struct, "IDL:T:1.0", n.c_str(), m, 2, 0);
        EXPECT_EQ(passed(t), n);
    }
}

TEST(StdTypeCode, HostileInputIsMarshalAndTheStreamServesOn) {
    StdForm form;
    ktest::StreamPair pair;
    auto refused = [&](const handcdr::Cdr& m) {
        pair.raw(m.message());
        CORBA_TypeCode* tc = nullptr;
        EXPECT_THROW(*pair.in >> tc, CORBA_MARSHAL);
    };
    handcdr::Cdr order;  // a byte-order octet that is neither
    order.header(handcdr::kReply).ulong(CORBA::tk_enum).octets(std::string("\x02", 1));
    refused(order);
    handcdr::Cdr lying;  // 0x7fffffff members, two in the data
    handcdr::Cdr e;
    e.octet(1).string("IDL:M:1.0").string("M").ulong(0x7fffffff);
    for (int i = 0; i < 2; ++i) e.string("m").ulong(CORBA::tk_long);
    lying.header(handcdr::kReply).ulong(CORBA::tk_struct).octets(e.bytes()).ulong(5);
    refused(lying);
    handcdr::Cdr deep;  // sequences nested past the limit
    std::string inner = handcdr::Cdr().ulong(CORBA::tk_long).bytes();
    for (int i = 0; i < 100; ++i)
        inner = handcdr::Cdr().ulong(CORBA::tk_sequence).octets(
            handcdr::Cdr().octet(1).raw("   ").raw(inner).ulong(0).bytes()).bytes();
    deep.header(handcdr::kReply).raw(inner);
    refused(deep);

    pair.begin() << CORBA::_tc_NamedValue;
    pair.pass();
    CORBA_TypeCode_var fine;
    *pair.in >> fine.out();
    EXPECT_TRUE(CORBA::_tc_NamedValue->equal(fine));
}

}  // namespace
