// TBString: hashing like class names, assignment that reuses the buffer,
// concatenation, and the stream form with escapes and a lying length.
#include "tbstring.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "dstestkey.h"

namespace {

TEST(TBString, HashAssignmentAndConcatenation) {
    EXPECT_EQ(TBString().hash(), 0u);
    EXPECT_EQ(TBString("DSSet").hash(), TBTypeDict::strHash("DSSet"));
    EXPECT_FALSE(TBString("x").isEqual(DSTestKey(1)));
    TBString s("longer text");
    const char* buffer = s.string();
    s = "short";
    EXPECT_EQ(s.string(), buffer);
    EXPECT_EQ(s.length(), 5u);
    s = TBString("a string that is longer than before");
    s = s.string() + 2;  // from inside its own buffer
    EXPECT_STREQ(s.string(), "string that is longer than before");
    TBString a("ab");
    a &= a & "cd" & TBString("ef");
    EXPECT_STREQ(a.string(), "ababcdef");
    EXPECT_EQ(a.length(), 8u);
}

TEST(TBString, StreamFormIsLengthThenQuotedText) {
    TBString s("a\"b{\n}");
    std::stringstream ss;
    TBostream(ss) << static_cast<const TBTransObject&>(s);
    EXPECT_EQ(ss.str(), "6 \"a\\\"b\\[\\n\\]\"\n");
    std::unique_ptr<TBTransObject> obj(dsRoundTrip(&s));
    ASSERT_NE(obj, nullptr);
    EXPECT_STREQ(TB_CAST(TBString, obj.get())->string(), s.string());
}

TEST(TBString, LengthOnTheStreamDoesNotDecideTheText) {
    for (const char* text : {"4000000000 \"abc\"\n", "1 \"abc\"\n"}) {
        std::stringstream ss(text);
        TBistream in(ss);
        testing::internal::CaptureStderr();
        TBString s(in);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(s.length(), std::string(s.string()).size()) << text;
        EXPECT_LE(s.length(), 3u) << text;
    }
}

}  // namespace
