// Stringified references: round trips, and damaged text that must never
// crash the reader.
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
