// The object adapter's tables in one process: finding skeletons by every
// kind of key, the life of an object through ready and deactivation, and
// service objects made on demand by an activator.
#include <gtest/gtest.h>

#include <memory>

#include "boa.h"
#include "echo.h"
#include "except.h"
#include "impldef.h"
#include "orb.h"
#include "zebboa.h"
#include "loopback_orb.h"
#include "zebglob.h"
#include "zeboid.h"
#include "zebskel.h"

namespace {

using ktest::EchoServant;

ZEBBOA* boa() {
    ktest::loopbackOrb();
    return ZEBGlobalTable::_boa;
}

// Holds what skelAt returned and drops the reference.
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

    Found byName(a->skelAt(ZEBPersistentId("Demo::Echo", "two")));
    EXPECT_EQ(byName.skel, two._skeleton());
    Found byKey(a->skelAt(ZEBKeyId(s1->_uid)));
    EXPECT_EQ(byKey.skel, s1);
    Found anyOne(a->skelAt(ZEBPersistentId("Demo::Echo", "")));
    EXPECT_TRUE(anyOne.skel == s1 || anyOne.skel == two._skeleton());
    Found none(a->skelAt(ZEBPersistentId("Demo::Other", "one")));
    EXPECT_EQ(none.skel, nullptr);

    Found fresh(a->skelAt(ZEBTransientId("Demo::Echo", s1->_uid, s1->_created)));
    EXPECT_EQ(fresh.skel, s1);
    // A key from an earlier life of the same id is stale.
    Found stale(a->skelAt(ZEBTransientId("Demo::Echo", s1->_uid, s1->_created - 1)));
    EXPECT_EQ(stale.skel, nullptr);
}

TEST(ZEBBOA, ReadyDeactivateAndReadyAgain) {
    ZEBBOA* a = boa();
    EchoServant obj("cycle");
    ZEBSkelInfo* skel = obj._skeleton();
    EXPECT_EQ(skel->_state, ZEBSkelInfo::SKEL_INACTIVE);
    a->obj_is_ready(&obj, nullptr);
    EXPECT_EQ(skel->_state, ZEBSkelInfo::SKEL_ACTIVE);

    a->deactivate_obj(&obj);
    EXPECT_EQ(skel->_state, ZEBSkelInfo::SKEL_DEACTIVATED);
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
}

TEST(ZEBBOA, UniqueIdsSkipTakenOnesAndObjectsLeaveOnDestruction) {
    ZEBBOA* a = boa();
    unsigned long uid;
    {
        EchoServant obj("gone");
        a->obj_is_ready(&obj, nullptr);
        uid = obj._skeleton()->_uid;
        EXPECT_EQ(a->getUniqueId(), uid + 1);
    }
    Found after(a->skelAt(ZEBKeyId(uid)));
    EXPECT_EQ(after.skel, nullptr);
    Found byName(a->skelAt(ZEBPersistentId("Demo::Echo", "gone")));
    EXPECT_EQ(byName.skel, nullptr);
}

TEST(ZEBBOA, ServiceObjectsAreMadeOnceOnDemand) {
    ZEBBOA* a = boa();
    CountingActivator activator;
    a->impl_is_ready("svc", &activator, 0);
    CORBA_OctetSequence data(3);
    data.length(3);
    data[0] = 1;
    data[1] = 2;
    data[2] = 3;

    Found first(a->skelAt(ZEBServiceId("svc", data)));
    ASSERT_NE(first.skel, nullptr);
    Found second(a->skelAt(ZEBServiceId("svc", data)));
    EXPECT_EQ(second.skel, first.skel);
    EXPECT_EQ(activator.calls, 1);

    Found unknown(a->skelAt(ZEBServiceId("nosvc", data)));
    EXPECT_EQ(unknown.skel, nullptr);
}
