// CORBA basics: string helpers and holder, the two sequences, ZEBString and
// ZEBUniqueId, through the text object streams and through CDR.
#include "corba.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <iostream>
#include <sstream>
#include <string>

#include "dsdict.h"
#include "except.h"
#include "mstrm.h"
#include "sequence.h"
#include "tbiostrm.h"
#include "tbstring.h"
#include "zebstring.h"

namespace {

// Sends cout to a string for the life of the object.
class CoutCapture {
public:
    CoutCapture() : _old(std::cout.rdbuf(_text.rdbuf())) {}
    ~CoutCapture() { std::cout.rdbuf(_old); }
    std::string text() const { return _text.str(); }

private:
    std::ostringstream _text;
    std::streambuf* _old;
};

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

TEST(CORBAStrings, AllocDupFreeAndHash) {
    char* p = CORBA::string_alloc(3);
    EXPECT_EQ('\0', p[0]);
    std::strcpy(p, "abc");  // room for 3 characters and the NUL
    CORBA::string_free(p);
    CORBA::string_free(nullptr);
    EXPECT_EQ(nullptr, CORBA::strdup(nullptr));

    EXPECT_EQ(0u, CORBA::hash(nullptr));
    EXPECT_EQ(0u, CORBA::hash(""));
    EXPECT_EQ(97u, CORBA::hash("a"));
    EXPECT_EQ((97u * 2) ^ 98u, CORBA::hash("ab"));
    EXPECT_EQ(255u, CORBA::hash("\xff"));  // bytes count unsigned
    // Long strings shift bits past 31; the result keeps only the low 31.
    EXPECT_EQ(0u, CORBA::hash(std::string(40, '\x80').c_str()) & 0x80000000u);
}

TEST(CORBAStringVar, AdoptsCharPointersAndCopiesConstOnes) {
    char* owned = CORBA::strdup("adopted");
    CORBA_String_var a(owned);
    EXPECT_EQ(owned, static_cast<const char*>(a));
    const char* text = "copied";
    CORBA_String_var b(text);
    EXPECT_NE(text, b.in());

    CORBA_String_var c(b);
    c[0] = 'C';
    EXPECT_STREQ("copied", b.in());
    c = c;
    c = static_cast<const char*>(c);  // source and target are one string
    EXPECT_STREQ("Copied", c.in());

    b.out() = CORBA::strdup("filled");
    EXPECT_STREQ("filled", b.in());
    CORBA::string_free(b._retn());
    EXPECT_EQ(nullptr, b.in());
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

TEST(CORBAOctetSequence, HashCompareAssignAndVar) {
    EXPECT_EQ(0u, CORBA_OctetSequence().hash());
    EXPECT_EQ(3u ^ 1u ^ 2u ^ 3u, octets("\x01\x02\x03").hash());
    EXPECT_EQ(2, octets("abc").compare(octets("a")));
    EXPECT_EQ(-2, octets("a").compare(octets("abc")));
    EXPECT_GT(octets("abd").compare(octets("abc")), 0);
    EXPECT_EQ(0, octets("").compare(CORBA_OctetSequence(8)));

    CORBA_OctetSequence a = octets("hello");
    CORBA_OctetSequence big(16);
    const CORBA::Octet* before = big.get_buffer();
    big = a;  // fits the maximum: no new buffer
    EXPECT_EQ(before, big.get_buffer());
    CORBA_OctetSequence small(2);
    small = a;
    EXPECT_EQ(0, small.compare(a));
    EXPECT_EQ(0, big.compare(a));

    CORBA_OctetSequence_var v(new CORBA_OctetSequence(a));
    {
        CORBA_OctetSequence_var w(v);  // shares: one more reference
        w[0] = 'j';
    }
    EXPECT_EQ('j', (*v)[0]);
    EXPECT_EQ('h', a[0]);
}

TEST(CORBAOctetSequence, StreamAndPrintingForms) {
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

    CoutCapture cap;
    std::cout << octets("hi");
    EXPECT_EQ("SEQUENCE NAME: CORBA::OctetSequence\nNUM OF ELEMENTS: 2\n"
              "ELEMENT NUM: 0 = h\nELEMENT NUM: 1 = i\n",
              cap.text());
}

TEST(CORBAStringSequence, DeepCopyGrowthAndElementAssignment) {
    CORBA_StringSequence s(2);
    EXPECT_EQ(nullptr, s.get_buffer()[1]);
    s.length(3);
    s[0] = "zero";
    s[2] = CORBA::strdup("two");  // adopted
    s[0] = s[0];                  // the old string is freed after the copy
    EXPECT_STREQ("zero", s[0]);

    CORBA_StringSequence_var copy(new CORBA_StringSequence(s));
    CORBA_StringSequence_var again(copy);
    again[0] = "changed";
    EXPECT_STREQ("zero", s[0]);
    EXPECT_STREQ("zero", (*copy)[0]);
    EXPECT_EQ(nullptr, static_cast<const CORBA_StringSequence&>(*again)[1]);

    CORBA_StringSequence target = strings({"old"});
    target = s;
    EXPECT_EQ(0, compare(s, target));

    s.length(7);
    EXPECT_EQ(7u, s.maximum());
    EXPECT_STREQ("two", s[2]);
    EXPECT_EQ(nullptr, static_cast<const CORBA_StringSequence&>(s)[6]);
    EXPECT_THROW(s[7], CORBA_BAD_PARAM);

    // A borrowed buffer grows into an owned one with copies of its strings.
    char one[] = "one";
    char* data[1] = {one};
    CORBA_StringSequence b(1, 1, data, 0);
    b.length(2);
    EXPECT_TRUE(b.release());
    EXPECT_STREQ("one", b[0]);
    EXPECT_NE(one, static_cast<const CORBA_StringSequence&>(b)[0]);
}

TEST(CORBAStringSequence, CompareAndHash) {
    EXPECT_EQ(0u, hash(CORBA_StringSequence()));
    EXPECT_EQ(1u ^ 97u, hash(strings({"a"})));
    // Different lengths decide without looking at the (null) strings.
    CORBA_StringSequence nulls(3);
    nulls.length(3);
    EXPECT_EQ(2, compare(nulls, strings({"a"})));
    EXPECT_EQ(-2, compare(strings({"a"}), nulls));
    EXPECT_LT(compare(strings({"a", "b"}), strings({"a", "c"})), 0);
    EXPECT_EQ(0, compare(strings({"a", "b"}), strings({"a", "b"})));
}

TEST(CORBAStringSequence, StreamRoundTripsAndPrinting) {
    CORBA_StringSequence s = strings({"x", "", "with \"quote\"\n"});
    std::ostringstream os;
    {
        TBostream out(os);
        out << s << s;
    }
    std::istringstream is(os.str());
    TBistream in(is);
    CORBA_StringSequence grown;  // takes the growing path
    in >> grown;
    EXPECT_EQ(0, compare(s, grown));
    CORBA_StringSequence roomy = strings({"a much longer old string than the new one", "", "", ""});
    in >> roomy;  // reads over owned elements in place
    EXPECT_EQ(0, compare(s, roomy));

    // Through CDR a null element stays null, unlike "".
    s[1] = static_cast<char*>(nullptr);
    std::string bytes = cdrBytes(s);
    CORBA_MarshalInBuffer cdr(&bytes[0], static_cast<CORBA::ULong>(bytes.size()));
    CORBA_StringSequence back = strings({"", "", "", ""});  // short old strings in place
    cdr >> back;
    EXPECT_EQ(nullptr, static_cast<const CORBA_StringSequence&>(back)[1]);
    EXPECT_EQ(0, compare(s, back));

    CoutCapture cap;
    std::cout << strings({"a", "bc"});
    EXPECT_EQ("SEQUENCE NAME: CORBA::StringSequence\nNUM OF ELEMENTS: 2\n"
              "ELEMENT NUM: 0 = a\nELEMENT NUM: 1 = bc\n",
              cap.text());
}

TEST(ZEBString, HashCompareAndEquality) {
    ZEBString a("kelvanor");
    std::string other = "kelvanor";
    ZEBString b(other.c_str());
    EXPECT_NE(a.string(), b.string());
    EXPECT_EQ(a.hash(), b.hash());
    EXPECT_EQ(TBString("kelvanor").hash(), a.hash());  // the two string classes hash alike
    EXPECT_EQ(0u, ZEBString(nullptr).hash());
    EXPECT_TRUE(a == b);
    EXPECT_LT(ZEBString("a").compare(ZEBString("b")), 0);
    EXPECT_EQ(-1, a.compare(ZEBUniqueId(3)));  // other classes never compare equal

    // Usable as a dictionary key: a different object with the same text finds it.
    DSDictionary dict(16);
    dict.addAssoc(*new ZEBString("key"), *new ZEBUniqueId(42));
    DSResource* found = dict.atKey(ZEBString("key"));
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(42ul, TB_CAST(ZEBUniqueId, found)->id());
}

TEST(ZEBString, AssignmentAndConcatenation) {
    ZEBString s("longer text");
    const char* buffer = s.string();
    s = ZEBString("short");  // fits: the buffer is kept
    EXPECT_EQ(buffer, s.string());
    EXPECT_STREQ("short", s.string());
    EXPECT_EQ(5u, s.length());
    s = "a longer text than before";
    s = s.string() + 2;  // overlapping source within our own buffer
    EXPECT_STREQ("longer text than before", s.string());
    s = static_cast<const char*>(nullptr);
    EXPECT_EQ(0u, s.length());

    ZEBString ab = ZEBString("a") & "b";
    EXPECT_STREQ("ab", ab.string());
    ab &= ab;
    EXPECT_EQ(4u, ab.length());
    const char* kept = ab.string();
    ab &= "";
    EXPECT_EQ(kept, ab.string());
    EXPECT_STREQ("abab!", (ab & ZEBString("!")).string());
}

TEST(ZEBString, StreamFormsAndCountZero) {
    EXPECT_EQ(std::string("\x01\0\0\0\0", 5), cdrBytes(static_cast<const TBTransObject&>(ZEBString())));
    EXPECT_EQ(std::string("\x03\0\0\0ab\0", 7),
              cdrBytes(static_cast<const TBTransObject&>(ZEBString("ab"))));

    std::ostringstream os;
    {
        TBostream out(os);
        out << static_cast<const TBTransObject&>(ZEBString("text"));
        out << static_cast<const TBTransObject&>(ZEBString(""));
        out << static_cast<const TBTransObject&>(ZEBUniqueId(77));
    }
    std::istringstream is(os.str());
    TBistream in(is);
    EXPECT_STREQ("text", ZEBString(in).string());
    EXPECT_EQ(0u, ZEBString(in).length());
    EXPECT_EQ(77ul, ZEBUniqueId(in).id());

    // A count of 0 is no writer's output; it reads as "" and not as 4 GB.
    std::string zero(4, '\0');
    CORBA_MarshalInBuffer cdr(&zero[0], 4);
    EXPECT_STREQ("", ZEBString(cdr).string());

    std::string cut("\x09\0\0\0abc", 7);
    CORBA_MarshalInBuffer shortData(&cut[0], 7);
    EXPECT_THROW(ZEBString{shortData}, CORBA_MARSHAL);
}

TEST(ZEBUniqueId, CompareHashAndPrint) {
    EXPECT_EQ(3, ZEBUniqueId(10).compare(ZEBUniqueId(7)));
    EXPECT_EQ(-3, ZEBUniqueId(7).compare(ZEBUniqueId(10)));
    EXPECT_LT(ZEBUniqueId(0).compare(ZEBUniqueId(0xffffffffu)), 0);

    std::ostringstream os;
    TBostream out(os);
    ZEBUniqueId(9).prettyPrint(out);
    ZEBString("q").prettyPrint(out);
    EXPECT_EQ("ID: 9\n\"q\"", os.str());
}
