// TBString: hashing like class names, assignment that reuses the buffer,
// and concatenation.
#include "tbstring.h"

#include <gtest/gtest.h>


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

}  // namespace
