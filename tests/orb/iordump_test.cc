// The iordump tool, run as a program: references of each key kind made by
// this broker, foreign keys and profiles, nil, garbage, standard input, and
// the root reference of a running omniNames.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "giop.h"
#include "iorstr.h"
#include "omninames.h"
#include "process.h"
#include "zeboid.h"

namespace {

struct Outcome {
    int status;
    std::string out, err;
};

Outcome iordump(const std::string& arg, bool viaStdin = false) {
    ktest::TempDir dir("iordump");
    ktest::Process::Options opts;
    opts.argv = {KELVANOR_IORDUMP_BINARY};
    if (viaStdin) {
        opts.stdinPath = dir.file("in");
        ktest::writeFile(opts.stdinPath, arg);
    } else {
        opts.argv.push_back(arg);
    }
    ktest::Process p;
    EXPECT_TRUE(p.start(opts)) << p.error();
    EXPECT_TRUE(p.wait(std::chrono::seconds(10)));
    return {p.exitCode(), p.stdoutText(), p.stderrText()};
}

std::string own(char* text) {
    std::string s(text);
    CORBA::string_free(text);
    return s;
}

// A reference of type IDL:T:1.0 whose one profile is 127.0.0.1:port with key;
// with no key, one profile of tag 1 instead.
std::string reference(const CORBA_OctetSequence* key, CORBA::UShort port = 4000) {
    IIOP::ObjectLocator loc;
    loc.host = "127.0.0.1";
    loc.port = port;
    if (key) loc.object_key = *key;
    CORBA_OctetSequence_var data = loc.convert();
    IOP::IOR ior;
    ior.type_id = "IDL:T:1.0";
    ior.profiles.length(1);
    ior.profiles[0].tag = key ? IOP::TAG_INTERNET_IOP : IOP::TAG_MULTIPLE_COMPONENTS;
    if (key) ior.profiles[0].profile_data = *data;
    return own(iorToString(ior));
}

// The last line iordump prints for the key of id.
std::string kindLine(ZEBObjectId* raw) {
    ZEBObjectId_var id = raw;
    CORBA_OctetSequence_var key = id->convert();
    const Outcome r = iordump(reference(key));
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
    const std::string good = reference(&key);
    for (const std::string& bad : {std::string("hello"), "ior:" + good.substr(4), std::string("IOR:"),
                                   good.substr(0, good.size() - 6), good.substr(0, 30) + "xy"}) {
        const Outcome r = iordump(bad);
        EXPECT_EQ(r.status, 1) << bad;
        EXPECT_TRUE(r.out.empty()) << bad;
        ASSERT_FALSE(r.err.empty()) << bad;
        EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    }
}

// Profiles 0 and 2 are good IIOP profiles; profile 1 claims the tag but its
// data stops inside the host name. The good ones are printed in full, the
// bad one by its tag line and by its number on standard error.
TEST(IORDump, ADamagedProfileSparesTheOthers) {
    ZEBObjectId_var id = new ZEBKeyId(5);
    CORBA_OctetSequence_var key = id->convert();
    IIOP::ObjectLocator loc;
    loc.host = "127.0.0.1";
    loc.port = 4000;
    loc.object_key = *key;
    CORBA_OctetSequence_var data = loc.convert();
    CORBA_OctetSequence cut(*data);
    cut.length(12);  // order, version, pad, host length, 4 of the host's 10 bytes
    IOP::IOR ior;
    ior.type_id = "IDL:T:1.0";
    ior.profiles.length(3);
    for (CORBA::ULong i = 0; i < 3; ++i) {
        ior.profiles[i].tag = IOP::TAG_INTERNET_IOP;
        ior.profiles[i].profile_data = i == 1 ? cut : *data;
    }
    const Outcome r = iordump(own(iorToString(ior)));
    EXPECT_EQ(r.status, 1);
    const std::string good = "iiop: 1.0 127.0.0.1 4000\nkey: ";
    EXPECT_EQ(r.out.find("type_id: IDL:T:1.0\nprofile 0: tag 0\n" + good), 0u) << r.out;
    EXPECT_NE(r.out.find("key kind: key 5\nprofile 1: tag 0\nprofile 2: tag 0\n" + good),
              std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.rfind("key kind: key 5\n"), r.out.size() - 16) << r.out;
    EXPECT_EQ(r.err, "iordump: profile 1: malformed IIOP profile (CORBA::MARSHAL)\n");
}

TEST(IORDump, ReadsTheRootReferenceOfOmniNames) {
    KELVANOR_REQUIRE_OMNINAMES();
    ktest::OmniNames names;
    ASSERT_TRUE(names.start()) << names.error();
    const Outcome r = iordump(names.rootIOR());
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("type_id: IDL:omg.org/CosNaming/NamingContext"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("iiop: 1.0 127.0.0.1 " + std::to_string(names.port()) + "\nkey: "),
              std::string::npos)
        << r.out;
}

}  // namespace
