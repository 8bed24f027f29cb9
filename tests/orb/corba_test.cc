// CORBA basics: the string hash, the two sequences, ZEBString and
// ZEBUniqueId, through the text object streams and through CDR.
#include "corba.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>

#include "except.h"
#include "mstrm.h"
#include "sequence.h"
#include "tbiostrm.h"
#include "zebstring.h"

namespace {

// The CDR bytes that writing v produces.
template <class T>
std::string cdrBytes(const T& v) {
    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    out << v;
    return std::string(out.buffer(), out.length());
}

CORBA_OctetSequence octets(const std::string& bytes) {
    CORBA_OctetSequence s;
    s.length(static_cast<CORBA::ULong>(bytes.size()));
    if (!bytes.empty()) std::memcpy(s.get_buffer(), bytes.data(), bytes.size());
    return s;
}

CORBA_StringSequence strings(std::initializer_list<const char*> items) {
    CORBA_StringSequence s(static_cast<CORBA::ULong>(items.size()));
    s.length(static_cast<CORBA::ULong>(items.size()));
    CORBA::ULong i = 0;
    for (const char* item : items) s[i++] = item;
    return s;
}

}  // namespace

TEST(CORBAStrings, HashCountsBytesUnsignedAndKeeps31Bits) {
    EXPECT_EQ(0u, CORBA::hash(nullptr));
    EXPECT_EQ(0u, CORBA::hash(""));
    EXPECT_EQ(97u, CORBA::hash("a"));
    EXPECT_EQ((97u * 2) ^ 98u, CORBA::hash("ab"));
    EXPECT_EQ(255u, CORBA::hash("\xff"));  // bytes count unsigned
    // Long strings shift bits past 31; the result keeps only the low 31.
    EXPECT_EQ(0u, CORBA::hash(std::string(40, '\x80').c_str()) & 0x80000000u);
}

TEST(CORBAOctetSequence, LengthGrowsExactlyAndZeroFills) {
    CORBA_OctetSequence s(4);
    s.length(3);
    s[0] = 1; s[1] = 2; s[2] = 3;
    s.length(1);
    s.length(4);  // within the maximum: the bytes beyond the old length are zero again
    EXPECT_EQ(1, s[0]);
    EXPECT_EQ(0, s[1]);
    s.length(9);  // beyond: exactly n, old bytes kept
    EXPECT_EQ(9u, s.maximum());
    EXPECT_EQ(1, s[0]);
    for (CORBA::ULong i = 1; i < 9; ++i) EXPECT_EQ(0, s[i]) << i;
    EXPECT_THROW(s[9], CORBA_BAD_PARAM);
}

TEST(CORBAOctetSequence, StreamFormsRefuseNullAndLyingCounts) {
    EXPECT_EQ(std::string("\x03\0\0\0abc", 7), cdrBytes(octets("abc")));
    EXPECT_EQ(std::string(4, '\0'), cdrBytes(CORBA_OctetSequence()));

    std::ostringstream os;
    {
        TBostream out(os);
        const CORBA_OctetSequence* none = nullptr;
        EXPECT_THROW(out << none, CORBA_BAD_PARAM);
        EXPECT_THROW(out << CORBA_OctetSequence_var(), CORBA_BAD_PARAM);
        out << octets(std::string("a\0\n", 3)) << octets("");
    }
    EXPECT_EQ(std::string("3 a\0\n0 ", 7), os.str());  // nothing of the null ones
    std::istringstream is(os.str());
    TBistream in(is);
    CORBA_OctetSequence back(1);
    in >> back;
    EXPECT_EQ(0, back.compare(octets(std::string("a\0\n", 3))));
    CORBA_OctetSequence_var fresh;
    in >> fresh;
    ASSERT_NE(nullptr, fresh.ptr());
    EXPECT_EQ(0u, fresh->length());

    // A count far beyond the data: MARSHAL, not a 4 GB allocation.
    std::istringstream liar("4000000000 ab");
    TBistream lin(liar);
    EXPECT_THROW(lin >> back, CORBA_MARSHAL);
}

TEST(CORBAStringSequence, NullElementSurvivesCdrUnlikeEmpty) {
    CORBA_StringSequence s = strings({"x", "", "with \"quote\"\n"});
    std::ostringstream os;
    {
        TBostream out(os);
        out << s;
    }
    std::istringstream is(os.str());
    TBistream in(is);
    CORBA_StringSequence grown;  // takes the growing path
    in >> grown;
    EXPECT_EQ(0, compare(s, grown));

    // Through CDR a null element stays null, unlike "".
    s[1] = static_cast<char*>(nullptr);
    std::string bytes = cdrBytes(s);
    CORBA_MarshalInBuffer cdr(&bytes[0], static_cast<CORBA::ULong>(bytes.size()));
    CORBA_StringSequence back = strings({"", "", "", ""});  // short old strings in place
    cdr >> back;
    EXPECT_EQ(nullptr, static_cast<const CORBA_StringSequence&>(back)[1]);
    EXPECT_EQ(0, compare(s, back));
}

TEST(ZEBString, StreamFormsAndCountZero) {
    EXPECT_EQ(std::string("\x01\0\0\0\0", 5), cdrBytes(static_cast<const TBTransObject&>(ZEBString())));
    EXPECT_EQ(std::string("\x03\0\0\0ab\0", 7),
              cdrBytes(static_cast<const TBTransObject&>(ZEBString("ab"))));

    // A count of 0 is no writer's output; it reads as "" and not as 4 GB.
    std::string zero(4, '\0');
    CORBA_MarshalInBuffer cdr(&zero[0], 4);
    EXPECT_STREQ("", ZEBString(cdr).string());

    std::string cut("\x09\0\0\0abc", 7);
    CORBA_MarshalInBuffer shortData(&cut[0], 7);
    EXPECT_THROW(ZEBString{shortData}, CORBA_MARSHAL);
}
