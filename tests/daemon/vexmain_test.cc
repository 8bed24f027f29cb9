// The vex program as a user runs it: options, the repository's name from
// the environment, loading and printing a repository, fatal start-up errors.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "process.h"
#include "repofile.h"

namespace {

// Runs vex in dir with only a PATH and env as its environment; gives the
// exit status, "|" and what it printed.
std::string runVex(const std::string& dir, const std::vector<std::string>& args,
                   const std::vector<std::string>& env = {}) {
    ktest::Process::Options opts;
    // The broker's adapter listens on loopback only.
    opts.argv = {KELVANOR_VEX_BINARY, "-OAipaddr", "127.0.0.1"};
    opts.argv.insert(opts.argv.end(), args.begin(), args.end());
    opts.clearEnv = true;
    opts.env = {"PATH=/usr/bin:/bin"};
    opts.env.insert(opts.env.end(), env.begin(), env.end());
    opts.cwd = dir;
    const ktest::Outcome r = ktest::run(opts);
    return std::to_string(r.status) + "|" + r.out;
}

const std::string kUnnamed = "VEX did not register with naming service\n";

class VexProgram : public ::testing::Test {
protected:
    ktest::TempDir dir{"vexmain"};
};

TEST_F(VexProgram, OptionsOfTheBrokerComeFirstAndUnknownOnesPrintUsage) {
    for (const char* opt : {"-z", "-?", "-t", "-x"})  // -t and -x lack their values
        EXPECT_EQ(runVex(dir.path(), {opt}).rfind("1|vex arguments: \n\t-v <verbose mode>\n", 0), 0u)
            << opt;
    EXPECT_EQ(runVex(dir.path(), {"-a", "-x", dir.path(), "-x", "/nowhere"}),
              "1|VEX: -x /nowhere is not a directory\n");

    // The broker takes its options out of argv first, so getopt never sees
    // them; faulty ones end the daemon with status 0 before it announces
    // anything.
    EXPECT_EQ(runVex(dir.path(), {"-OAport", "0", "-ORBrecursion",
                                  "-SVCtrace=1", "-t", "5"}),
              "0|" + kUnnamed);
    // An unknown option of the daemon still fails after the broker's options.
    EXPECT_EQ(runVex(dir.path(), {"-ORBnorecursion", "-z"}).substr(0, 2), "1|");
}

TEST_F(VexProgram, RepositoryNameComesFromTheEnvironment) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "impl_dir/impl_rep"},
        {{"KELVANOR=/opt/k"}, "/opt/k/impl_dir/impl_rep"},
        {{"KELVANOR=/opt/k", "KELVANOR_IMPL_PATH=/srv/rep"}, "/srv/rep/impl_rep"},
        {{"KELVANOR=/opt/k", "KELVANOR_IMPL_NAME=n"}, "/opt/k/impl_dir/n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(runVex(dir.path(), {"-v"}, c.first),
                  "0|VEX: Repository file name: " + c.second + "\n" + kUnnamed);
}

TEST_F(VexProgram, VerboseStartPrintsTheLoadedRepository) {
    ASSERT_EQ(mkdir(dir.file("impl_dir").c_str(), 0755), 0);
    ASSERT_TRUE(ktest::writeFile(dir.file("impl_dir/impl_rep"),
                                 repofile::file({repofile::entry("Demo::Iface", "one", "/bin/sh", 1,
                                                                 {"-c", "exit 0"}, {"A=1"})})));
    // The definition's printed form is its own class's business.
    const std::string out = runVex(dir.path(), {"-v"});
    EXPECT_EQ(out.rfind("0|VEX: Repository file name: impl_dir/impl_rep\n"
                        "VEX:: Added the following implementation:\n"
                        "Interface Name: Demo::Iface\nObject Name: one\n", 0),
              0u)
        << out;
    for (const char* loaded : {"Policy:UNSHARED_SERVER\n", "= exit 0\n", "= A=1\n"})
        EXPECT_NE(out.find(loaded), std::string::npos) << loaded;
}

TEST_F(VexProgram, RepositoryThatCannotBeOpenedEndsWithTheHint) {
    std::string rep = dir.file("impl_rep");
    ASSERT_EQ(mkdir(rep.c_str(), 0755), 0);  // it exists, but open() fails
    EXPECT_EQ(runVex(dir.path(), {}, {"KELVANOR_IMPL_PATH=" + dir.path()}),
              "1|Activation daemon: Was not able to open the implementation repository -" + rep +
                  "\nCheck path name or permissions\n"
                  "Hint: Check environment variable KELVANOR_IMPL_NAME, KELVANOR_IMPL_PATH, "
                  "KELVANOR.\n");
}

}  // namespace
