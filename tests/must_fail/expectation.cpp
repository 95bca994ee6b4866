#include <gtest/gtest.h>

TEST(MustFail, Expectation) {
    EXPECT_EQ(1, 2);
}
