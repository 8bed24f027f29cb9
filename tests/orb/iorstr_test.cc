// The iordump tool run as a program on references of every kind.
#include "iorstr.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "except.h"
#include "giop.h"
#include "handcdr.h"
#include "process.h"
#include "zeboid.h"

namespace {

CORBA_OctetSequence iiop(const CORBA_OctetSequence& key, CORBA::UShort port = 4000) {
    IIOP::ObjectLocator loc;
    loc.host = "127.0.0.1";
    loc.port = port;
    loc.object_key = key;
    CORBA_OctetSequence_var data = loc.convert();
    return *data;
}

std::string iorString(const char* typeId,
                      const std::vector<std::pair<CORBA::ULong, CORBA_OctetSequence>>& profiles) {
    IOP::IOR ior;
    ior.type_id = typeId;
    ior.profiles.length(static_cast<CORBA::ULong>(profiles.size()));
    for (CORBA::ULong i = 0; i < profiles.size(); ++i) {
        ior.profiles[i].tag = profiles[i].first;
        ior.profiles[i].profile_data = profiles[i].second;
    }
    CORBA_String_var text(iorToString(ior));
    return text.in();
}

ktest::Outcome iordump(const std::string& arg) {
    return ktest::run({KELVANOR_IORDUMP_BINARY, arg}, std::chrono::seconds(10));
}

std::string reference(const CORBA_OctetSequence& key) {
    return iorString("IDL:T:1.0", {{IOP::TAG_INTERNET_IOP, iiop(key)}});
}

// The last line iordump prints for the key of id.
std::string kindLine(ZEBObjectId* raw) {
    ZEBObjectId_var id = raw;
    CORBA_OctetSequence_var key = id->convert();
    const ktest::Outcome r = iordump(reference(*key));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("type_id: IDL:T:1.0\nprofile 0: tag 0\niiop: 1.0 127.0.0.1 4000\nkey: ", 0),
              0u) << r.out;
    const std::string::size_type kind = r.out.find("key kind: ");
    return kind == std::string::npos ? r.out : r.out.substr(kind);
}

TEST(IORDump, ShowsEachKindOfBrokerKey) {
    EXPECT_EQ(kindLine(new ZEBPersistentId("Activation::VEX", "VEX")),
              "key kind: persistent Activation::VEX VEX\n");
    EXPECT_EQ(kindLine(new ZEBTransientId("Account", 17, 1700000000)),
              "key kind: transient Account 17 1700000000\n");
    EXPECT_EQ(kindLine(new ZEBKeyId(99)), "key kind: key 99\n");
    CORBA_OctetSequence data;
    data.length(2);
    data[0] = 0xab;
    data[1] = 0x01;
    EXPECT_EQ(kindLine(new ZEBServiceId("NameService", data)),
              "key kind: service NameService ab01\n");
}

TEST(IORDump, GarbageIsOneLineOnStandardErrorAndStatusOne) {
    CORBA_OctetSequence key;
    const std::string good = reference(key);
    for (const std::string& bad : {std::string("hello"), "ior:" + good.substr(4), std::string("IOR:"),
                                   good.substr(0, good.size() - 6), good.substr(0, 30) + "xy"}) {
        const ktest::Outcome r = iordump(bad);
        EXPECT_EQ(r.status, 1) << bad;
        EXPECT_TRUE(r.out.empty()) << bad;
        ASSERT_FALSE(r.err.empty()) << bad;
        EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    }
}

// Profile 1 stops inside the host name; 0 and 2 are printed in full.
TEST(IORDump, ADamagedProfileSparesTheOthers) {
    ZEBObjectId_var id = new ZEBKeyId(5);
    CORBA_OctetSequence_var key = id->convert();
    const CORBA_OctetSequence data = iiop(*key);
    CORBA_OctetSequence cut(data);
    cut.length(12);  // order, version, pad, host length, 4 of the host's 10 bytes
    const CORBA::ULong tag = IOP::TAG_INTERNET_IOP;
    const ktest::Outcome r =
        iordump(iorString("IDL:T:1.0", {{tag, data}, {tag, cut}, {tag, data}}));
    EXPECT_EQ(r.status, 1);
    const std::string good = "iiop: 1.0 127.0.0.1 4000\nkey: ";
    EXPECT_EQ(r.out.find("type_id: IDL:T:1.0\nprofile 0: tag 0\n" + good), 0u) << r.out;
    EXPECT_NE(r.out.find("key kind: key 5\nprofile 1: tag 0\nprofile 2: tag 0\n" + good),
              std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.rfind("key kind: key 5\n"), r.out.size() - 16) << r.out;
    EXPECT_EQ(r.err, "iordump: profile 1: malformed IIOP profile (CORBA::MARSHAL)\n");
}

TEST(IORDump, ShowsTheComponentsOfLaterProfiles) {
    for (bool little : {false, true}) {
        const ktest::Outcome r = iordump(handcdr::iorText(little, "IDL:T:1.0", 4000, "k", 2));
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find("iiop: 1.2 127.0.0.1 4000\nkey: "), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("component: tag 0 (ORB type) length 8 value 0x41545400\n"
                             "component: tag 2147418113 length 3\n"),
                  std::string::npos)
            << r.out;
    }
}

}  // namespace
