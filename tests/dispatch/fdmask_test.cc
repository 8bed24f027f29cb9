// The descriptor bit set must be usable by select() as an fd_set.
#include "fdmask.h"

#include <gtest/gtest.h>

TEST(dpFdMask, BitsLandWhereSelectLooksAndStrayDescriptorsAreIgnored) {
    dpFdMask mask;
    for (int fd : {-1, 0, 31, 32, 1023, 1024, 2499})
        mask.setBit(fd);
    EXPECT_EQ(mask.numSet(), 4);
    for (int fd : {0, 31, 32, 1023})
        EXPECT_TRUE(FD_ISSET(fd, mask.fdSet()) && mask.isSet(fd)) << fd;
    EXPECT_FALSE(FD_ISSET(1, mask.fdSet()) || mask.isSet(33) || mask.isSet(-1) || mask.isSet(1024));
    for (int fd : {0, 31, 32, 4000})
        mask.clrBit(fd);
    EXPECT_TRUE(mask.anySet());  // the last word alone must count
    mask.clrBit(1023);
    EXPECT_FALSE(mask.anySet());
}
