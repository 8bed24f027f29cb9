// Providers: the wire form with its three member addresses, and identity by
// name and address.
#include "dsprovider.h"

#include <gtest/gtest.h>

#include <memory>

#include "tbipcstr.h"

TEST(DSProvider, RoundTripsAllFields) {
    DSName name("obj", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSProvider p(name, DSAddr(4000, "127.0.0.1"), DS_PROTOCOL_DEFAULT, 17);
    // The client and agent addresses are this machine, however it resolves.
    EXPECT_TRUE(p.agentAddr().isEqual(DSAddr(0)));

    TBipcbuf out(256, 0);
    TBipcstream(&out).writeTransObj(&p);
    TBipcbuf in(nullptr, 0, out.write_base, out.writeCount(), 0);
    in.read_end += out.writeCount();
    TBipcstream r(&in);
    std::unique_ptr<TBTransObject> obj(r.readTransObj());
    DSProvider* back = TB_CAST(DSProvider, obj.get());
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(back->name().isEqual(name));
    EXPECT_TRUE(back->address().isEqual(DSAddr(4000, "127.0.0.1")));
    EXPECT_TRUE(back->clientAddr().isEqual(p.clientAddr()));
    EXPECT_TRUE(back->agentAddr().isEqual(p.agentAddr()));
    EXPECT_EQ(back->adminPort(), 17);
    EXPECT_EQ(in.readAvail(), 0);
}

TEST(DSProvider, IdentityIsNameThenAddress) {
    DSName a("a", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSName b("b", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    DSProvider p(a, DSAddr(1, 5u), DS_PROTOCOL_DEFAULT, 0);
    DSProvider other(a, DSAddr(1, 5u), DS_PROTOCOL_DEFAULT, 99);  // admin port does not count
    EXPECT_TRUE(p.isEqual(other));
    EXPECT_EQ(p.hash(), other.hash());
    EXPECT_LT(p.compare(DSProvider(b, DSAddr(1, 1u), DS_PROTOCOL_DEFAULT, 0)), 0);
    EXPECT_GT(p.compare(DSProvider(a, DSAddr(1, 4u), DS_PROTOCOL_DEFAULT, 0)), 0);
}
