// The agent client without an agent: registrations succeed and are
// forgotten, every query finds nothing.
#include "dsdummyuser.h"

#include <gtest/gtest.h>

#include "dsaddr.h"
#include "dsname.h"
#include "dsprovider.h"

TEST(DSDummyUser, RegistrationsAreForgottenAndLookupsFindNothing) {
    DSUser* user = new DSDummyUser("login", "third");  // used as the broker uses it
    DSName name("svc", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSProvider p(name, DSAddr(5000, "127.0.0.1"), DS_PROTOCOL_DEFAULT, 0);
    EXPECT_EQ(user->registerProvider(&p), 0);
    EXPECT_EQ(user->registerProvider(&p), 0);  // a session would say -994 here
    for (int type : {2, 4, 5, 6, 7, 1000}) {
        DSName any("svc", DS_ARG_DEFAULT, static_cast<DSServiceType>(type), nullptr);
        int status = 12345;
        EXPECT_EQ(user->getProvider(&any, status, 5), nullptr);
        EXPECT_EQ(status, -993) << type;
    }
    int status = 7;
    EXPECT_EQ(user->allProviders(&name, status, 1), nullptr);
    EXPECT_EQ(status, 0);  // nothing listed is not a failure
    EXPECT_EQ(user->removeProvider(&p), 0);
    EXPECT_EQ(user->login(), 1);
    EXPECT_EQ(user->inputReady(0), 0);
    user->close();  // deletes: a leak or a double delete shows under the sanitizers
}
