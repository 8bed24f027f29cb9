// The Interface Repository's classes through generated stubs, against
// ir_server's fixed description of Demo::Echo, and from omniORB's own
// repository classes.
#include <gtest/gtest.h>

#include <string>

#include "echo.h"
#include "ir.h"
#include "orb.h"
#include "orb_loopback.h"
#include "../orb/echo_child.h"

namespace {

class IrRemote : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.ready()) << "ir_server gave no reference: " << server.output();
        CORBA_Object_var obj(ktest::loopbackOrb()->string_to_object(server.ior.c_str()));
        repo = CORBA_Repository::_narrow(obj);
        ASSERT_NE(repo.in(), nullptr);
    }
    ktest::EchoChild server{{KELVANOR_IR_SERVER_BINARY, "-OAipaddr", "127.0.0.1"}};
    CORBA_Repository_var repo;
};

// The native record an Any of tc holds, or null.
template <class T>
const T* native(const CORBA_Any& a, CORBA_TypeCode* tc) {
    return a.type()->equal(tc) ? static_cast<const T*>(a.value()) : nullptr;
}

TEST_F(IrRemote, LooksUpListsAndDescribesEcho) {
    EXPECT_EQ(repo->def_kind(), CORBA::dk_Repository);
    EXPECT_EQ(CORBA_Contained_var(repo->lookup_id("IDL:Demo/Nothing:1.0")).in(), nullptr);
    CORBA_Contained_var found(repo->lookup_id("IDL:Demo/Echo:1.0"));
    ASSERT_NE(found.in(), nullptr);
    EXPECT_EQ(found->def_kind(), CORBA::dk_Interface);
    CORBA_String_var name(found->name());
    EXPECT_STREQ(name, "Echo");

    CORBA_ContainedSeq_var top(repo->contents(CORBA::dk_all, 0));
    ASSERT_EQ(top->length(), 1u);
    CORBA_String_var topId((*top)[0]->id());
    EXPECT_STREQ(topId, "IDL:Demo/Echo:1.0");
    EXPECT_EQ(CORBA_ContainedSeq_var(repo->contents(CORBA::dk_Struct, 0))->length(), 0u);

    CORBA_InterfaceDef_var echo(CORBA_InterfaceDef::_narrow(found));
    ASSERT_NE(echo.in(), nullptr);
    CORBA_ContainedSeq_var ops(echo->contents(CORBA::dk_Operation, 0));
    ASSERT_EQ(ops->length(), 3u);
    CORBA_String_var last((*ops)[2]->name());
    EXPECT_STREQ(last, "note");

    CORBA_Contained::Description_var d(echo->describe());
    EXPECT_EQ(d->kind, CORBA::dk_Interface);
    const CORBA_InterfaceDescription* desc =
        native<CORBA_InterfaceDescription>(d->value, CORBA::_tc_InterfaceDescription);
    ASSERT_NE(desc, nullptr) << d->value;
    EXPECT_STREQ(desc->id, "IDL:Demo/Echo:1.0");
    EXPECT_STREQ(desc->defined_in, "IDL:Demo:1.0");

    CORBA_Contained::Description_var say((*ops)[0]->describe());
    const CORBA_OperationDescription* op =
        native<CORBA_OperationDescription>(say->value, CORBA::_tc_OperationDescription);
    ASSERT_NE(op, nullptr);
    EXPECT_STREQ(op->id, "IDL:Demo/Echo/say:1.0");
}

TEST_F(IrRemote, FullDescriptionHasTheGeneratedTypeCodes) {
    CORBA_Contained_var found(repo->lookup_id("IDL:Demo/Echo:1.0"));
    CORBA_InterfaceDef_var echo(CORBA_InterfaceDef::_narrow(found));
    ASSERT_NE(echo.in(), nullptr);
    CORBA_TypeCode_var type(echo->type());
    EXPECT_TRUE(type->equal(Demo::_tc_Echo));
    EXPECT_TRUE(echo->is_a("IDL:Demo/Echo:1.0"));

    CORBA_InterfaceDef::FullInterfaceDescription_var full(echo->describe_interface());
    EXPECT_STREQ(full->name, "Echo");
    EXPECT_STREQ(full->type->id(), Demo::_tc_Echo->id());
    EXPECT_TRUE(full->type->equal(Demo::_tc_Echo));
    const struct {
        const char* name;
        CORBA_TypeCode* result;
        CORBA::OperationMode mode;
        CORBA::ULong params;
    } expected[] = {{"say", CORBA::_tc_string, CORBA::OP_NORMAL, 1},
                    {"pid", CORBA::_tc_long, CORBA::OP_NORMAL, 0},
                    {"note", CORBA::_tc_void, CORBA::OP_ONEWAY, 1}};
    ASSERT_EQ(full->operations.length(), 3u);
    for (CORBA::ULong i = 0; i < 3; ++i) {
        const CORBA_OperationDescription& op = full->operations[i];
        SCOPED_TRACE(expected[i].name);
        EXPECT_STREQ(op.name, expected[i].name);
        EXPECT_STREQ(op.defined_in, "IDL:Demo/Echo:1.0");
        EXPECT_TRUE(op.result->equal(expected[i].result));
        EXPECT_EQ(op.mode, expected[i].mode);
        ASSERT_EQ(op.parameters.length(), expected[i].params);
        if (expected[i].params == 0) continue;
        EXPECT_STREQ(op.parameters[0].name, "s");
        EXPECT_TRUE(op.parameters[0].type->equal(CORBA::_tc_string));
        EXPECT_EQ(op.parameters[0].mode, CORBA::PARAM_IN);
    }
    // Changes are refused, and the server serves on.
    EXPECT_THROW(echo->name("Other"), CORBA_NO_IMPLEMENT);
    EXPECT_TRUE(server.running());
}

TEST(IrOmniorb, OmniClientLooksUpAndLists) {
    if (!ktest::runnable(KELVANOR_OMNI_IR_CLIENT_BINARY)) GTEST_SKIP() << "omniORB not built";
    ktest::EchoChild server({KELVANOR_IR_SERVER_BINARY, "-OAipaddr", "127.0.0.1"});
    ASSERT_TRUE(server.ready()) << server.output();
    ktest::Outcome r = ktest::run({KELVANOR_OMNI_IR_CLIENT_BINARY, server.ior});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string echo = "5 Echo IDL:Demo/Echo:1.0";
    EXPECT_EQ(r.out, "repository: 17\n"
                     "lookup_id: " + echo + "\n"
                     "unknown id: nil\n"
                     "contents: " + echo + ";\n"
                     "operations: 7 say IDL:Demo/Echo/say:1.0; 7 pid IDL:Demo/Echo/pid:1.0;"
                     " 7 note IDL:Demo/Echo/note:1.0;\n");
    EXPECT_TRUE(server.running());
}

}  // namespace
