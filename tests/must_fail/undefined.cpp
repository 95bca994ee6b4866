#include <gtest/gtest.h>

#include <limits>

TEST(MustFail, SignedOverflow) {
    int volatile number = std::numeric_limits<int>::max();
    number = number + 1;
}
