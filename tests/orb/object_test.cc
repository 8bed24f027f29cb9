// References in one process: stringified forms in both byte orders, local
// objects found again from their IOR, stubs for everything else, and the
// questions every object answers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "boa.h"
#include "echo.h"
#include "except.h"
#include "giop.h"
#include "handcdr.h"
#include "orb.h"
#include "zebboa.h"
#include "loopback_orb.h"
#include "zebglob.h"
#include "zebskel.h"
#include "zebstub.h"

// References are written by hand as a big-endian peer writes them, so that
// the reader's swapping is what is under test, not a second use of our writer.
using handcdr::iorText;
using handcdr::persistentKey;
using ktest::EchoServant;

TEST(ObjectReference, StringRoundTripGivesTheLocalObjectBack) {
    CORBA_ORB* o = ktest::loopbackOrb();
    EchoServant servant("round");
    int argc = 0;
    o->BOA_init(argc, nullptr)->obj_is_ready(&servant, nullptr);
    CORBA_String_var text(o->object_to_string(&servant));
    ASSERT_EQ(std::strncmp(text, "IOR:", 4), 0);

    CORBA_Object* back = o->string_to_object(text);
    EXPECT_EQ(back, static_cast<CORBA_Object*>(&servant));
    EXPECT_EQ(servant._ref_count(), 2);
    CORBA::release(back);

    Demo::Echo_var echo(Demo::Echo::_narrow(&servant));
    ASSERT_NE(echo.in(), nullptr);
    CORBA_String_var said(echo->say("direct"));
    EXPECT_STREQ(said, "direct");
}

TEST(ObjectReference, OtherByteOrderFindsTheSameObject) {
    CORBA_ORB* o = ktest::loopbackOrb();
    EchoServant servant("bigend");
    ZEBGlobalTable::_boa->obj_is_ready(&servant, nullptr);
    const uint16_t port = ZEBGlobalTable::_boa->port();

    std::string text =
        iorText(false, "IDL:Demo/Echo:1.0", port, persistentKey(false, "Demo::Echo", "bigend"));
    CORBA_Object* local = o->string_to_object(text.c_str());
    EXPECT_EQ(local, static_cast<CORBA_Object*>(&servant));
    CORBA::release(local);

    // An object this process does not hold, at this process's address,
    // still gives a stub that names it.
    text = iorText(false, "IDL:Demo/Echo:1.0", port,
                   persistentKey(false, "Demo::Echo", "elsewhere"));
    CORBA_Object_var stub(o->string_to_object(text.c_str()));
    ASSERT_NE(stub.in(), nullptr);
    EXPECT_FALSE(stub->_is_local());
    EXPECT_STREQ(stub->_interface_name(), "Demo::Echo");
    EXPECT_STREQ(stub->_object_name(), "elsewhere");
    EXPECT_STREQ(stub->_repository_id(), "IDL:Demo/Echo:1.0");
    EXPECT_NE(Demo::Echo::_narrow(stub), nullptr);
    CORBA::release(stub.in());

    // Its own stringified form is in our byte order and decodes alike.
    CORBA_String_var again(o->object_to_string(stub));
    CORBA_Object_var stub2(o->string_to_object(again));
    ASSERT_NE(stub2.in(), nullptr);
    EXPECT_TRUE(stub->_is_equivalent(stub2));
}

TEST(ObjectReference, NilAndMalformedText) {
    CORBA_ORB* o = ktest::loopbackOrb();
    CORBA_String_var nil(o->object_to_string(nullptr));
    // The byte-order octet, three blanks of padding, two zero counts.
    EXPECT_STREQ(nil, "IOR:012020200000000000000000");
    EXPECT_EQ(o->string_to_object(nil), nullptr);

    testing::internal::CaptureStdout();
    EXPECT_EQ(o->string_to_object("ior:0100"), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Invalid Stringified Object Reference 'ior:0100'\n");
    EXPECT_THROW(o->string_to_object("IOR:01zz"), CORBA_MARSHAL);
    // A reference as a file holds it, with a line end, reads the same.
    EXPECT_EQ(o->string_to_object((std::string(nil.in()) + "\r\n").c_str()), nullptr);
    EXPECT_THROW(o->string_to_object("IOR:01 00"), CORBA_MARSHAL);
}

TEST(ObjectReference, UnknownTypeFallsBackAndWrongVersionIsRefused) {
    CORBA_ORB* o = ktest::loopbackOrb();
    std::string text =
        iorText(false, "IDL:Nobody/Knows:1.0", 9, persistentKey(false, "Nobody::Knows", "x"));
    CORBA_Object_var obj(o->string_to_object(text.c_str()));
    ASSERT_NE(obj.in(), nullptr);
    EXPECT_EQ(obj->_type_info(), &CORBA_Object::_desc());
    // Answered from the type, without a call.
    EXPECT_TRUE(obj->_is_a("IDL:omg.org/CORBA/Object:1.0"));

    testing::internal::CaptureStdout();
    text = iorText(false, "IDL:Demo/Echo:1.0", 9, "foreign key", 1);
    EXPECT_THROW(o->string_to_object(text.c_str()), CORBA_INV_OBJREF);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Kelvanor: Unknown IIOP version:\n\tMajor: 1\n\tMinor: 1\n"
              "Expecting version:\n\tMajor: 1\n\tMinor: 0\n");
}

TEST(ObjectReference, HashEquivalenceAndBindOnLocal) {
    ktest::loopbackOrb();
    EchoServant servant("h");
    const CORBA::ULong raw = servant._hash(0);
    EXPECT_EQ(servant._hash(1), 0u);
    EXPECT_EQ(servant._hash(1000), raw % 1000);
    EXPECT_NE(raw, EchoServant("other")._hash(0));
    EXPECT_THROW(servant.CORBA_Object::_bind("Demo::Echo", "h", nullptr, nullptr),
                 CORBA_BAD_OPERATION);
    EXPECT_FALSE(servant._non_existent());
    EXPECT_TRUE(servant._is_a("IDL:Demo/Echo:1.0"));
    EXPECT_FALSE(servant._is_a("IDL:Demo/Other:1.0"));
}
