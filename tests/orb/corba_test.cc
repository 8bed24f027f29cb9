// CDR memory buffers, sequences and strings through streams, exceptions.
#include "corba.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "except.h"
#include "mstrm.h"
#include "sequence.h"
#include "tbiostrm.h"
#include "thrown.h"
#include "zebstring.h"

namespace {

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

class TestFailure : public CORBA_UserException {
    CORBA_EXCEPTION_MEMBERS(TestFailure)

public:
    TestFailure(CORBA::ULong code = 0) : code(code) {}
    void _write(TBostream& strm) const override { strm << static_cast<unsigned long>(code); }
    void _copy(TBistream& strm) override {
        unsigned long c = 0;
        strm >> c;
        code = static_cast<CORBA::ULong>(c);
    }
    CORBA::ULong code;
};
CORBA_EXCEPTION_DEFINE(TestFailure, "Test::Failure", "IDL:Test/Failure:1.0", CORBA_UserException);

// Same name as a real class, another address.
const CORBA_Exception::Description lookalike("CORBA::BAD_PARAM", "IDL:Test/Lookalike:1.0", nullptr,
                                             &CORBA_SystemException::_description);
// Its id is TestFailure's: the first registration keeps it.
const CORBA_Exception::Description latecomer("Late", "IDL:Test/Failure:1.0", nullptr,
                                             &CORBA_SystemException::_description);

using Bytes = std::vector<unsigned char>;

// octet, short, long, octet, double, float; 'P' is padding of any value.
Bytes encoded(bool bigEndian) {
    Bytes be = {0xAA, 'P',  0x11, 0x22, 0x33, 0x44, 0x55, 0x66,  //
                0xBB, 'P',  'P',  'P',  'P',  'P',  'P',  'P',   //
                0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,  //
                0x0A, 0x0B, 0x0C, 0x0D};
    if (bigEndian) return be;
    Bytes le = be;
    auto reverse = [&](size_t at, size_t n) { std::reverse(le.begin() + at, le.begin() + at + n); };
    reverse(2, 2);
    reverse(4, 4);
    reverse(16, 8);
    reverse(24, 4);
    return le;
}

template <class T, class Bits>
T fromBits(Bits bits) {
    T v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

void expectMarshal(const std::function<void()>& f) {
    const CORBA_MARSHAL e = ktest::thrown<CORBA_MARSHAL>(f);
    EXPECT_EQ(e.minor(), 0u);
    EXPECT_EQ(e.completed(), CORBA::COMPLETED_NO);
}

}  // namespace

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

TEST(CORBAOctetSequence, StreamFormsRefuseNull) {
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
}

TEST(CORBAException, NarrowFollowsTheDescriptionChain) {
    CORBA_BAD_PARAM bad(1, CORBA::COMPLETED_YES);
    CORBA_Exception* e = &bad;
    EXPECT_EQ(&bad, CORBA_SystemException::_narrow(e));
    EXPECT_EQ(nullptr, CORBA_UserException::_narrow(e));
    EXPECT_EQ(&bad, CORBA_BAD_PARAM::_narrow(e));
    EXPECT_EQ(nullptr, CORBA_MARSHAL::_narrow(e));

    // can_cast compares addresses, not names.
    EXPECT_FALSE(bad._desc()->can_cast(lookalike));
    EXPECT_TRUE(lookalike.can_cast(CORBA_SystemException::_description));
    EXPECT_TRUE(bad._desc()->can_cast(CORBA_Exception::_description));
    EXPECT_FALSE(CORBA_Exception::_description.can_cast(CORBA_SystemException::_description));
}

template <class E>
void expectSystemException(const std::string& name) {
    const CORBA_Exception::Description* d =
        CORBA_Exception::Description::desc(("IDL:omg.org/CORBA/" + name + ":1.0").c_str());
    ASSERT_EQ(&E::_description, d) << name;
    std::unique_ptr<CORBA_Exception> made(d->factory());
    EXPECT_THROW(made->_throw(), E) << name;
    made.reset(E(42, CORBA::COMPLETED_MAYBE)._deep_copy());
    E* copy = E::_narrow(made.get());
    ASSERT_NE(nullptr, copy) << name;
    EXPECT_EQ(42u, copy->minor());
    EXPECT_EQ(CORBA::COMPLETED_MAYBE, copy->completed());
}

TEST(CORBAException, EverySystemExceptionIsRegisteredThrowsAndCopies) {
#define CHECK_ONE(N) expectSystemException<CORBA_##N>(#N);
    CORBA_SYSTEM_EXCEPTION_LIST(CHECK_ONE)
#undef CHECK_ONE
}

TEST(CORBAEnvironment, StreamForms) {
    CORBA_Environment empty, sys;
    sys.exception(new CORBA_BAD_PARAM(7, CORBA::COMPLETED_MAYBE));

    CORBA_Environment user;
    user.exception(new TestFailure(99));
    CORBA_Environment unlinked;
    unlinked.exception(new _CORBA_UNLINKED_UserException("IDL:Nobody/Home:1.0"));

    std::ostringstream os;
    {
        TBostream out(os);
        out << sys << user << unlinked << empty;
    }
    std::istringstream is(os.str());
    TBistream in(is);
    CORBA_Environment back;
    back.exception(new CORBA_UNKNOWN);
    in >> back;
    ASSERT_NE(nullptr, CORBA_BAD_PARAM::_narrow(back.exception()));
    EXPECT_EQ(7u, CORBA_BAD_PARAM::_narrow(back.exception())->minor());
    in >> back;
    ASSERT_NE(nullptr, TestFailure::_narrow(back.exception()));
    EXPECT_EQ(99u, TestFailure::_narrow(back.exception())->code);
    // Through an environment an unknown id arrives as the unlinked class.
    in >> back;
    _CORBA_UNLINKED_UserException* u = _CORBA_UNLINKED_UserException::_narrow(back.exception());
    ASSERT_NE(nullptr, u);
    EXPECT_STREQ("IDL:Nobody/Home:1.0", u->id());
    EXPECT_NE(nullptr, CORBA_UserException::_narrow(back.exception()));
    in >> back;
    EXPECT_EQ(nullptr, back.exception());
}

TEST(CORBA_MarshalBuffers, BothOrdersInWithPadding) {
    for (bool big : {false, true}) {
        Bytes data = encoded(big);
        // One byte in, so that alignment can only come from the count.
        std::vector<char> block(data.size() + 1);
        std::memcpy(block.data() + 1, data.data(), data.size());
        CORBA_MarshalInBuffer in(block.data() + 1, data.size());
        in.byte_order(big ? 1 : 0);  // the marker's sense: 1 is big-endian
        unsigned char o1 = 0, o2 = 0;
        short s = 0;
        long l = 0;
        double d = 0;
        float f = 0;
        in >> o1 >> s >> l >> o2 >> d >> f;
        EXPECT_EQ(o1, 0xAA);
        EXPECT_EQ(s, 0x1122);
        EXPECT_EQ(l, 0x33445566);
        EXPECT_EQ(o2, 0xBB);
        EXPECT_EQ(d, fromBits<double>(0x0102030405060708ULL)) << "big " << big;
        EXPECT_EQ(f, fromBits<float>(0x0A0B0C0DU));
        EXPECT_EQ(in.cursor(), data.size());
    }
}

TEST(CORBA_MarshalBuffers, ArraysMoveAtOnceAsFourByteLongs) {
    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    const long ls[2] = {1, -2};
    const short ss[1] = {3};
    out << 'x';
    out.put(ls, 2);  // 3 pad bytes, then two 4-byte images
    out.put(ss, 0);  // an empty array takes no padding
    out << 'y';
    out.put(ss, 1);  // 1 pad byte
    ASSERT_EQ(16u, out.length());
    CORBA_MarshalInBuffer in(out.buffer(), out.length());
    char c;
    long back[2];
    short sh;
    in >> c;
    in.get(back, 2);
    in >> c;
    in.get(&sh, 1);
    EXPECT_EQ(-2, back[1]);
    EXPECT_EQ(3, sh);

    // The other order, swapped element by element after one copy.
    const char big[] = {0, 0, 0, 1, '\xff', '\xff', '\xff', '\xfe', 0, 7};
    CORBA_MarshalInBuffer be(const_cast<char*>(big), sizeof big);
    be.byte_order(!CORBA::ByteOrder);
    unsigned long ul[2];
    be.get(ul, 2);
    be.get(&sh, 1);
    EXPECT_EQ(1u, ul[0]);
    EXPECT_EQ(0xfffffffeu, ul[1]);
    EXPECT_EQ(7, sh);
    expectMarshal([&] { be.get(&sh, 1); });
}

TEST(CORBA_MarshalBuffers, StringViewsAndBoundedCopies) {
    CORBA_MarshalOutBuffer out;
    out.owns_buffer(1);
    out << "abc" << "skip me" << 'z';
    ASSERT_EQ(out.length(), 8u + 12 + 1);
    CORBA_MarshalInBuffer in(out.buffer(), out.length());
    char* view = in.getString();
    EXPECT_EQ(view, out.buffer() + 4);  // no copy
    EXPECT_STREQ(view, "abc");

    char small[3] = {'q', 'q', 'q'};
    in.getCString(small, 3);  // max below the count: no NUL, rest skipped
    EXPECT_EQ(std::string(small, 3), "ski");
    char c = 0;
    in >> c;
    EXPECT_EQ(c, 'z');
}
