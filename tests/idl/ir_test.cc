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

// What omni_ir_client below does not ask: descriptions, whose Anys hold
// the native records, and the TypeCodes of the full description.
TEST_F(IrRemote, DescribesEchoWithTheGeneratedTypeCodes) {
    CORBA_Contained_var found(repo->lookup_id("IDL:Demo/Echo:1.0"));
    CORBA_InterfaceDef_var echo(CORBA_InterfaceDef::_narrow(found));
    ASSERT_NE(echo.in(), nullptr);
    CORBA_Contained::Description_var d(echo->describe());
    EXPECT_EQ(d->kind, CORBA::dk_Interface);
    ASSERT_TRUE(d->value.type()->equal(CORBA::_tc_InterfaceDescription)) << d->value;
    auto* desc = static_cast<const CORBA_InterfaceDescription*>(d->value.value());
    EXPECT_STREQ(desc->defined_in, "IDL:Demo:1.0");

    CORBA_InterfaceDef::FullInterfaceDescription_var full(echo->describe_interface());
    EXPECT_TRUE(full->type->equal(Demo::_tc_Echo));
    // The operations' TypeCodes, nested in sequences of structures.
    ASSERT_EQ(full->operations.length(), 3u);
    const CORBA_OperationDescription& first = full->operations[0];
    EXPECT_TRUE(first.result->equal(CORBA::_tc_string));
    ASSERT_EQ(first.parameters.length(), 1u);
    EXPECT_TRUE(first.parameters[0].type->equal(CORBA::_tc_string));
    EXPECT_EQ(full->operations[2].mode, CORBA::OP_ONEWAY);
    // Changes are refused, and the server serves on.
    EXPECT_THROW(echo->name("Other"), CORBA_NO_IMPLEMENT);
    EXPECT_TRUE(server.running());
}

TEST_F(IrRemote, OmniClientLooksUpAndLists) {
    if (!ktest::runnable(KELVANOR_OMNI_IR_CLIENT_BINARY)) GTEST_SKIP() << "omniORB not built";
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
