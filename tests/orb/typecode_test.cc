// TypeCodes: accessors, compare rules, statics, indirections, hostile input.
#include "typecode.h"

#include <gtest/gtest.h>

#include <string>

#include "any.h"
#include "except.h"
#include "handcdr.h"
#include "tcpeer.h"
#include "zebstrm.h"

namespace {

CORBA_TypeCode* structTc(const char* id = "IDL:S:1.0", const char* second = "b") {
    ZEBTCMember m[] = {{"a", CORBA::_tc_long, nullptr},
                       {second, CORBA::_tc_string, nullptr},
                       {"c", CORBA::_tc_double, nullptr}};
    return new CORBA_TypeCode(CORBA::tk_struct, id, "S", m, 3, 0);
}

CORBA_TypeCode* unionTc() {
    CORBA_Any one;
    one <<= CORBA::Long(1);
    ZEBTCMember m[] = {{"a", CORBA::_tc_long, &one}, {"b", CORBA::_tc_string, nullptr}};
    return new CORBA_TypeCode("IDL:U:1.0", "U", CORBA::_tc_long, m, 2, 0);
}

TEST(TypeCode, AccessorsFollowTheKind) {
    CORBA_TypeCode_var u = unionTc();
    EXPECT_EQ(1, u->default_index());
    CORBA_Any_var label = u->member_label(1);
    EXPECT_EQ(CORBA::tk_octet, label->kind());
    EXPECT_THROW(u->member_label(2), CORBA_TypeCode::Bounds);

    CORBA_TypeCode_var empty = new CORBA_TypeCode(CORBA::tk_struct, "IDL:N:1.0", "N", nullptr, 0, 0);
    EXPECT_THROW(empty->member_label(0), CORBA_TypeCode::BadKind);
    EXPECT_THROW(CORBA::_tc_long->id(), CORBA_TypeCode::BadKind);
    EXPECT_THROW(empty->parameter(1), CORBA_TypeCode::Bounds);

    CORBA_TypeCode_var rec = new CORBA_TypeCode(7, 1, 0);  // recursive sequence
    EXPECT_THROW(rec->content_type(), CORBA_TypeCode::BadKind);
    EXPECT_THROW(CORBA_TypeCode(CORBA::tk_objref, 0), CORBA_BAD_PARAM);
    EXPECT_THROW(CORBA_TypeCode(CORBA::tk_string, 1, CORBA::_tc_long, 0), CORBA_BAD_PARAM);
}

TEST(TypeCode, CompareSeesThroughAliasesAndIgnoresIds) {
    CORBA_TypeCode_var s = structTc();
    CORBA_TypeCode_var alias = new CORBA_TypeCode("IDL:A:1.0", "A", s, 0);
    EXPECT_TRUE(alias->equal(s));
    EXPECT_TRUE(s->equal(alias));
    CORBA_TypeCode_var otherId = structTc("IDL:Other:1.0");
    EXPECT_TRUE(s->equal(otherId));
    CORBA_TypeCode_var otherMember = structTc("IDL:S:1.0", "renamed");
    EXPECT_FALSE(s->equal(otherMember));

    CORBA_TypeCode_var x = new CORBA_TypeCode("IDL:X:1.0", "X", 0);
    CORBA_TypeCode_var y = new CORBA_TypeCode("IDL:Y:1.0", "Y", 0);
    EXPECT_TRUE(x->equal(y));
    ZEBTCMember m1[] = {{"a", CORBA::_tc_long, nullptr}};
    ZEBTCMember m2[] = {{"z", CORBA::_tc_string, nullptr}};
    CORBA_TypeCode_var e1 = new CORBA_TypeCode(CORBA::tk_except, "IDL:E1:1.0", "E1", m1, 1, 0);
    CORBA_TypeCode_var e2 = new CORBA_TypeCode(CORBA::tk_except, "IDL:E2:1.0", "E2", m2, 1, 0);
    EXPECT_TRUE(e1->equal(e2));
    EXPECT_EQ(0, compare(nullptr, nullptr));
    EXPECT_LT(compare(nullptr, s), 0);
    EXPECT_GT(compare(s, nullptr), 0);
    EXPECT_EQ(hash(s.operator->()), hash(otherId.operator->()));
}

// Read by this unit's static initialiser, which may run before those of the
// library: the statics need none of their own.
const CORBA::ULong kNamedValueMembers = CORBA::_tc_NamedValue->member_count();

TEST(TypeCode, StaticsAreNeverFreed) {
    EXPECT_EQ(3u, kNamedValueMembers);
    for (int i = 0; i < 5; ++i) CORBA::release(CORBA::_tc_long);
    EXPECT_EQ(CORBA::tk_long, CORBA::_tc_long->kind());
    // A member of a dynamic TypeCode outlives it.
    { CORBA_TypeCode_var seq = new CORBA_TypeCode(CORBA::tk_sequence, 0, CORBA::_tc_Object, 0); }
    EXPECT_STREQ("Object", CORBA::_tc_Object->name());
}

TEST(TypeCodeStream, SharedMemberGoesAsIndirection) {
    CORBA_TypeCode_var s = structTc();
    ZEBTCMember twice[] = {{"x", s, nullptr}, {"y", s, nullptr}};
    CORBA_TypeCode_var outer = new CORBA_TypeCode(CORBA::tk_struct, "IDL:T:1.0", "T", twice, 2, 0);
    ktest::StreamPair pair;
    TBostream& o = pair.begin();
    o << static_cast<unsigned char>(1);  // an odd start: offsets count unaligned positions
    o << outer.operator->() << outer.operator->();
    const std::string bytes(pair.out->outData(), pair.out->outLength());
    size_t markers = 0;
    for (size_t at = bytes.find("\xff\xff\xff\xff"); at != std::string::npos;
         at = bytes.find("\xff\xff\xff\xff", at + 4))
        ++markers;
    // The first TypeCode's second member, and both members of the second,
    // which goes in full itself, as every top-level TypeCode does.
    EXPECT_EQ(3u, markers);
    pair.pass();
    unsigned char first;
    CORBA_TypeCode_var a, b;
    *pair.in >> first >> a.out() >> b.out();
    ASSERT_TRUE(outer->equal(a));
    ASSERT_TRUE(outer->equal(b));
    CORBA_TypeCode_var x = a->member_type(0), y = a->member_type(1);
    EXPECT_EQ(x.operator->(), y.operator->());  // the indirection found the first
    EXPECT_NE(a.operator->(), b.operator->());
}

TEST(TypeCodeStream, NullIsTkNullAndBadInputIsMarshal) {
    ktest::StreamPair pair;
    pair.begin() << static_cast<CORBA_TypeCode*>(nullptr);
    pair.pass();
    CORBA_TypeCode_var null;
    *pair.in >> null.out();
    EXPECT_EQ(CORBA::tk_null, null->kind());

    handcdr::Cdr bad, deep;  // an indirection of no kind; aliases nested past the limit
    bad.header(handcdr::kReply).ulong(0xffffffff).ulong(uint32_t(-8));
    deep.header(handcdr::kReply);
    for (int i = 0; i < 100; ++i) deep.ulong(CORBA::tk_alias).string("IDL:D:1.0").string("D");
    for (const handcdr::Cdr* m : {&bad, &deep.ulong(CORBA::tk_long)}) {
        pair.raw(m->message());
        CORBA_TypeCode* tc = nullptr;
        EXPECT_THROW(*pair.in >> tc, CORBA_MARSHAL);
    }

    CORBA_TypeCode_var rec = new CORBA_TypeCode(0, 1, 0);
    pair.begin();
    EXPECT_THROW(*pair.out << rec.operator->(), CORBA_BAD_TYPECODE);
}

}  // namespace
