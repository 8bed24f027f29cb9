// Anys holding strings: copies that own their text, null strings, and
// extraction of the wrong kind.
#include "any.h"

#include <gtest/gtest.h>

namespace {
const char* held(const CORBA_Any& a) { return *static_cast<char**>(a.value()); }
}  // namespace

TEST(CORBAAny, StringGoesInAndComesOutAsCopies) {
    char text[] = "hello";
    CORBA_Any a;
    a <<= text;
    text[0] = 'j';  // the Any has its own copy
    EXPECT_EQ(a.kind(), CORBA::tk_string);
    EXPECT_EQ(a.size(), 6);
    EXPECT_STREQ(held(a), "hello");

    CORBA_String_var out;
    ASSERT_TRUE(a >>= out.out());
    EXPECT_STREQ(out, "hello");
    EXPECT_NE(out.in(), held(a));

    a <<= held(a);  // its own string back in: copied before the old one goes
    EXPECT_STREQ(held(a), "hello");
    EXPECT_EQ(a.size(), 6);
}

TEST(CORBAAny, NullStringAndOtherKinds) {
    CORBA_Any a;
    char* out = const_cast<char*>("untouched");
    EXPECT_FALSE(a >>= out);  // tk_null: nothing comes out, the target stays
    EXPECT_STREQ(out, "untouched");

    a <<= static_cast<const char*>(nullptr);
    EXPECT_EQ(a.kind(), CORBA::tk_string);
    EXPECT_EQ(a.size(), 0);
    EXPECT_EQ(held(a), nullptr);
    EXPECT_TRUE(a >>= out);
    EXPECT_EQ(out, nullptr);
}

TEST(CORBAAny, CopiesAreDeepAndCountedApart) {
    CORBA_Any* a = new CORBA_Any;
    *a <<= "value";
    CORBA_Any copy(*a);
    CORBA_Any assigned;
    assigned <<= "old";
    assigned = *a;
    assigned = assigned;
    for (const CORBA_Any* c : {&copy, &assigned}) {
        EXPECT_STREQ(held(*c), "value");
        EXPECT_NE(held(*c), held(*a));
    }
    EXPECT_EQ(CORBA_Any::_duplicate(a), a);
    CORBA::release(a);  // one of two references: still alive
    EXPECT_STREQ(held(*a), "value");
    CORBA::release(a);
}
