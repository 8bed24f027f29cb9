// Talking GIOP 1.0 to an independent broker: a private omniNames naming
// service. Its root reference is parsed with our own IOR code, and a
// LocateRequest and an _is_a Request go over our stream and are decoded by it.
#include "zebstrm.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "except.h"
#include "giop.h"
#include "iorstr.h"
#include "omninames.h"
#include "zebglob.h"

namespace {

class OmniNamesPeer : public ::testing::Test {
protected:
    void SetUp() override {
        KELVANOR_REQUIRE_OMNINAMES();
        // Replies are awaited in the dispatcher, so the time limits hold.
        _callback = ZEBGlobalTable::has_callback;
        ZEBGlobalTable::has_callback = 1;
        ASSERT_TRUE(ns.start()) << ns.error();
        std::unique_ptr<IOP::IOR> ior(stringToIOR(ns.rootIOR().c_str()));
        ASSERT_NE(nullptr, ior) << ns.rootIOR();
        for (CORBA::ULong i = 0; i < ior->profiles.length() && !locator; ++i) {
            if (ior->profiles[i].tag == IOP::TAG_INTERNET_IOP)
                locator.reset(IIOP::ObjectLocator::convert(ior->profiles[i].profile_data));
        }
        ASSERT_NE(nullptr, locator);
    }
    void TearDown() override {
        ZEBGlobalTable::has_callback = _callback;
        ns.stop();
    }

    // Sends an _is_a Request for id and gives the boolean answer.
    bool isA(ZEBIIOPstream& s, CORBA::ULong requestId, const char* id) {
        IIOP::RequestHeader rh;
        rh.request_id = requestId;
        rh.response_expected = 1;
        rh.object_key = locator->object_key;
        rh.operation = "_is_a";
        s.beginWrite(0);
        s.writeMessageHeader(IIOP::Request);
        s << rh << id;
        s.sendAndWaitForReply(10);
        EXPECT_EQ(IIOP::Reply, s.msgHeader().message_type);
        IIOP::ReplyHeader reply;
        s >> reply;
        EXPECT_EQ(requestId, reply.request_id);
        EXPECT_EQ(IIOP::NO_EXCEPTION, reply.reply_status);
        CORBA::Boolean answer = 0;
        s >> answer;
        return answer != 0;
    }

    ktest::OmniNames ns;
    std::unique_ptr<IIOP::ObjectLocator> locator;

private:
    CORBA::Boolean _callback = 0;
};

TEST_F(OmniNamesPeer, RootContextAnswersLocateAndIsA) {
    EXPECT_EQ(ns.port(), locator->port);
    ZEBIIOPstream s;
    s.connect(locator->host, locator->port, 5);

    IIOP::LocateRequestHeader lr;
    lr.request_id = 0;
    lr.object_key = locator->object_key;
    s.beginWrite(0);
    s.writeMessageHeader(IIOP::LocateRequest);
    s << lr;
    s.sendAndWaitForReply(10);
    ASSERT_EQ(IIOP::LocateReply, s.msgHeader().message_type);
    IIOP::LocateReplyHeader reply;
    s >> reply;
    EXPECT_EQ(0u, reply.request_id);
    EXPECT_EQ(IIOP::OBJECT_HERE, reply.locate_status);

    // The same connection carries on: the answers are told apart by content.
    EXPECT_TRUE(isA(s, 1, "IDL:omg.org/CosNaming/NamingContext:1.0"));
    EXPECT_FALSE(isA(s, 2, "IDL:omg.org/CosNaming/BindingIterator:1.0"));
    s.close();
}

}  // namespace
