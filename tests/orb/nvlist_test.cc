// Named value lists: order across growth, copies of the values put in,
// bounds, removal and the references handed out.
#include "nvlist.h"

#include <gtest/gtest.h>

#include "any.h"

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
    EXPECT_STREQ(CORBA_NVList::Bounds::_description.name, "CORBA::NVList::Bounds");
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
