// The exception family: descriptions and narrowing, throwing by the most
// derived class, and the stream forms of environments.
#include "except.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "mstrm.h"
#include "tbiostrm.h"

namespace {

// A user exception of an interface, written as generated code writes one.
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
// An id that is already taken, by TestFailure above in this unit: the first
// registration keeps it.
const CORBA_Exception::Description latecomer("Late", "IDL:Test/Failure:1.0", nullptr,
                                             &CORBA_SystemException::_description);

std::string textForm(const CORBA_Environment& env) {
    std::ostringstream os;
    TBostream strm(os);
    strm << env;
    return os.str();
}

}  // namespace

TEST(CORBAException, NarrowFollowsTheDescriptionChain) {
    CORBA_BAD_PARAM bad(1, CORBA::COMPLETED_YES);
    CORBA_Exception* e = &bad;
    EXPECT_EQ(&bad, CORBA_SystemException::_narrow(e));
    EXPECT_EQ(nullptr, CORBA_UserException::_narrow(e));
    EXPECT_EQ(&bad, CORBA_BAD_PARAM::_narrow(e));
    EXPECT_EQ(nullptr, CORBA_MARSHAL::_narrow(e));

    TestFailure user;
    EXPECT_EQ(&TestFailure::_description, CORBA_Exception::Description::desc("IDL:Test/Failure:1.0"));
    EXPECT_EQ(&user, CORBA_UserException::_narrow(static_cast<CORBA_Exception*>(&user)));
    EXPECT_EQ(nullptr, CORBA_SystemException::_narrow(static_cast<CORBA_Exception*>(&user)));

    // can_cast compares addresses, not names.
    EXPECT_FALSE(bad._desc()->can_cast(lookalike));
    EXPECT_TRUE(lookalike.can_cast(CORBA_SystemException::_description));
    EXPECT_TRUE(bad._desc()->can_cast(CORBA_Exception::_description));
    EXPECT_FALSE(CORBA_Exception::_description.can_cast(CORBA_SystemException::_description));
}

TEST(CORBAException, EverySystemExceptionIsRegisteredThrowsAndCopies) {
    int count = 0;
#define CHECK_ONE(N)                                                                         \
    {                                                                                        \
        ++count;                                                                             \
        const CORBA_Exception::Description* d =                                              \
            CORBA_Exception::Description::desc("IDL:omg.org/CORBA/" #N ":1.0");              \
        ASSERT_EQ(&CORBA_##N::_description, d) << #N;                                        \
        EXPECT_STREQ("CORBA::" #N, d->name);                                                 \
        std::unique_ptr<CORBA_Exception> made(d->factory());                                 \
        EXPECT_NE(nullptr, CORBA_##N::_narrow(made.get())) << #N;                           \
        CORBA_##N original(42, CORBA::COMPLETED_MAYBE);                                      \
        std::unique_ptr<CORBA_Exception> copy(original._deep_copy());                        \
        try {                                                                                \
            copy->_throw();                                                                  \
            ADD_FAILURE() << #N << " did not throw";                                         \
        } catch (const CORBA_##N& caught) {                                                  \
            EXPECT_EQ(42u, caught.minor());                                                  \
            EXPECT_EQ(CORBA::COMPLETED_MAYBE, caught.completed());                           \
        }                                                                                    \
    }
    CORBA_SYSTEM_EXCEPTION_LIST(CHECK_ONE)
#undef CHECK_ONE
    EXPECT_EQ(26, count);

}

TEST(CORBAEnvironment, StreamForms) {
    CORBA_Environment empty;
    EXPECT_EQ("0 ", textForm(empty));

    CORBA_Environment sys;
    sys.exception(new CORBA_BAD_PARAM(7, CORBA::COMPLETED_MAYBE));
    EXPECT_EQ(std::string("2 32 IDL:omg.org/CORBA/BAD_PARAM:1.0\0" "7 2 ", 41), textForm(sys));

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
