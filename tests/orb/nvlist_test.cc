// Anys holding strings (copies that own their text, null strings,
// extraction of the wrong kind) and the named value lists built of them:
// order across growth, copies of the values put in, bounds, removal and the
// references handed out.
#include "nvlist.h"

#include <gtest/gtest.h>

#include "any.h"

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

TEST(CORBANVList, GrowsFromNothingAndKeepsTheOrder) {
    CORBA_NVList list(0);
    const char* names[] = {"a", "b", "c", "d", "e"};
    for (const char* n : names) CORBA::release(list.add_item(n, CORBA::ARG_IN));
    EXPECT_EQ(list.capacity(), 8u);  // 0, 2, 4, 8
    ASSERT_EQ(list.count(), 5u);
    for (CORBA::ULong i = 0; i < 5; ++i)
        EXPECT_STREQ(CORBA_NamedValue_var(list.item(i))->name(), names[i]);
}

TEST(CORBANVList, AddValueCopiesTheAny) {
    CORBA_NVList list(16);
    CORBA_Any any;
    any <<= "first";
    CORBA_NamedValue_var nv = list.add_value("k", any, CORBA::ARG_OUT);
    any <<= "second";
    CORBA_String_var text;
    ASSERT_TRUE(*nv->value() >>= text.out());
    EXPECT_STREQ(text, "first");
    EXPECT_EQ(nv->flags(), CORBA::ARG_OUT);
}

TEST(CORBANVList, IndexesAreCheckedAndRemovalShifts) {
    CORBA_NVList list(2);
    EXPECT_THROW(list.item(0), CORBA_NVList::Bounds);
    for (const char* n : {"x", "y", "z"}) CORBA::release(list.add_item(n, 0));
    EXPECT_THROW(list.item(3), CORBA_NVList::Bounds);
    EXPECT_THROW(list.remove(3), CORBA_NVList::Bounds);
    CORBA::release(list.item(2));

    CORBA_NamedValue_var y = list.item(1);
    list.remove(1);
    EXPECT_STREQ(y->name(), "y");  // our reference outlives the list's
    EXPECT_EQ(list.count(), 2u);
    EXPECT_STREQ(CORBA_NamedValue_var(list.item(1))->name(), "z");
}

TEST(CORBANVList, HoldersShareAndReleaseOnce) {
    CORBA_NamedValue* nv = new CORBA_NamedValue;
    {
        CORBA_NamedValue_var a = nv;
        CORBA_NamedValue_var b = a;  // two references now
        b = a;                       // same object: no change
        CORBA_NamedValue_var c = CORBA_NamedValue::_duplicate(nv);
        EXPECT_EQ(c._retn(), nv);  // a third reference, given to us
    }
    EXPECT_EQ(nv->_deref(), 0);  // the holders dropped theirs; ours was the last
    delete nv;
}
