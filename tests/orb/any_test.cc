// Any: every kind over a connection in both byte orders, unions, hostile input.
#include "any.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "except.h"
#include "handcdr.h"
#include "mstrm.h"
#include "nvlist.h"
#include "sequence.h"
#include "tcpeer.h"
#include "typecode.h"

namespace {

CORBA_TypeCode* structTc() {
    ZEBTCMember m[] = {{"a", CORBA::_tc_long, nullptr},
                       {"b", CORBA::_tc_string, nullptr},
                       {"c", CORBA::_tc_double, nullptr}};
    return new CORBA_TypeCode(CORBA::tk_struct, "IDL:S:1.0", "S", m, 3, 0);
}

// A CDR block built by f, as an Any of type tc (adopted).
CORBA_Any* block(CORBA_TypeCode* tc, const std::function<void(CORBA_MarshalOutBuffer&)>& f) {
    CORBA_MarshalOutBuffer buf;
    f(buf);
    return new CORBA_Any(tc, buf);
}

void writeS(CORBA_MarshalOutBuffer& b, long a, const char* s) { b << a << s << 0.5; }

std::vector<CORBA_Any_var> everyKind() {
    std::vector<CORBA_Any_var> v;
    auto add = [&]() -> CORBA_Any& {
        v.emplace_back(new CORBA_Any);
        return *v.back();
    };
    add() <<= CORBA::Short(-3);
    add() <<= CORBA::UShort(7);
    add() <<= CORBA::Long(-100000);
    add() <<= CORBA::ULong(4000000000u);
    add() <<= CORBA::Float(1.5f);
    add() <<= CORBA::Double(2.25);
    add() <<= CORBA_Any::from_boolean(1);
    add() <<= CORBA_Any::from_char('x');
    add() <<= CORBA_Any::from_octet(200);
    add() <<= "text";
    CORBA_Any inner;
    inner <<= "inner";
    add() <<= inner;
    CORBA_TypeCode_var s = structTc();
    add() <<= s.operator->();
    // TypeCodes of the kinds no value below has.
    CORBA_TypeCode_var bounded = new CORBA_TypeCode(CORBA::ULong(10), 0);
    CORBA_TypeCode_var boundedSeq = new CORBA_TypeCode(CORBA::tk_sequence, 5, s, 0);
    for (CORBA_TypeCode* t : {CORBA::_tc_null, CORBA::_tc_void, CORBA::_tc_Object,
                              bounded.operator->(), boundedSeq.operator->()})
        add() <<= t;
    CORBA_OctetSequence* who = new CORBA_OctetSequence(2);
    who->length(2);
    (*who)[0] = 'm';
    (*who)[1] = 'e';
    v.emplace_back(new CORBA_Any(CORBA::_tc_Principal, who, 1));
    const char* colors[] = {"red", "green"};
    v.emplace_back(new CORBA_Any(new CORBA_TypeCode("IDL:Color:1.0", "Color", colors, 2, 0),
                                 new CORBA::ULong(1), 1));
    v.emplace_back(block(CORBA_TypeCode::_duplicate(s), [](auto& b) { writeS(b, 7, "seven"); }));
    CORBA_Any one;
    one <<= CORBA::Long(1);
    ZEBTCMember um[] = {{"a", CORBA::_tc_long, &one}, {"b", CORBA::_tc_string, nullptr}};
    CORBA_TypeCode_var u = new CORBA_TypeCode("IDL:U:1.0", "U", CORBA::_tc_long, um, 2, 0);
    v.emplace_back(block(CORBA_TypeCode::_duplicate(u), [](auto& b) { b << 1L << 42L; }));
    v.emplace_back(block(CORBA_TypeCode::_duplicate(u), [](auto& b) { b << 0L << "default"; }));
    v.emplace_back(block(new CORBA_TypeCode(CORBA::tk_sequence, 0, CORBA::_tc_long, 0),
                         [](auto& b) {
                             const int xs[] = {1, -2, 3};
                             b << 3UL;
                             b.put(xs, 3);
                         }));
    v.emplace_back(block(new CORBA_TypeCode(CORBA::tk_sequence, 0, s, 0), [](auto& b) {
        b << 2UL;
        writeS(b, 1, "one");
        writeS(b, 2, "two");
    }));
    CORBA_TypeCode_var myLong = new CORBA_TypeCode("IDL:MyLong:1.0", "MyLong", CORBA::_tc_long, 0);
    v.emplace_back(block(new CORBA_TypeCode(CORBA::tk_sequence, 0, myLong, 0),
                         [](auto& b) { b << 2UL << 5L << 6L; }));
    v.emplace_back(block(new CORBA_TypeCode(CORBA::tk_array, 3, CORBA::_tc_double, 0),
                         [](auto& b) { b << 1.0 << 2.0 << 3.0; }));
    v.emplace_back(block(new CORBA_TypeCode("IDL:A:1.0", "A", s, 0),
                         [](auto& b) { writeS(b, 8, "aliased"); }));
    ZEBTCMember why[] = {{"why", CORBA::_tc_string, nullptr}};
    v.emplace_back(block(new CORBA_TypeCode(CORBA::tk_except, "IDL:E:1.0", "E", why, 1, 0),
                         [](auto& b) { b << "IDL:E:1.0" << "because"; }));
    v.emplace_back(new CORBA_Any(CORBA::_tc_NamedValue, new CORBA_NamedValue("n", &inner, 2), 1));
    return v;
}

TEST(Any, EmptyInsertionAndExtraction) {
    CORBA_Any a;
    EXPECT_EQ(CORBA::_tc_null, a.type());

    EXPECT_THROW(a <<= static_cast<CORBA_Object*>(nullptr), CORBA_BAD_PARAM);
    a <<= static_cast<const char*>(nullptr);
    EXPECT_EQ(CORBA::tk_string, a.kind());
    EXPECT_EQ(0, a.size());
    a <<= CORBA::Long(0);
    CORBA::Short sh = 5;
    EXPECT_FALSE(a >>= sh);
    EXPECT_EQ(5, sh);

    // A copy of an Any that does not own its value owns its own.
    CORBA::Double d = 4.5;
    CORBA_Any borrowed(CORBA::_tc_double, &d, 0);
    CORBA_Any copy(borrowed);
    EXPECT_TRUE(copy.release_flag());
    EXPECT_NE(copy.value(), borrowed.value());
    CORBA::Double got = 0;
    EXPECT_TRUE(copy >>= got);
    EXPECT_EQ(4.5, got);

    // A block Any made from a value pointer measures its block.
    CORBA_MarshalOutBuffer b;
    writeS(b, 1, "abc");
    CORBA_TypeCode_var s = structTc();
    CORBA_Any walked(CORBA_TypeCode::_duplicate(s), b.buffer(), 1);
    EXPECT_EQ(static_cast<CORBA::Long>(b.length()), walked.size());
}

TEST(Any, EveryKindReadsBackInBothByteOrders) {
    ktest::StreamPair pair;
    ASSERT_TRUE(pair.in);
    for (const CORBA_Any_var& a : everyKind()) {
        SCOPED_TRACE(CORBA_TypeCode::kindName(a->kind()));
        pair.begin() << *a;
        pair.pass();
        CORBA_Any got;
        *pair.in >> got;
        EXPECT_EQ(0, compare(*a, got));
        EXPECT_EQ(hash(*a), hash(got));
        EXPECT_EQ(0u, pair.in->messageBytesLeft());

        ktest::BigEndianOut peer;
        peer << *a;
        pair.raw(peer.message());
        CORBA_Any swapped;
        *pair.in >> swapped;
        EXPECT_EQ(0, compare(*a, swapped));
        EXPECT_EQ(0u, pair.in->messageBytesLeft());
    }
}

TEST(Any, KnownRecordComesBackNative) {
    CORBA_Any inner;
    inner <<= CORBA::ULong(9);
    CORBA_Any a(CORBA::_tc_NamedValue, new CORBA_NamedValue("param", &inner, 1), 1);
    ktest::StreamPair pair;
    pair.begin() << a;
    pair.pass();
    CORBA_Any got;
    *pair.in >> got;
    ASSERT_EQ(CORBA::tk_struct, got.kind());
    const CORBA_NamedValue* nv = static_cast<const CORBA_NamedValue*>(got.value());
    EXPECT_STREQ("param", nv->name());
    CORBA::ULong nine = 0;
    EXPECT_TRUE(*nv->value() >>= nine);
    EXPECT_EQ(9u, nine);
    EXPECT_EQ(0u, hash(got));
}

TEST(Any, UnionTakesTheFirstLabelWhoseBytesMatch) {
    // Members: 1 -> long, the default -> string, 256 -> double. The default's
    // octet 0 label meets 256 first (its first byte is 0 on either order of
    // host), so 256 reads a string; 2 matches nothing and reads no member.
    CORBA_Any one, big;
    one <<= CORBA::Long(1);
    big <<= CORBA::Long(256);
    ZEBTCMember um[] = {{"a", CORBA::_tc_long, &one},
                        {"b", CORBA::_tc_string, nullptr},
                        {"c", CORBA::_tc_double, &big}};
    CORBA_TypeCode_var u = new CORBA_TypeCode("IDL:U:1.0", "U", CORBA::_tc_long, um, 3, 0);
    ktest::StreamPair pair;
    handcdr::Cdr m;
    m.header(handcdr::kReply).ulong(256).string("x").ulong(2).ulong(0xabcdef);
    pair.raw(m.message());
    CORBA_Any first, second;
    first.read_value(*pair.in, u);
    second.read_value(*pair.in, u);
    unsigned long sentinel = 0;
    *pair.in >> sentinel;
    EXPECT_EQ(0xabcdefu, sentinel);
    EXPECT_EQ(4, second.size());
    EXPECT_EQ(10, first.size());  // 4 of discriminator, 4 of count, "x" and its NUL
}

long maxRssKb() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

TEST(Any, HostileInputIsMarshalWithoutBigAllocations) {
    const long before = maxRssKb();
    ktest::StreamPair pair;
    auto fails = [&](const handcdr::Cdr& m) {
        pair.raw(m.message());
        CORBA_Any a;
        EXPECT_THROW(*pair.in >> a, CORBA_MARSHAL);
    };
    handcdr::Cdr longs;  // 2^30 longs announced, four sent
    longs.header(handcdr::kReply).ulong(CORBA::tk_sequence).ulong(CORBA::tk_long).ulong(0);
    longs.ulong(1u << 30).ulong(1).ulong(2).ulong(3).ulong(4);
    fails(longs);

    handcdr::Cdr anys;  // 10,000 nested Anys
    anys.header(handcdr::kReply);
    for (int i = 0; i < 10000; ++i) anys.ulong(CORBA::tk_any);
    anys.ulong(CORBA::tk_long).ulong(1);
    fails(anys);

    handcdr::Cdr badUnion;  // a discriminator of a kind no union may have
    badUnion.header(handcdr::kReply).ulong(CORBA::tk_union).string("IDL:B:1.0").string("B");
    badUnion.ulong(CORBA::tk_string).ulong(0).ulong(0).ulong(0).string("x");
    pair.raw(badUnion.message());
    CORBA_Any u;
    EXPECT_THROW(*pair.in >> u, CORBA_INTERNAL);

    EXPECT_LT(maxRssKb() - before, 64 * 1024);
}

}  // namespace
