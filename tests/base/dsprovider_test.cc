// The directory's records as the agent protocol carries them (endpoints,
// names, providers; the probes of tbtinfo_test read them back). Only numeric
// addresses are used, so that nothing depends on name resolution here.
#include "dsprovider.h"

#include <gtest/gtest.h>

#include <vector>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "dsaddr.h"
#include "dsname.h"
#include "tbipcstr.h"

// The wire form is read back in the datagram tests.
TEST(DSAddr, WireFormCompareTextMulticastAndLocal) {
    TBipcbuf out(64, 0);
    TBipcstream w(&out);
    DSAddr wire(0x1234, "10.1.2.3");
    w.writeTransObj(&wire);
    const std::vector<unsigned char> expect = {
        ':', 0, 0, 0,  0,   0,   0,   8,   'D', 'S', 'A', 'd', 'd', 'r', 0, 0,  // tag, class
        10,  1, 2, 3,                                    // address as it is, network order
        0,   0, 0x12, 0x34};                             // port
    EXPECT_EQ(std::vector<unsigned char>(out.write_base, out.write_ptr), expect);

    // Compare orders by address, then port; text, sockaddr and the multicast
    // range; a documentation address is never this machine, a socket pair no
    // internet peer.
    DSAddr a(5, 0x01020304u);
    EXPECT_EQ(a.compare(DSAddr(a)), 0);
    EXPECT_LT(a.compare(DSAddr(6, 0x01020304u)), 0);
    EXPECT_LT(a.compare(DSAddr(0, 0x01020305u)), 0);  // the address decides first
    // Far apart: a plain int difference would get the sign wrong.
    EXPECT_GT(DSAddr(1, 0xFFFFFFFFu).compare(DSAddr(1, 0u)), 0);

    EXPECT_STREQ(DSAddr(80, "127.0.0.1").ntoa(), "127.0.0.1");
    EXPECT_EQ(DSAddr(1, static_cast<const char*>(nullptr)).address(), 0xFFFFFFFFu);
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_port = htons(8080);
    sin.sin_addr.s_addr = inet_addr("10.0.0.7");
    EXPECT_TRUE(DSAddr(&sin).isEqual(DSAddr(8080, "10.0.0.7")));
    for (const char* yes : {"224.0.0.1", "239.255.255.255"})
        EXPECT_TRUE(DSAddr(0, yes).isMulticast()) << yes;
    for (const char* no : {"223.255.255.255", "240.0.0.0", "0.0.0.224"})
        EXPECT_FALSE(DSAddr(0, no).isMulticast()) << no;

    EXPECT_FALSE(DSAddr(0, "192.0.2.1").isLocal());
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    EXPECT_FALSE(DSAddr::isPeerLocal(pair[0]));
    close(pair[0]);
    close(pair[1]);
}

// Names are equal by name and types whatever the argument, which copies share.
TEST(DSName, IdentityIgnoresTheSharedArgumentAndProvidersCompareByNameThenAddress) {
    DSAddr* arg = new DSAddr(7, 7u);
    TBResource::ref(arg);  // our own hold, to watch the count
    {
        DSName a("n", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, arg);
        DSName same("n", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
        EXPECT_TRUE(a.isEqual(same));
        EXPECT_EQ(a.hash(), same.hash());
        EXPECT_LT(a.compare(DSName("o", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr)), 0);
        EXPECT_NE(a.compare(DSName("n", DS_ARG_DEFAULT, DS_SERVICE_ACTIVATABLE, nullptr)), 0);
        EXPECT_NE(a.compare(DSName("n", static_cast<DSArgType>(2), DS_SERVICE_OBJECT, nullptr)), 0);
        DSName b(a), c("other", DS_ARG_DEFAULT, DS_SERVICE_NAME, arg);
        c = a;
        c = c;
        EXPECT_EQ(arg->refCount(), 4u);
    }
    EXPECT_EQ(arg->refCount(), 1u);
    arg->unref();

    // A provider's identity is name, then address. (The fields cross the
    // wire to the test agent and back in the agent tests.)
    DSName name("obj", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSProvider p(name, DSAddr(4000, "127.0.0.1"), DS_PROTOCOL_DEFAULT, 17);
    // The client and agent addresses are this machine, however it resolves.
    EXPECT_TRUE(p.agentAddr().isEqual(DSAddr(0)));
    DSName b("z", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSProvider other(name, DSAddr(4000, "127.0.0.1"), DS_PROTOCOL_DEFAULT, 99);  // port aside
    EXPECT_TRUE(p.isEqual(other));
    EXPECT_EQ(p.hash(), other.hash());
    EXPECT_LT(p.compare(DSProvider(b, DSAddr(1, 1u), DS_PROTOCOL_DEFAULT, 0)), 0);
    EXPECT_GT(p.compare(DSProvider(name, DSAddr(1, 1u), DS_PROTOCOL_DEFAULT, 0)), 0);
}

