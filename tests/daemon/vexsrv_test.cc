// The implementation repository in memory and in its file: loads, failed
// rewrites and rewrites killed half-way.
#include "vexsrv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "actdef.h"
#include "impldef.h"
#include "repofile.h"
#include "thrown.h"
#include "Activation.h"

namespace {

typedef std::vector<std::string> Pairs;

CORBA_CreationImplDef makeDef(const char* iface, const char* obj, const char* path = "/bin/sh") {
    return CORBA_CreationImplDef(iface, obj, CORBA_OctetSequence(), path);
}

// A shared server at path, with nargs arguments.
void regDef(VEXImpl& repo, const std::string& iface, const std::string& obj,
            const char* path = "/bin/sh", unsigned nargs = 0) {
    CORBA_StringSequence args;
    args.length(nargs);
    for (unsigned i = 0; i < nargs; ++i) args[i] = "argument";
    CORBA_CreationImplDef d(iface.c_str(), obj.c_str(), CORBA_OctetSequence(), path,
                            CORBA_CreationImplDef::SHARED_SERVER, args);
    CORBA::release(repo.reg_implementation(&d));
}

class VEXImplTest : public ::testing::Test {
protected:
    repofile::Env env;
    std::unique_ptr<VEXImpl> repo{new VEXImpl(0)};

    void reg(const char* iface, const char* obj, const char* path = "/bin/sh") {
        regDef(*repo, iface, obj, path);
    }
    std::string path(const char* iface, const char* obj) {
        CORBA_CreationImplDef_var d = repo->get_implementation(iface, obj);
        return d->path.in();
    }
    // The pairs in the file, sorted; fails the test if it is not well formed.
    Pairs filePairs() {
        Pairs p;
        EXPECT_TRUE(repofile::parse(ktest::readFile(env.repo()), &p));
        std::sort(p.begin(), p.end());
        return p;
    }
};

TEST_F(VEXImplTest, RegistrationsReachMemoryTheFileAndTheNextStart) {
    EXPECT_FALSE(file_exists(env.repo().c_str()));  // a start creates no file
    CORBA::Octet k7[2] = {'k', '7'};
    CORBA_OctetSequence id(2, 2, k7);
    char* argv[2] = {const_cast<char*>("-a"), const_cast<char*>("")};
    CORBA_StringSequence args(2, 2, argv);  // adopted, not owned
    CORBA_CreationImplDef d("Demo::I", "obj", id, "/bin/sh",
                            CORBA_CreationImplDef::SERVER_PER_METHOD, args);
    CORBA::release(repo->reg_implementation(&d));
    EXPECT_EQ(ktest::readFile(env.repo()),
              repofile::file({repofile::entry("Demo::I", "obj", "/bin/sh", 2, {"-a", ""}, {}, "k7")}));

    reg("A", "x");
    reg("A", "y");
    reg("B", "z", "/bin/ls");
    EXPECT_EQ(filePairs(), (Pairs{"A/x", "A/y", "B/z", "Demo::I/obj"}));  // count: the sum

    repo.reset(new VEXImpl(0));
    EXPECT_EQ(repo->entryCount(), 4u);
    EXPECT_EQ(path("B", "z"), "/bin/ls");
    EXPECT_EQ(CORBA_CreationImplDef_var(repo->get_implementation("Demo::I", "obj"))->id.compare(id), 0);
}

TEST_F(VEXImplTest, RefusedRequestsChangeNothingAndUnregisteringKeepsNoEmptyInterface) {
    std::string missing = env.dir() + "/no-such-program";
    EXPECT_THROW(reg("A", "x", missing.c_str()), Activation::InvalidPath);
    EXPECT_EQ(repo->findInterface("A"), nullptr);
    EXPECT_FALSE(file_exists(env.repo().c_str()));

    reg("A", "x");
    std::string before = ktest::readFile(env.repo());
    EXPECT_THROW(reg("A", "x", "/bin/ls"), Activation::DuplicateEntry);
    EXPECT_THROW(repo->unreg_implementation("A", "y"), Activation::NotRegistered);
    EXPECT_THROW(repo->unreg_implementation("B", "x"), Activation::NotRegistered);
    EXPECT_THROW(repo->unreg_interface("B"), Activation::NotRegistered);
    EXPECT_THROW(repo->get_implementation("A", "y"), Activation::NotRegistered);
    EXPECT_EQ(ktest::readFile(env.repo()), before);

    // get_implementation hands out a copy.
    CORBA_CreationImplDef_var copy = repo->get_implementation("A", "x");
    copy->path = "/elsewhere";
    EXPECT_EQ(path("A", "x"), "/bin/sh");

    // Unregistering keeps no empty interface.
    reg("A", "y");
    reg("B", "z");
    reg("C", "w");
    repo->unreg_implementation("A", "x");
    EXPECT_NE(repo->findInterface("A"), nullptr);
    repo->unreg_implementation("A", "y");
    EXPECT_EQ(repo->findInterface("A"), nullptr);
    EXPECT_THROW(repo->unreg_interface("A"), Activation::NotRegistered);
    EXPECT_EQ(filePairs(), (Pairs{"B/z", "C/w"}));
    repo->unreg_interface("B");
    EXPECT_EQ(filePairs(), Pairs{"C/w"});

    repo->unreg_interface("C");
    repo->unregister_all();  // on an empty table: exactly four zero bytes
    EXPECT_EQ(ktest::readFile(env.repo()), std::string(4, '\0'));
}

TEST_F(VEXImplTest, ChangeImplementation) {
    reg("A", "x");
    reg("A", "y");
    // Found by the names alone; the same names work (the old entry goes first).
    CORBA_CreationImplDef oldDef = makeDef("A", "x", "/ignored");
    CORBA_CreationImplDef newDef = makeDef("A", "x", "/bin/ls");
    repo->change_implementation(&oldDef, &newDef);
    EXPECT_EQ(repo->entryCount(), 2u);
    EXPECT_EQ(path("A", "x"), "/bin/ls");
    CORBA_CreationImplDef moved = makeDef("B", "w");
    repo->change_implementation(&oldDef, &moved);
    EXPECT_EQ(filePairs(), (Pairs{"A/y", "B/w"}));
    EXPECT_THROW(repo->change_implementation(&oldDef, &moved), Activation::NotRegistered);

    // A running shared server blocks the change; a start in progress does not.
    CORBA_CreationImplDef y = makeDef("A", "y");
    VEXActivationInfo* info = repo->findEntry("A", "y");
    info->pending(new Activation::ObjectStatus{42, Activation::ACTIVE, nullptr});
    EXPECT_THROW(repo->change_implementation(&y, &y), Activation::IsActive);
    EXPECT_EQ(repo->findEntry("A", "y"), info);
    info->pending(new Activation::ObjectStatus{43, Activation::WAITING_FOR_ACTIVATION, nullptr});
    repo->change_implementation(&y, &y);

    // A new definition that fails: gone from memory, still in the file.
    std::string missing = env.dir() + "/missing";
    CORBA_CreationImplDef broken = makeDef("A", "y", missing.c_str());
    std::string before = ktest::readFile(env.repo());
    EXPECT_THROW(repo->change_implementation(&y, &broken), Activation::InvalidPath);
    EXPECT_EQ(repo->findEntry("A", "y"), nullptr);
    EXPECT_EQ(ktest::readFile(env.repo()), before);
}

using repofile::entry;

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
    std::unique_ptr<VEXImpl> load(int verbose = 0) {
        std::ostringstream out;
        std::streambuf* old = std::cout.rdbuf(out.rdbuf());
        std::unique_ptr<VEXImpl> repo(new VEXImpl(verbose));
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

// A damaged file is copied aside before any rewrite; what reads is loaded.
TEST_F(RepositoryFile, DamagedFilesAreKeptAsideAndTheirReadableEntriesLoaded) {
    ASSERT_TRUE(ktest::writeFile(env.repo(), ""));  // an empty repository
    EXPECT_EQ(load()->entryCount(), 0u);
    EXPECT_EQ(printed, "");
    // The one copy beside the file holds bytes, and the line names it.
    auto keptCopy = [&](const std::string& bytes) {
        for (const std::string& n : filesIn(env.dir())) {
            if (n.compare(0, 17, "impl_rep.damaged-") != 0) continue;
            const std::string copy = env.dir() + "/" + n;
            const bool ok = ktest::readFile(copy) == bytes &&
                            printed.find("is damaged; a copy is kept as " + copy + "\n") !=
                                std::string::npos;
            unlink(copy.c_str());
            return ok;
        }
        return false;
    };
    // Cut inside the second of three: empty strings, and empty paths fail.
    std::string good = entry("A", "x");
    std::string whole = repofile::file({good, entry("A", "y"), entry("A", "z")});
    std::string cut = whole.substr(0, 4 + good.size() + 7);
    ASSERT_TRUE(ktest::writeFile(env.repo(), cut));
    EXPECT_EQ(load()->entryCount(), 1u);
    EXPECT_EQ(printed.find(invalid("") + invalid("")), 0u);
    EXPECT_TRUE(keptCopy(cut));
    // Bytes left over after the last entry.
    ASSERT_TRUE(ktest::writeFile(env.repo(), whole + "x"));
    EXPECT_EQ(load()->entryCount(), 3u);
    EXPECT_TRUE(keptCopy(whole + "x"));

    // Counts and lengths far beyond the file end the load.
    std::string head = repofile::u32(2) + good + repofile::str("B") + repofile::str("o");
    for (const std::string& bytes :
         {repofile::u32(0x7fffffff), repofile::u32(2) + good + repofile::u32(0xfffffff0),
          head + repofile::u32(0xffffff00)}) {  // the reference data
        ASSERT_TRUE(ktest::writeFile(env.repo(), bytes));
        EXPECT_LE(load()->entryCount(), 1u);
        EXPECT_NE(printed.find("VEX:: Repository file is damaged"), std::string::npos);
        EXPECT_TRUE(keptCopy(bytes));
    }
}

TEST_F(RepositoryFile, AStartRemovesOnlyTheTemporaryFilesOfItsOwnPattern) {
    const std::vector<std::string> others = {"impl_rep.tmp-ab.123", "impl_rep.tmp-abc12",
                                             "impl_rep.tmp-abc1234", "other.tmp-abc123"};
    for (const std::string& n : others) ASSERT_TRUE(ktest::writeFile(env.dir() + "/" + n, "x"));
    ASSERT_TRUE(ktest::writeFile(env.dir() + "/impl_rep.tmp-aB3xY9", "x"));
    load(1);
    EXPECT_NE(printed.find("VEX: Removed " + env.dir() + "/impl_rep.tmp-aB3xY9, left by an earlier run\n"),
              std::string::npos);
    std::vector<std::string> left = filesIn(env.dir());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, others);
}

// A failed rewrite refuses with PERSIST_STORE, errno as minor, changing nothing.
TEST_F(RepositoryFile, FailedRewritesAreRefusedAndChangeNothing) {
    VEXImpl repo(0);
    for (const char* obj : {"x", "y", "z"}) regDef(repo, "A", obj);
    const std::string before = ktest::readFile(env.repo());
    CORBA_CreationImplDef x = makeDef("A", "x"), moved = makeDef("C", "w");
    const std::vector<std::function<void()>> ops = {
        [&] { regDef(repo, "C", "w", "/bin/sh", 30); },  // the only one past 200 bytes
        [&] { repo.unreg_implementation("A", "x"); }, [&] { repo.unreg_interface("A"); },
        [&] { repo.change_implementation(&x, &moved); }, [&] { repo.unregister_all(); }};
    auto refused = [&](int resource, rlim_t limit, int minor, size_t count) {
        struct rlimit old, lim;
        getrlimit(resource, &old);
        lim = old;
        lim.rlim_cur = limit;
        setrlimit(resource, &lim);
        for (size_t i = 0; i < count; ++i) {
            const CORBA_PERSIST_STORE e = ktest::thrown<CORBA_PERSIST_STORE>(ops[i]);
            EXPECT_TRUE(e.minor() == static_cast<CORBA::ULong>(minor) &&
                        e.completed() == CORBA::COMPLETED_NO) << i << " " << e.minor();
            EXPECT_TRUE(repo.entryCount() == 3 && repo.findEntry("A", "x")) << i;
        }
        setrlimit(resource, &old);
    };
    std::ostringstream out;
    std::streambuf* old = std::cout.rdbuf(out.rdbuf());
#if !defined(__SANITIZE_ADDRESS__)  // the sanitizers' own checks need descriptors
    const int lowest = dup(0);  // no descriptor left for the temporary file
    close(lowest);
    refused(RLIMIT_NOFILE, static_cast<rlim_t>(lowest), EMFILE, ops.size());
#endif
    signal(SIGXFSZ, SIG_IGN);  // a full disk
    refused(RLIMIT_FSIZE, 200, EFBIG, 1);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(ktest::readFile(env.repo()), before);
    // A directory stands in the way of the rename.
    ASSERT_EQ(unlink(env.repo().c_str()), 0);
    ASSERT_EQ(mkdir(env.repo().c_str(), 0755), 0);
    refused(RLIMIT_FSIZE, RLIM_INFINITY, EISDIR, ops.size());
    std::cout.rdbuf(old);
    EXPECT_NE(out.str().find("VEX: Could not back up repository\n"), std::string::npos);
    EXPECT_EQ(filesIn(env.dir()), std::vector<std::string>{"impl_rep"});
    ASSERT_EQ(rmdir(env.repo().c_str()), 0);
    repo.unregister_all();  // and it serves on
    EXPECT_EQ(ktest::readFile(env.repo()), std::string(4, '\0'));
}

}  // namespace
