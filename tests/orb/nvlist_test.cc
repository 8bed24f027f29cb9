// Anys holding strings, and the named value lists built of them.
#include "nvlist.h"

#include <gtest/gtest.h>

#include "any.h"

namespace {
const char* held(const CORBA_Any& a) { return *static_cast<char**>(a.value()); }
}  // namespace

TEST(CORBAAny, StringsGoInAndComeOutAsCopiesAndCopiesAreDeep) {
    char text[] = "hello";
    CORBA_Any* a = new CORBA_Any;
    *a <<= text;
    text[0] = 'j';  // the Any has its own copy
    CORBA_String_var copy;
    ASSERT_TRUE(*a >>= copy.out());
    EXPECT_STREQ(copy, "hello");
    EXPECT_NE(copy.in(), held(*a));
    *a <<= held(*a);  // its own string back in: copied before the old one goes
    EXPECT_STREQ(held(*a), "hello");

    CORBA_Any constructed(*a);
    CORBA_Any assigned;
    assigned <<= "old";
    assigned = *a;
    assigned = assigned;
    for (const CORBA_Any* c : {&constructed, &assigned}) {
        EXPECT_STREQ(held(*c), "hello");
        EXPECT_NE(held(*c), held(*a));
    }
    CORBA::release(a);
}

// Order across growth, a copy of the value added, bounds, and removal that
// shifts the rest while a reference handed out stays good.
TEST(CORBANVList, GrowsKeepsOrderCopiesValuesAndChecksIndexes) {
    CORBA_NVList list(0);
    EXPECT_THROW(list.item(0), CORBA_NVList::Bounds);
    const char* names[] = {"a", "b", "c", "d"};
    for (const char* n : names) CORBA::release(list.add_item(n, CORBA::ARG_IN));
    CORBA_Any any;
    any <<= "first";
    CORBA_NamedValue_var nv = list.add_value("e", any, CORBA::ARG_OUT);
    any <<= "second";
    CORBA_String_var text;
    ASSERT_TRUE(*nv->value() >>= text.out());
    EXPECT_STREQ(text, "first");
    EXPECT_EQ(nv->flags(), CORBA::ARG_OUT);
    ASSERT_EQ(list.count(), 5u);
    for (CORBA::ULong i = 0; i < 4; ++i)
        EXPECT_STREQ(CORBA_NamedValue_var(list.item(i))->name(), names[i]);
    EXPECT_THROW(list.item(5), CORBA_NVList::Bounds);
    EXPECT_THROW(list.remove(5), CORBA_NVList::Bounds);

    CORBA_NamedValue_var b = list.item(1);
    list.remove(1);
    EXPECT_STREQ(b->name(), "b");  // our reference outlives the list's
    EXPECT_EQ(list.count(), 4u);
    EXPECT_STREQ(CORBA_NamedValue_var(list.item(1))->name(), "c");
}
