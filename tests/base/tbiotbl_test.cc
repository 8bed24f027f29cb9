// Sizing and probing of the open-address tables; the stream tests drive the
// identity tables' numbering through whole object graphs.
#include "tbiotbl.h"

#include <gtest/gtest.h>

TEST(TBHashShape, SizingRuleAndProbing) {
    unsigned cases[][2] = {{0, 1}, {1, 2}, {5, 16}, {16, 32}, {17, 64}, {256, 512}};
    for (auto& k : cases) {
        TBHashShape shape;
        shape.setCapacity(k[0]);
        EXPECT_EQ(k[1], shape.slots) << k[0];
        EXPECT_EQ(k[1] - 1, shape.mask) << k[0];
    }
    TBHashShape shape;
    shape.setSlots(5);
    EXPECT_EQ(19u, shape.home(1));   // top five bits of 2654435769
    EXPECT_EQ(31u, shape.below(0));  // probing wraps below slot 0
}

TEST(TBTransDict, ClearRestartsNumbersAndKeepsSize) {
    TBTransDict dict(16);
    char objects[40];
    int number = -1;
    for (int round = 0; round < 3; ++round) {
        dict.clear();
        for (char& o : objects) dict.add(reinterpret_cast<const TBTransObject*>(&o), number);
        EXPECT_EQ(39, number);
        EXPECT_EQ(64u, dict.slotCount());  // grown once, then reused
    }
}
