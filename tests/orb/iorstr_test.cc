// Stringified references: the nil text, round trips, the other byte order,
// and damaged text that must never crash the reader.
#include "iorstr.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "except.h"
#include "giop.h"

namespace {

std::string own(char* s) {
    std::string r(s);
    CORBA::string_free(s);
    return r;
}

std::string sample() {
    IIOP::ObjectLocator loc;
    loc.host = "127.0.0.1";
    loc.port = 2809;
    loc.object_key.length(5);
    CORBA_OctetSequence_var data = loc.convert();
    IOP::IOR ior;
    ior.type_id = "IDL:omg.org/CosNaming/NamingContext:1.0";
    ior.profiles.length(2);
    ior.profiles[0].tag = 7;
    ior.profiles[1].profile_data = *data;
    return own(iorToString(ior));
}

TEST(IORString, NilIsOctetPaddingAndTwoZeroCounts) {
    const std::string s = own(iorToString(IOP::IOR()));
    ASSERT_EQ(s.size(), 4u + 2 * 12);
    EXPECT_EQ(s.substr(0, 6), "IOR:01");
    EXPECT_EQ(s.substr(12), "0000000000000000");
    std::unique_ptr<IOP::IOR> back(stringToIOR(s.c_str()));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->type_id.in(), nullptr);
    EXPECT_EQ(back->profiles.length(), 0u);
}

TEST(IORString, RoundTripsWithDigitsOfEitherCase) {
    std::string s = sample();
    EXPECT_EQ(s.find_first_of("ABCDEF", 4), std::string::npos);
    for (size_t i = 4; i < s.size(); ++i) s[i] = static_cast<char>(toupper(s[i]));
    std::unique_ptr<IOP::IOR> back(stringToIOR(s.c_str()));
    ASSERT_TRUE(back);
    EXPECT_STREQ(back->type_id.in(), "IDL:omg.org/CosNaming/NamingContext:1.0");
    ASSERT_EQ(back->profiles.length(), 2u);
    EXPECT_EQ(back->profiles[0].tag, 7u);
    EXPECT_EQ(own(iorToString(*back)), sample());
}

TEST(IORString, BigEndianTextReadsTheSame) {
    // Flag 0, type id "IDL:X:1.0", padding, one empty profile of tag 3.
    std::unique_ptr<IOP::IOR> ior(stringToIOR(
        "IOR:00202020" "0000000a49444c3a583a312e3000" "2020" "00000001" "00000003" "00000000"));
    ASSERT_TRUE(ior);
    EXPECT_STREQ(ior->type_id.in(), "IDL:X:1.0");
    ASSERT_EQ(ior->profiles.length(), 1u);
    EXPECT_EQ(ior->profiles[0].tag, 3u);
}

TEST(IORString, TextThatIsNoReferenceGivesNull) {
    const std::string good = sample();
    for (const std::string& bad : {std::string(), "ior:" + good.substr(4),
                                   good.substr(0, 10) + "zz" + good.substr(12), good + "g"})
        EXPECT_EQ(stringToIOR(bad.c_str()), nullptr) << bad;
    EXPECT_EQ(stringToIOR(nullptr), nullptr);
    // A trailing lone digit makes no byte and is left alone.
    EXPECT_TRUE(std::unique_ptr<IOP::IOR>(stringToIOR((good + "7").c_str())));
    EXPECT_THROW(stringToIOR("IOR:"), CORBA_MARSHAL);
}

// Every cut, and every digit with each of its bits flipped: the reader gives
// an IOR, null or CORBA_MARSHAL, and never anything else.
TEST(IORString, DamagedTextNeverCrashes) {
    const std::string good = sample();
    auto tryParse = [](const std::string& t) {
        try {
            delete stringToIOR(t.c_str());
        } catch (const CORBA_MARSHAL&) {
        }
    };
    for (size_t n = 0; n < good.size(); ++n) tryParse(good.substr(0, n));
    for (size_t i = 4; i < good.size(); ++i) {
        for (int bit = 0; bit < 4; ++bit) {
            std::string t = good;
            t[i] = "0123456789abcdef"[(t[i] <= '9' ? t[i] - '0' : t[i] - 'a' + 10) ^ (1 << bit)];
            tryParse(t);
        }
    }
}

}  // namespace
