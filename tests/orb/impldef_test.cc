#include "impldef.h"

#include <iostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>


namespace {

CORBA_CreationImplDef sample() {
    CORBA_StringSequence args;
    args.length(2);
    args[0] = "-a";
    args[1] = "two words";
    return CORBA_CreationImplDef("Demo::Iface", "obj", CORBA_OctetSequence(), "/bin/sh",
                                 CORBA_CreationImplDef::UNSHARED_SERVER, args);
}

class TestActivator : public CORBA_Activator {
public:
    CORBA_Object* activate(CORBA_ImplementationDef*) override { return nullptr; }
};

TEST(ImplDef, NarrowAndHoldersMakeDeepCopies) {
    CORBA_CreationImplDef creation = sample();
    TestActivator activator;
    CORBA_ActivationImplDef activation("I", "o", CORBA_OctetSequence(), &activator);
    CORBA_ImplementationDef plain("I", "o");

    CORBA_CreationImplDef_var narrowed = CORBA_CreationImplDef::_narrow(&creation);
    EXPECT_NE(narrowed->path.in(), creation.path.in());
    narrowed = nullptr;  // deleting the copy leaves the argument whole
    EXPECT_STREQ(creation.path, "/bin/sh");
    EXPECT_EQ(CORBA_ActivationImplDef::_narrow(&creation), nullptr);
    EXPECT_EQ(CORBA_CreationImplDef::_narrow(&plain), nullptr);
    EXPECT_EQ(CORBA_ActivationImplDef_var(CORBA_ActivationImplDef::_narrow(&activation))->activator,
              &activator);  // shared, not copied

    CORBA_CreationImplDef_var a = creation._copy();
    CORBA_CreationImplDef_var b = a;
    b->args[0] = "changed";
    EXPECT_STREQ(a->args[0], "-a");
}

TEST(ImplDef, PrintingFormOfOddValues) {
    CORBA_CreationImplDef odd;  // null strings, and a policy with no name
    odd.activation_policy = static_cast<CORBA_CreationImplDef::Policy>(3);
    CORBA_ImplementationDef plain("I", "o");
    std::ostringstream text;
    std::streambuf* old = std::cout.rdbuf(text.rdbuf());  // cout stays cout
    std::cout << static_cast<const CORBA_CreationImplDef*>(&odd) << "|"
              << static_cast<const CORBA_ImplementationDef*>(&plain);
    std::cout.rdbuf(old);
    std::string s = text.str();
    EXPECT_EQ(s.substr(0, 46), "Interface Name: (null)\nObject Name: (null)\nRef");
    EXPECT_NE(s.find("\nPath: (null)\nPolicy: Policy:\nArguments:\n"), std::string::npos);
    EXPECT_EQ(s.substr(s.find('|') + 1),  // the base class: three lines only
              "Interface Name: I\nObject Name: o\n"
              "Reference Data: SEQUENCE NAME: CORBA::OctetSequence\nNUM OF ELEMENTS: 0\n\n");
}

}  // namespace
