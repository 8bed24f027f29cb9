// Loading the repository file, rewrites that fail, and rewrites that are
// killed half-way.
#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "impldef.h"
#include "repofile.h"
#include "vexsrv.h"

namespace {

using repofile::entry;

void regDef(VEXImpl& repo, const std::string& iface, const std::string& obj, unsigned nargs = 0) {
    CORBA_StringSequence args;
    args.length(nargs);
    for (unsigned i = 0; i < nargs; ++i) args[i] = "argument";
    CORBA_CreationImplDef d(iface.c_str(), obj.c_str(), CORBA_OctetSequence(), "/bin/sh",
                            CORBA_CreationImplDef::SHARED_SERVER, args);
    CORBA::release(repo.reg_implementation(&d));
}

std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

std::string invalid(const std::string& path) {
    return "VEX:: Invalid registration. File " + path + " does not exist\n"
           "The implementation will not be added to the list of registrations\n";
}

class RepositoryFile : public ::testing::Test {
protected:
    repofile::Env env;
    std::string printed;

    // A new servant, built with cout collected into `printed`.
    std::unique_ptr<VEXImpl> load() {
        std::ostringstream out;
        std::streambuf* old = std::cout.rdbuf(out.rdbuf());
        std::unique_ptr<VEXImpl> repo(new VEXImpl(0));
        std::cout.rdbuf(old);
        printed = out.str();
        return repo;
    }
};

TEST_F(RepositoryFile, LoadSkipsMissingProgramsAndLaterDuplicates) {
    std::string gone = env.dir() + "/removed-program";
    ASSERT_TRUE(ktest::writeFile(env.repo(), repofile::file({entry("A", "x"), entry("A", "y", gone),
                                                             entry("A", "x", "/bin/ls")})));
    std::unique_ptr<VEXImpl> repo = load();
    EXPECT_EQ(printed, invalid(gone));
    EXPECT_EQ(repo->entryCount(), 1u);
    EXPECT_STREQ(CORBA_CreationImplDef_var(repo->get_implementation("A", "x"))->path, "/bin/sh");

    // The start wrote nothing; the first change drops the skipped entries.
    EXPECT_NE(ktest::readFile(env.repo()).find("removed-program"), std::string::npos);
    regDef(*repo, "B", "z");
    std::vector<std::string> pairs;
    ASSERT_TRUE(repofile::parse(ktest::readFile(env.repo()), &pairs));
    EXPECT_EQ(pairs.size(), 2u);
}

TEST_F(RepositoryFile, ShortFilesReadAsZeroesAndCorruptOnesStop) {
    ASSERT_TRUE(ktest::writeFile(env.repo(), ""));  // an empty repository
    EXPECT_EQ(load()->entryCount(), 0u);
    EXPECT_EQ(printed, "");
    // Cut inside the second of three entries: the rest reads as empty
    // strings, and the empty path fails the existence test.
    std::string good = entry("A", "x");
    std::string whole = repofile::file({good, entry("A", "y"), entry("A", "z")});
    ASSERT_TRUE(ktest::writeFile(env.repo(), whole.substr(0, 4 + good.size() + 7)));
    EXPECT_EQ(load()->entryCount(), 1u);
    EXPECT_EQ(printed, invalid("") + invalid(""));

    // Counts and lengths far beyond the file end the load.
    std::string head = repofile::u32(2) + good + repofile::str("B") + repofile::str("o");
    for (const std::string& bytes :
         {repofile::u32(0x7fffffff), repofile::u32(2) + good + repofile::u32(0xfffffff0),
          head + repofile::u32(0xffffff00)}) {  // the reference data
        ASSERT_TRUE(ktest::writeFile(env.repo(), bytes));
        EXPECT_LE(load()->entryCount(), 1u);
        EXPECT_NE(printed.find("VEX:: Repository file is damaged"), std::string::npos);
    }
}

TEST_F(RepositoryFile, FailedRewritesEndTheProcessAndKeepTheOldFile) {
    VEXImpl repo(0);
    regDef(repo, "A", "x");
    std::string before = ktest::readFile(env.repo());
    // Writing fails: no file may grow past 200 bytes, which leaves room for
    // the messages that the death test collects.
    EXPECT_EXIT(
        {
            dup2(2, 1);
            signal(SIGXFSZ, SIG_IGN);
            struct rlimit lim;
            lim.rlim_cur = lim.rlim_max = 200;
            setrlimit(RLIMIT_FSIZE, &lim);
            regDef(repo, "B", "y", 30);
        },
        ::testing::ExitedWithCode(1),
        "VEX: Could not back up repository\nHint: Check if you have write permission in " +
            env.dir() + "\n");
    EXPECT_EQ(ktest::readFile(env.repo()), before);
    EXPECT_EQ(filesIn(env.dir()), std::vector<std::string>{"impl_rep"});

    // Rename fails (a directory stands in the way): the temporary file,
    // complete, stays for the administrator.
    ASSERT_EQ(unlink(env.repo().c_str()), 0);
    ASSERT_EQ(mkdir(env.repo().c_str(), 0755), 0);
    EXPECT_EXIT(
        {
            dup2(2, 1);
            regDef(repo, "C", "z");
        },
        ::testing::ExitedWithCode(1),
        "rename:: .*\nVEX:: Rename of backup file failed\nRepository file name: " + env.repo() +
            "\n");
    std::vector<std::string> names = filesIn(env.dir()), pairs;
    ASSERT_EQ(names.size(), 2u);
    std::string temp = names[0] == "impl_rep" ? names[1] : names[0];
    EXPECT_TRUE(repofile::parse(ktest::readFile(env.dir() + "/" + temp), &pairs));
    EXPECT_EQ(pairs.size(), 2u);
}

// A child rewrites the file over and over with changing sizes and is killed
// at random moments. Each time the file must be one whole repository that a
// new daemon loads.
TEST_F(RepositoryFile, KilledRewritesNeverLeaveATornFile) {
    std::mt19937 rng(12345);
    for (int round = 0; round < 25; ++round) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            if (!freopen("/dev/null", "w", stdout)) _exit(2);
            VEXImpl repo(0);
            repo.unregister_all();  // names of the last round are free again
            auto stop = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            for (unsigned i = 0; std::chrono::steady_clock::now() < stop; ++i) {
                if (i % 40 == 39)
                    repo.unregister_all();
                else
                    regDef(repo, "I" + std::to_string(i % 3), "o" + std::to_string(i), i % 9);
            }
            _exit(0);
        }
        // The moment of the kill is what varies; nothing is waited for here.
        usleep(std::uniform_int_distribution<unsigned>(200, 20000)(rng));
        kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "writer ended early";

        if (!file_exists(env.repo().c_str())) continue;  // killed before the first rename
        std::vector<std::string> pairs;
        ASSERT_TRUE(repofile::parse(ktest::readFile(env.repo()), &pairs)) << "round " << round;
        EXPECT_EQ(load()->entryCount(), pairs.size());
        EXPECT_EQ(printed, "");
    }
}

}  // namespace
