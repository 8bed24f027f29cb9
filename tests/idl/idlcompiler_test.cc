// The compiler as a user runs it: kelvanor-idl on IDL files in a scratch
// directory, its files, its messages and its exit status.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "process.h"

namespace {

// kelvanor-idl with args, in dir, within a time limit.
ktest::Outcome compile(const ktest::TempDir& dir, std::vector<std::string> args) {
    ktest::Process::Options opts;
    opts.argv = {KELVANOR_IDL_COMPILER};
    opts.argv.insert(opts.argv.end(), args.begin(), args.end());
    opts.env = {std::string("OMNIIDL=") + KELVANOR_OMNIIDL};
    opts.cwd = dir.path();
    return ktest::run(opts, std::chrono::milliseconds(60000));
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

}  // namespace

// Syntax, lookup, what cannot be mapped: each is told at its file and line,
// and nothing is written.
TEST(KelvanorIdl, RefusesFaultyInputAtItsLine) {
    ktest::TempDir dir("kidl");
    const struct {
        const char *name, *text, *message;
    } cases[] = {
        {"bad", "module M {\n  interface I {\n    void f(in long x)\n  };\n};\n",
         "bad.idl:4: Syntax error"},
        {"c", "module M {\n  interface I {\n    void f() context(\"x\");\n  };\n};\n",
         "c.idl:3: context clauses are not supported"},
        {"sa", "module M {\n  typedef long A[2];\n  typedef sequence<A> S;\n};\n",
         "sa.idl:3: sequences of arrays are not supported"},
        {"p",
         "module M {\n  struct S { long a; };\n"
         "#pragma kelvanor_class T CORBA_CreationImplDef\n};\n",
         "p.idl:3: kelvanor_class: no structure 'T' here"},
    };
    for (const auto& c : cases) {
        const std::string name = c.name;
        ASSERT_TRUE(ktest::writeFile(dir.file(name + ".idl"), c.text));
        ktest::Outcome r = compile(dir, {name + ".idl"});
        EXPECT_NE(r.status, 0) << name;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_FALSE(exists(dir.file(name + ".h")) || exists(dir.file(name + ".cc"))) << name;
    }
}

TEST(KelvanorIdl, WritesIntoTheOutputDirectoryAndIncludesWhatItIncludes) {
    ktest::TempDir dir("kidl");
    ASSERT_EQ(mkdir(dir.file("inc").c_str(), 0700), 0);
    ASSERT_TRUE(ktest::writeFile(dir.file("inc/base.idl"),
                                 "#pragma prefix \"ex\"\nmodule B { interface Root {}; };\n"));
    ASSERT_TRUE(ktest::writeFile(dir.file("top.idl"),
                                 "#include \"base.idl\"\n#include <CosNaming.idl>\nmodule T {\n"
                                 "  interface Leaf : B::Root { void f(); };\n};\n"));
    ktest::Outcome r = compile(dir, {"-I", "inc", "-o", "gen", "top.idl"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string header = ktest::readFile(dir.file("gen/top.h"));
    // The user's header by its name, the broker's by a path that no
    // generated file can take.
    EXPECT_NE(header.find("#include \"base.h\""), std::string::npos);
    EXPECT_NE(header.find("#include <kelvanor/CosNaming.h>"), std::string::npos);
    EXPECT_NE(header.find("#include <kelvanor/corba.h>"), std::string::npos);
    EXPECT_EQ(header.find("#include \"corba.h\""), std::string::npos);
    EXPECT_NE(header.find("class Leaf : public virtual B::Root {"), std::string::npos);
    // What base.idl declares is its own header's business.
    EXPECT_EQ(header.find("class Root :"), std::string::npos);
    EXPECT_TRUE(exists(dir.file("gen/top.cc")));
    EXPECT_FALSE(exists(dir.file("top.h")));
}
