// TypeCodes in the encapsulated form of -ORBstdtypecodes: every kind round
// trips, a shared member goes as an indirection relative to the offset's own
// position, encapsulations in the other byte order read as a peer wrote
// them, and hostile lengths and kinds are CORBA_MARSHAL.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
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

// The encapsulation of P above, as a peer in byte order `little` writes it.
std::string pointEncapsulation(bool little) {
    handcdr::Cdr e(little);
    e.octet(little ? 1 : 0).string("IDL:P:1.0").string("P").ulong(2);
    e.string("x").ulong(CORBA::tk_long).string("y").ulong(CORBA::tk_double);
    return e.bytes();
}

TEST(StdTypeCode, EveryKindRoundTrips) {
    StdForm form;
    ktest::StreamPair pair;
    ASSERT_TRUE(pair.in);
    CORBA_TypeCode_var p = pointTc();
    CORBA_Any one;
    one <<= CORBA::Long(1);
    ZEBTCMember arms[] = {{"a", p, &one}, {"b", CORBA::_tc_string, nullptr}};
    const char* colors[] = {"red", "green"};
    CORBA_TypeCode_var seq = new CORBA_TypeCode(CORBA::tk_sequence, 0, p, 0);
    CORBA_TypeCode* kinds[] = {
        CORBA::_tc_long, CORBA::_tc_any, CORBA::_tc_Object, CORBA::_tc_NamedValue, p, seq,
        new CORBA_TypeCode(CORBA::ULong(10), 0),
        new CORBA_TypeCode("IDL:U:1.0", "U", CORBA::_tc_long, arms, 2, 0),
        new CORBA_TypeCode("IDL:Color:1.0", "Color", colors, 2, 0),
        new CORBA_TypeCode(CORBA::tk_array, 3, seq, 0),
        new CORBA_TypeCode("IDL:A:1.0", "A", seq, 0),
        new CORBA_TypeCode(CORBA::tk_except, "IDL:E:1.0", "E", arms + 1, 1, 0)};
    for (CORBA_TypeCode* tc : kinds) {
        SCOPED_TRACE(CORBA_TypeCode::kindName(tc->kind()));
        pair.begin() << static_cast<unsigned char>(7) << tc;
        pair.pass();
        unsigned char skew;
        CORBA_TypeCode_var got;
        *pair.in >> skew >> got.out();
        EXPECT_TRUE(tc->equal(got));
        EXPECT_EQ(0u, pair.in->messageBytesLeft());
    }
    for (size_t i = 6; i < sizeof kinds / sizeof kinds[0]; ++i) CORBA::release(kinds[i]);
}

TEST(StdTypeCode, SharedMemberIsAnIndirectionFromTheOffset) {
    StdForm form;
    CORBA_TypeCode_var p = pointTc();
    ZEBTCMember twice[] = {{"a", p, nullptr}, {"b", p, nullptr}};
    CORBA_TypeCode_var line = new CORBA_TypeCode(CORBA::tk_struct, "IDL:L:1.0", "L", twice, 2, 0);
    ktest::StreamPair pair;
    pair.begin() << line.operator->() << line.operator->();
    const std::string bytes(pair.out->outData(), pair.out->outLength());
    // One marker per top-level TypeCode: the second is whole again.
    const size_t marker = bytes.find("\xff\xff\xff\xff");
    ASSERT_NE(std::string::npos, marker);
    const size_t second = bytes.find("\xff\xff\xff\xff", marker + 4);
    ASSERT_NE(std::string::npos, second);
    EXPECT_EQ(std::string::npos, bytes.find("\xff\xff\xff\xff", second + 4));
    int32_t offset;
    std::memcpy(&offset, bytes.data() + marker + 4, 4);
    // It leads back to P's kind, whose encapsulation holds P's id.
    const size_t target = marker + 4 + static_cast<size_t>(offset);
    uint32_t kind;
    std::memcpy(&kind, bytes.data() + target, 4);
    EXPECT_EQ(uint32_t(CORBA::tk_struct), kind);
    EXPECT_EQ(target + 16, bytes.find("IDL:P:1.0"));  // kind, length, octet, padding, count

    pair.pass();
    CORBA_TypeCode_var a, b;
    *pair.in >> a.out() >> b.out();
    ASSERT_TRUE(line->equal(a) && line->equal(b));
    CORBA_TypeCode_var x = a->member_type(0), y = a->member_type(1);
    EXPECT_EQ(x.operator->(), y.operator->());
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

TEST(StdTypeCode, HostileInputIsMarshalAndTheStreamServesOn) {
    StdForm form;
    ktest::StreamPair pair;
    auto refused = [&](const handcdr::Cdr& m) {
        pair.raw(m.message());
        CORBA_TypeCode* tc = nullptr;
        return ktest::raises<CORBA_MARSHAL>([&] { *pair.in >> tc; });
    };
    handcdr::Cdr longer;  // an encapsulation longer than the message
    longer.header(handcdr::kReply).ulong(CORBA::tk_struct).ulong(0x7ffffff0).octet(1);
    EXPECT_TRUE(refused(longer));
    handcdr::Cdr later;  // a kind this broker does not have
    later.header(handcdr::kReply).ulong(27).ulong(0);
    EXPECT_TRUE(refused(later));
    handcdr::Cdr order;  // a byte-order octet that is neither
    order.header(handcdr::kReply).ulong(CORBA::tk_enum).octets(std::string("\x02", 1));
    EXPECT_TRUE(refused(order));
    handcdr::Cdr lying;  // 0x7fffffff members, two in the data
    handcdr::Cdr e;
    e.octet(1).string("IDL:M:1.0").string("M").ulong(0x7fffffff);
    for (int i = 0; i < 2; ++i) e.string("m").ulong(CORBA::tk_long);
    lying.header(handcdr::kReply).ulong(CORBA::tk_struct).octets(e.bytes()).ulong(5);
    EXPECT_TRUE(refused(lying));
    handcdr::Cdr deep;  // sequences nested past the limit
    std::string inner = handcdr::Cdr().ulong(CORBA::tk_long).bytes();
    for (int i = 0; i < 100; ++i)
        inner = handcdr::Cdr().ulong(CORBA::tk_sequence).octets(
            handcdr::Cdr().octet(1).raw("   ").raw(inner).ulong(0).bytes()).bytes();
    deep.header(handcdr::kReply).raw(inner);
    EXPECT_TRUE(refused(deep));

    pair.begin() << CORBA::_tc_NamedValue;
    pair.pass();
    CORBA_TypeCode_var fine;
    *pair.in >> fine.out();
    EXPECT_TRUE(CORBA::_tc_NamedValue->equal(fine));
}

}  // namespace
