#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

namespace {

TEST(Date, KeepsItsTimeAndEqualsByIt) {
    auto const date = adopt(CFDateCreate(nullptr, 700000000.25));
    auto const same = adopt(CFDateCreate(nullptr, 700000000.25));
    auto const other = adopt(CFDateCreate(nullptr, 700000000));
    EXPECT_EQ(CFDateGetAbsoluteTime(date.get()), 700000000.25);
    EXPECT_TRUE(CFEqual(date.get(), same.get()));
    EXPECT_EQ(CFHash(date.get()), CFHash(same.get()));
    EXPECT_FALSE(CFEqual(date.get(), other.get()));
}

} // namespace
