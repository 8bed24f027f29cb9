#include "vexsrv.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "actdef.h"
#include "impldef.h"
#include "repofile.h"
#include "Activation.h"

namespace {

typedef std::vector<std::string> Pairs;

CORBA_CreationImplDef makeDef(const char* iface, const char* obj, const char* path = "/bin/sh") {
    return CORBA_CreationImplDef(iface, obj, CORBA_OctetSequence(), path);
}

class VEXImplTest : public ::testing::Test {
protected:
    repofile::Env env;
    std::unique_ptr<VEXImpl> repo{new VEXImpl(0)};

    void reg(const char* iface, const char* obj, const char* path = "/bin/sh") {
        CORBA_CreationImplDef d = makeDef(iface, obj, path);
        CORBA::release(repo->reg_implementation(&d));
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
    EXPECT_EQ(repo->findInterface("A")->size(), 2u);
    EXPECT_EQ(filePairs(), (Pairs{"A/x", "A/y", "B/z", "Demo::I/obj"}));  // count: the sum

    repo.reset(new VEXImpl(0));
    EXPECT_EQ(repo->entryCount(), 4u);
    EXPECT_EQ(path("B", "z"), "/bin/ls");
    EXPECT_EQ(CORBA_CreationImplDef_var(repo->get_implementation("Demo::I", "obj"))->id.compare(id), 0);
}

TEST_F(VEXImplTest, RefusedRequestsChangeNothing) {
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
}

TEST_F(VEXImplTest, UnregisteringKeepsNoEmptyInterface) {
    reg("A", "x");
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

    repo->unregister_all();
    EXPECT_EQ(repo->entryCount(), 0u);
    EXPECT_EQ(ktest::readFile(env.repo()), std::string(4, '\0'));
    repo->unregister_all();  // on an empty table: exactly four zero bytes
    EXPECT_EQ(ktest::readFile(env.repo()), std::string(4, '\0'));
}

TEST_F(VEXImplTest, ChangeImplementation) {
    reg("A", "x");
    reg("A", "y");
    // Found by the names alone; the same names work, since the old entry
    // goes first.
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

    // A new definition that fails: the old entry is gone from memory while
    // the file still holds it.
    std::string missing = env.dir() + "/missing";
    CORBA_CreationImplDef broken = makeDef("A", "y", missing.c_str());
    std::string before = ktest::readFile(env.repo());
    EXPECT_THROW(repo->change_implementation(&y, &broken), Activation::InvalidPath);
    EXPECT_EQ(repo->findEntry("A", "y"), nullptr);
    EXPECT_EQ(ktest::readFile(env.repo()), before);
}

}  // namespace
