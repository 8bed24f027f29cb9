// Internet endpoints: the wire form, ordering and hashing, dotted text and
// the address classes. Only numeric addresses are used, so that nothing
// depends on how this machine's names resolve.
#include "dsaddr.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "dsname.h"
#include "tbipcstr.h"

TEST(DSAddr, WireFormRoundTrips) {
    TBipcbuf out(64, 0);
    TBipcstream w(&out);
    DSAddr a(0x1234, "10.1.2.3");
    w.writeTransObj(&a);
    const std::vector<unsigned char> expect = {
        ':', 0, 0, 0,  0,   0,   0,   8,   'D', 'S', 'A', 'd', 'd', 'r', 0, 0,  // tag, class
        10,  1, 2, 3,                                    // address as it is, network order
        0,   0, 0x12, 0x34};                             // port
    EXPECT_EQ(std::vector<unsigned char>(out.write_base, out.write_ptr), expect);

    TBipcbuf in(nullptr, 0, out.write_base, out.writeCount(), 0);
    in.read_end += out.writeCount();
    TBipcstream r(&in);
    std::unique_ptr<TBTransObject> obj(r.readTransObj());
    DSAddr* b = TB_CAST(DSAddr, obj.get());
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->port(), 0x1234);
    EXPECT_TRUE(b->isEqual(a));
}

TEST(DSAddr, HashAndCompareTakeAddressThenPort) {
    DSAddr a(5, 0x01020304u);
    EXPECT_EQ(a.hash(), 0x01020304u ^ 5u);
    EXPECT_EQ(a.compare(DSAddr(a)), 0);
    EXPECT_LT(a.compare(DSAddr(6, 0x01020304u)), 0);
    EXPECT_GT(a.compare(DSAddr(4, 0x01020304u)), 0);
    EXPECT_LT(a.compare(DSAddr(0, 0x01020305u)), 0);  // the address decides first
    // Far apart: a plain int difference would get the sign wrong.
    EXPECT_GT(DSAddr(1, 0xFFFFFFFFu).compare(DSAddr(1, 0u)), 0);
    EXPECT_EQ(a.compare(DSName("x", DS_ARG_DEFAULT, DS_SERVICE_NAME, nullptr)), -1);
}

TEST(DSAddr, ConstructorsTextAndMulticast) {
    DSAddr loop(80, "127.0.0.1");
    EXPECT_EQ(loop.address(), htonl(INADDR_LOOPBACK));
    EXPECT_STREQ(loop.ntoa(), "127.0.0.1");
    EXPECT_EQ(DSAddr(1, static_cast<const char*>(nullptr)).address(), 0xFFFFFFFFu);
    EXPECT_EQ(DSAddr(1, 0u).hostName(), nullptr);

    sockaddr_in sin;
    std::memset(&sin, 0, sizeof sin);
    sin.sin_family = AF_INET;
    sin.sin_port = htons(8080);
    sin.sin_addr.s_addr = inet_addr("10.0.0.7");
    EXPECT_EQ(DSAddr(&sin).port(), 8080);
    EXPECT_STREQ(DSAddr(&sin).ntoa(), "10.0.0.7");

    for (const char* yes : {"224.0.0.1", "239.255.255.255"})
        EXPECT_TRUE(DSAddr(0, yes).isMulticast()) << yes;
    for (const char* no : {"223.255.255.255", "240.0.0.0", "0.0.0.224"})
        EXPECT_FALSE(DSAddr(0, no).isMulticast()) << no;
}

TEST(DSAddr, LocalMeansThisMachinesFirstAddress) {
    // 192.0.2.0/24 is reserved for documentation: never this machine's.
    EXPECT_FALSE(DSAddr(0, "192.0.2.1").isLocal());
    DSAddr here(0);
    if (here.address() != 0) {
        EXPECT_TRUE(here.isLocal());
    }
    EXPECT_FALSE(DSAddr::isPeerLocal(-1));
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    EXPECT_FALSE(DSAddr::isPeerLocal(pair[0]));  // a peer, but not an internet one
    close(pair[0]);
    close(pair[1]);
}
