// The adapter's tables, references in both byte orders, implementation definitions.
#include "zebboa.h"

#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include "boa.h"
#include "echo.h"
#include "except.h"
#include "giop.h"
#include "handcdr.h"
#include "impldef.h"
#include "iorstr.h"
#include "loopback_orb.h"
#include "orb.h"
#include "zebglob.h"
#include "zeboid.h"
#include "zebskel.h"
#include "zebstub.h"

namespace {

// References are hand-written as a big-endian peer writes them.
using handcdr::iorText;
using handcdr::persistentKey;
using ktest::EchoServant;

ZEBBOA* boa() {
    ktest::loopbackOrb();
    return ZEBGlobalTable::_boa;
}

struct Found {
    explicit Found(ZEBSkelInfo* s) : skel(s) {}
    ~Found() { TBResource::unref(skel); }
    ZEBSkelInfo* skel;
};

class CountingActivator : public CORBA_Activator {
public:
    CORBA_Object* activate(CORBA_ImplementationDef* def) override {
        ++calls;
        auto* obj = new EchoServant(nullptr);
        obj->_service(def->object_name, def->id);
        made.emplace_back(obj);
        return obj;
    }
    int calls = 0;
    std::vector<std::unique_ptr<EchoServant>> made;
};

}  // namespace

TEST(ZEBBOA, SkeletonsByEveryKindOfKey) {
    ZEBBOA* a = boa();
    EchoServant one("one"), two("two");
    a->obj_is_ready(&one, nullptr);
    a->obj_is_ready(&two, nullptr);
    ZEBSkelInfo* s1 = one._skeleton();
    Found anyOne(a->skelAt(ZEBPersistentId("Demo::Echo", "")));
    EXPECT_TRUE(anyOne.skel == s1 || anyOne.skel == two._skeleton());
    Found fresh(a->skelAt(ZEBTransientId("Demo::Echo", s1->_uid, s1->_created)));
    EXPECT_EQ(fresh.skel, s1);
    // A key from an earlier life of the same id is stale.
    Found stale(a->skelAt(ZEBTransientId("Demo::Echo", s1->_uid, s1->_created - 1)));
    EXPECT_EQ(stale.skel, nullptr);
}

TEST(ZEBBOA, ReadyDeactivateReadyAgainAndDestroy) {
    ZEBBOA* a = boa();
    EchoServant obj("cycle");
    ZEBSkelInfo* skel = obj._skeleton();
    a->obj_is_ready(&obj, nullptr);
    a->deactivate_obj(&obj);
    // Withdrawn: the name no longer finds it, the short key still does.
    Found byName(a->skelAt(ZEBPersistentId("Demo::Echo", "cycle")));
    EXPECT_EQ(byName.skel, nullptr);
    Found byKey(a->skelAt(ZEBKeyId(skel->_uid)));
    EXPECT_EQ(byKey.skel, skel);

    a->obj_is_ready(&obj, nullptr);
    EXPECT_EQ(skel->_state, ZEBSkelInfo::SKEL_ACTIVE);
    CORBA_ImplementationDef def("Demo::Echo", "cycle");
    a->deactivate_impl(&def);
    EXPECT_EQ(skel->_state, ZEBSkelInfo::SKEL_DEACTIVATED);

    CORBA_ImplementationDef missing("Demo::Echo", "missing");
    EXPECT_THROW(a->deactivate_impl(&missing), CORBA_NO_IMPLEMENT);
    EXPECT_THROW(a->deactivate_impl(nullptr), CORBA_BAD_PARAM);
    EXPECT_THROW(a->obj_is_ready(nullptr, nullptr), CORBA_BAD_PARAM);
    EXPECT_THROW(a->deactivate_obj(nullptr), CORBA_INV_OBJREF);

    unsigned long uid;
    {
        EchoServant gone("gone");
        a->obj_is_ready(&gone, nullptr);
        uid = gone._skeleton()->_uid;
    }
    Found after(a->skelAt(ZEBKeyId(uid)));
    EXPECT_EQ(after.skel, nullptr);
    Found goneByName(a->skelAt(ZEBPersistentId("Demo::Echo", "gone")));
    EXPECT_EQ(goneByName.skel, nullptr);
}

TEST(ZEBBOA, ServiceObjectsAreMadeOnceOnDemand) {
    ZEBBOA* a = boa();
    CountingActivator activator;
    a->impl_is_ready("svc", &activator, 0);
    CORBA_OctetSequence data(3);
    data.length(3);

    Found first(a->skelAt(ZEBServiceId("svc", data)));
    ASSERT_NE(first.skel, nullptr);
    Found second(a->skelAt(ZEBServiceId("svc", data)));
    EXPECT_EQ(second.skel, first.skel);
    EXPECT_EQ(activator.calls, 1);

    Found unknown(a->skelAt(ZEBServiceId("nosvc", data)));
    EXPECT_EQ(unknown.skel, nullptr);
}

TEST(ObjectReference, StringsOfEitherByteOrderGiveTheLocalObjectBack) {
    CORBA_ORB* o = ktest::loopbackOrb();
    EchoServant servant("round");
    int argc = 0;
    o->BOA_init(argc, nullptr)->obj_is_ready(&servant, nullptr);
    CORBA_String_var text(o->object_to_string(&servant));
    std::string upper(text.in());
    ASSERT_EQ(upper.compare(0, 4, "IOR:"), 0);
    EXPECT_EQ(upper.find_first_of("ABCDEF", 4), std::string::npos);
    for (size_t i = 4; i < upper.size(); ++i) upper[i] = static_cast<char>(toupper(upper[i]));

    CORBA_Object* back = o->string_to_object(upper.c_str());
    EXPECT_EQ(back, static_cast<CORBA_Object*>(&servant));
    EXPECT_EQ(servant._ref_count(), 2);
    CORBA::release(back);

    const uint16_t port = ZEBGlobalTable::_boa->port();
    std::string big =
        iorText(false, "IDL:Demo/Echo:1.0", port, persistentKey(false, "Demo::Echo", "round"));
    CORBA_Object* local = o->string_to_object(big.c_str());
    EXPECT_EQ(local, static_cast<CORBA_Object*>(&servant));
    CORBA::release(local);

    // One this process does not hold, at its address, gives a stub.
    big = iorText(false, "IDL:Demo/Echo:1.0", port,
                  persistentKey(false, "Demo::Echo", "elsewhere"));
    CORBA_Object_var stub(o->string_to_object(big.c_str()));
    ASSERT_NE(stub.in(), nullptr);
    EXPECT_FALSE(stub->_is_local());
    EXPECT_STREQ(stub->_object_name(), "elsewhere");
    EXPECT_NE(Demo::Echo::_narrow(stub), nullptr);
    CORBA::release(stub.in());
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

TEST(ObjectReference, UnknownTypeFallsBackAndAnyIiopOneIsTaken) {
    CORBA_ORB* o = ktest::loopbackOrb();
    std::string text =
        iorText(false, "IDL:Nobody/Knows:1.0", 9, persistentKey(false, "Nobody::Knows", "x"));
    CORBA_Object_var obj(o->string_to_object(text.c_str()));
    ASSERT_NE(obj.in(), nullptr);
    EXPECT_EQ(obj->_type_info(), &CORBA_Object::_desc());
    EXPECT_TRUE(obj->_is_a("IDL:omg.org/CORBA/Object:1.0"));

    // Passed on, it keeps the type id it came with, not its fallback's.
    CORBA_String_var again(o->object_to_string(obj));
    std::unique_ptr<IOP::IOR> ior(stringToIOR(again));
    EXPECT_STREQ(ior->type_id.in(), "IDL:Nobody/Knows:1.0");

    // A 1.2 profile with components is taken and goes on as 1.0.
    const std::string key = "foreign key";
    for (bool little : {false, true}) {
        text = iorText(little, "IDL:Demo/Echo:1.0", 9, key, 2);
        obj = o->string_to_object(text.c_str());
        ASSERT_NE(obj.in(), nullptr);
        again = o->object_to_string(obj);
        ior.reset(stringToIOR(again));
        std::unique_ptr<IIOP::ObjectLocator> loc(
            IIOP::ObjectLocator::convert(ior->profiles[0].profile_data));
        EXPECT_EQ(loc->iiop_version.minor, 0);
        EXPECT_STREQ(loc->host.in(), "127.0.0.1");
        EXPECT_EQ(loc->port, 9);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(loc->object_key.get_buffer()),
                              loc->object_key.length()),
                  key);
    }

    testing::internal::CaptureStdout();
    text = iorText(false, "IDL:Demo/Echo:1.0", 9, key, 0, 2);
    EXPECT_THROW(o->string_to_object(text.c_str()), CORBA_INV_OBJREF);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Kelvanor: Unknown IIOP version:\n\tMajor: 2\n\tMinor: 0\n"
              "Expecting version:\n\tMajor: 1\n\tMinor: 0\n");
}

TEST(ObjectReference, BindOnLocal) {
    ktest::loopbackOrb();
    EchoServant servant("h");
    EXPECT_THROW(servant.CORBA_Object::_bind("Demo::Echo", "h", nullptr, nullptr),
                 CORBA_BAD_OPERATION);
    EXPECT_FALSE(servant._non_existent());
    EXPECT_TRUE(servant._is_a("IDL:Demo/Echo:1.0"));
    EXPECT_FALSE(servant._is_a("IDL:Demo/Other:1.0"));
}

TEST(ImplDef, NarrowAndHoldersMakeDeepCopies) {
    CORBA_StringSequence args;
    args.length(1);
    args[0] = "-a";
    CORBA_CreationImplDef creation("Demo::Iface", "obj", CORBA_OctetSequence(), "/bin/sh",
                                   CORBA_CreationImplDef::UNSHARED_SERVER, args);
    CountingActivator activator;
    CORBA_ActivationImplDef activation("I", "o", CORBA_OctetSequence(), &activator);
    CORBA_ImplementationDef plain("I", "o");

    CORBA_CreationImplDef_var narrowed = CORBA_CreationImplDef::_narrow(&creation);
    EXPECT_NE(narrowed->path.in(), creation.path.in());
    narrowed = nullptr;  // deleting the copy leaves the argument whole
    EXPECT_STREQ(creation.path, "/bin/sh");
    EXPECT_EQ(CORBA_ActivationImplDef::_narrow(&creation), nullptr);
    EXPECT_EQ(CORBA_CreationImplDef::_narrow(&plain), nullptr);
    EXPECT_EQ(CORBA_ActivationImplDef_var(CORBA_ActivationImplDef::_narrow(&activation))->activator,
              &activator);  // shared, not copied

    CORBA_CreationImplDef_var a = creation._copy();
    CORBA_CreationImplDef_var b = a;
    b->args[0] = "changed";
    EXPECT_STREQ(a->args[0], "-a");
}

