#include "support/identifiers/device_error.hpp"

#include <gtest/gtest.h>

namespace {

using namespace QN::SharedSupport::ios_device;

TEST(DeviceError, CategoryIsOneAndNamed) {
    EXPECT_STREQ(device_category().name(), "libportbay");
    EXPECT_EQ(&device_category(), &device_category());
    EXPECT_NE(device_category(), std::generic_category());
}

TEST(DeviceError, CodesBelongToTheCategory) {
    std::error_code const code = errc::success;
    EXPECT_EQ(code.category(), device_category());
    EXPECT_FALSE(code);
    EXPECT_TRUE(std::error_code(5, device_category()));
}

} // namespace
