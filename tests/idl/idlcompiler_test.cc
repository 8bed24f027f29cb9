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

struct Outcome {
    int status = -1;
    std::string out, err;
};

// kelvanor-idl with args, in dir, within a time limit.
Outcome compile(const ktest::TempDir& dir, std::vector<std::string> args) {
    ktest::Process::Options opts;
    opts.argv = {KELVANOR_IDL_COMPILER};
    opts.argv.insert(opts.argv.end(), args.begin(), args.end());
    opts.env = {std::string("OMNIIDL=") + KELVANOR_OMNIIDL};
    opts.cwd = dir.path();
    Outcome r;
    ktest::Process p;
    if (!p.start(opts)) {
        ADD_FAILURE() << p.error();
        return r;
    }
    if (!p.wait(std::chrono::milliseconds(60000))) {
        ADD_FAILURE() << "kelvanor-idl did not end";
        return r;
    }
    r.status = p.exitCode();
    r.out = p.stdoutText();
    r.err = p.stderrText();
    return r;
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

}  // namespace

TEST(KelvanorIdl, SyntaxErrorGivesFileLineAndFailure) {
    ktest::TempDir dir("kidl");
    ASSERT_TRUE(ktest::writeFile(dir.file("bad.idl"),
                                 "module M {\n  interface I {\n    void f(in long x)\n  };\n};\n"));
    Outcome r = compile(dir, {"bad.idl"});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("bad.idl:4: Syntax error"), std::string::npos) << r.err;
    EXPECT_FALSE(exists(dir.file("bad.h")));

    ASSERT_TRUE(ktest::writeFile(dir.file("lookup.idl"),
                                 "module M {\n  struct S { Missing m; };\n};\n"));
    r = compile(dir, {"lookup.idl"});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("lookup.idl:2:"), std::string::npos) << r.err;
}

TEST(KelvanorIdl, RefusesWhatItCannotMapAtItsLine) {
    ktest::TempDir dir("kidl");
    ASSERT_TRUE(ktest::writeFile(
        dir.file("u.idl"),
        "module M {\n  union U switch (long) { case 1: long a; };\n};\n"));
    Outcome r = compile(dir, {"u.idl"});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("u.idl:2: unions are not supported"), std::string::npos) << r.err;
    EXPECT_FALSE(exists(dir.file("u.h")));
    EXPECT_FALSE(exists(dir.file("u.cc")));

    ASSERT_TRUE(ktest::writeFile(dir.file("p.idl"),
                                 "module M {\n  struct S { long a; };\n"
                                 "#pragma kelvanor_class T CORBA_CreationImplDef\n};\n"));
    r = compile(dir, {"p.idl"});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("p.idl:3: kelvanor_class: no structure 'T' here"), std::string::npos)
        << r.err;
}

TEST(KelvanorIdl, WritesIntoTheOutputDirectoryAndIncludesWhatItIncludes) {
    ktest::TempDir dir("kidl");
    ASSERT_EQ(mkdir(dir.file("inc").c_str(), 0700), 0);
    ASSERT_TRUE(ktest::writeFile(dir.file("inc/base.idl"),
                                 "#pragma prefix \"ex\"\nmodule B { interface Root {}; };\n"));
    ASSERT_TRUE(ktest::writeFile(dir.file("top.idl"),
                                 "#include \"base.idl\"\nmodule T {\n"
                                 "  interface Leaf : B::Root { void f(); };\n};\n"));
    Outcome r = compile(dir, {"-I", "inc", "-o", "gen", "top.idl"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string header = ktest::readFile(dir.file("gen/top.h"));
    EXPECT_NE(header.find("#include \"base.h\""), std::string::npos);
    EXPECT_NE(header.find("class Leaf : public virtual B::Root {"), std::string::npos);
    // What base.idl declares is its own header's business.
    EXPECT_EQ(header.find("class Root :"), std::string::npos);
    EXPECT_TRUE(exists(dir.file("gen/top.cc")));
    EXPECT_FALSE(exists(dir.file("top.h")));

    r = compile(dir, {});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("usage: kelvanor-idl"), std::string::npos);
}
