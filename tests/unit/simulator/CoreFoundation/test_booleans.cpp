#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

namespace {

TEST(Boolean, IsTrueOnlyAsTheTrueObject) {
    auto const one = integer(1);
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_FALSE(CFBooleanGetValue(nullptr));
    EXPECT_FALSE(CFBooleanGetValue(reinterpret_cast<CFBooleanRef>(one.get())));
}

} // namespace
