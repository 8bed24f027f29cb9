// The agent client without an agent: registrations succeed and are
// forgotten, every query finds nothing.
#include "dsdummyuser.h"

#include <gtest/gtest.h>

#include <functional>

#include "dsaddr.h"
#include "dsname.h"
#include "dsprovider.h"

TEST(DSDummyUser, LookupsFindNothing) {
    DSDummyUser dummy("login", "third");
    DSUser& user = dummy;  // through the interface, as the broker calls it
    for (int type : {2, 4, 5, 6, 7, 1000}) {
        for (const char* n : {"", "IDL:Foo:1.0"}) {
            DSName name(n, DS_ARG_DEFAULT, static_cast<DSServiceType>(type), nullptr);
            int status = 12345;
            EXPECT_EQ(user.getProvider(&name, status, 5), nullptr);
            EXPECT_EQ(status, -993);
        }
    }
    DSAddr agent(14000, 0x0100007Fu);
    DSName name("n", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    const std::function<void*(int&)> listings[] = {
        [&](int& st) { return user._allAgentAddresses(st); },
        [&](int& st) { return user._allProvidersRemote(&name, st, agent); },
        [&](int& st) { return user._allProviders(&name, st); },
        [&](int& st) { return user._allNamesRemote(st, agent); },
        [&](int& st) { return user._allNames(st); },
        [&](int& st) { return user._getClientHandlerAddr(st, agent); },
        [&](int& st) { return user.allAgentAddresses(st); },
        [&](int& st) { return user.allProviders(&name, st, 1); },
        [&](int& st) { return user.allNames(st, 0); },
    };
    for (const auto& list : listings) {
        int status = 7;
        EXPECT_EQ(list(status), nullptr);
        EXPECT_EQ(status, 0);  // nothing listed is not a failure
    }
}

TEST(DSDummyUser, RegistrationsSucceedAndAreForgotten) {
    DSUser* user = new DSDummyUser(nullptr, nullptr);
    DSName name("svc", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSProvider p(name, DSAddr(5000, "127.0.0.1"), DS_PROTOCOL_DEFAULT, 0);
    EXPECT_EQ(user->registerProvider(&p), 0);
    EXPECT_EQ(user->registerProvider(&p), 0);  // a session would say -994 here
    int status = 0;
    EXPECT_EQ(user->getProvider(&name, status, 0), nullptr);
    EXPECT_EQ(status, -993);
    EXPECT_EQ(user->removeProvider(&p), 0);
    EXPECT_EQ(user->removeProvider(&p), 0);
    EXPECT_EQ(user->login(), 1);
    EXPECT_EQ(user->inputReady(0), 0);
    user->close();  // deletes: a leak or a double delete shows under the sanitizers
}
