// Directory names: the wire form with and without an argument, identity by
// name and types, and the reference the name holds on its argument.
#include "dsname.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "dsaddr.h"
#include "tbipcstr.h"

TEST(DSName, RoundTripsWithAndWithoutArgument) {
    DSAddr* where = new DSAddr(9000, 0x0100007Fu);
    DSName withArg("svc", DS_ARG_DEFAULT, DS_SERVICE_ACTIVATABLE, where);
    DSName bare("svc", DS_ARG_DEFAULT, static_cast<DSServiceType>(99), nullptr);
    for (const DSName* n : {&withArg, &bare}) {
        TBipcbuf out(128, 0);
        TBipcstream(&out).writeTransObj(n);
        if (!n->argument()) {  // the null object: ":" and the name "::"
            const std::vector<unsigned char> tail = {':', 0, 0, 0, 0, 0, 0, 4, ':', ':', 0, 0};
            EXPECT_EQ(std::vector<unsigned char>(out.write_ptr - tail.size(), out.write_ptr), tail);
        }
        TBipcbuf in(nullptr, 0, out.write_base, out.writeCount(), 0);
        in.read_end += out.writeCount();
        TBipcstream r(&in);
        std::unique_ptr<TBTransObject> obj(r.readTransObj());
        DSName* back = TB_CAST(DSName, obj.get());
        ASSERT_NE(back, nullptr);
        EXPECT_STREQ(back->name(), "svc");
        EXPECT_EQ(back->serviceType(), n->serviceType());  // unknown types kept
        DSAddr* a = TB_CAST(DSAddr, back->argument());
        if (n->argument()) {
            ASSERT_NE(a, nullptr);
            EXPECT_TRUE(a->isEqual(*where));
            EXPECT_EQ(a->refCount(), 1u);  // held by the name read
        } else {
            EXPECT_EQ(a, nullptr);
        }
        EXPECT_EQ(in.readAvail(), 0);
    }
}

TEST(DSName, IdentityIsNameAndTypesNotArgument) {
    DSName a("n", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, new DSAddr(1, 1u));
    DSName same("n", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr);
    EXPECT_TRUE(a.isEqual(same));
    EXPECT_EQ(a.hash(), same.hash());
    EXPECT_LT(a.compare(DSName("o", DS_ARG_DEFAULT, DS_SERVICE_OBJECT, nullptr)), 0);
    EXPECT_NE(a.compare(DSName("n", DS_ARG_DEFAULT, DS_SERVICE_ACTIVATABLE, nullptr)), 0);
    EXPECT_NE(a.compare(DSName("n", static_cast<DSArgType>(2), DS_SERVICE_OBJECT, nullptr)), 0);
}

TEST(DSName, CopiesShareTheArgument) {
    DSAddr* arg = new DSAddr(7, 7u);
    TBResource::ref(arg);  // our own hold, to watch the count
    {
        DSName a("n", DS_ARG_DEFAULT, DS_SERVICE_NAME, arg);
        DSName b(a);
        DSName c("other", DS_ARG_DEFAULT, DS_SERVICE_NAME, arg);
        c = a;
        c = c;
        EXPECT_EQ(b.argument(), arg);
        EXPECT_EQ(arg->refCount(), 4u);
    }
    EXPECT_EQ(arg->refCount(), 1u);
    arg->unref();
}
