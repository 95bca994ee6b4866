#include "support/file/errc.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace {

using QN::file::errc;

TEST(file_errc, has_a_name_and_texts) {
    auto const & category = QN::file::file_category();
    EXPECT_STREQ(category.name(), "QN::file");
    EXPECT_EQ(category.message(0), "Success");
    EXPECT_EQ(category.message(1), "File is too large to fit into the buffer");
    EXPECT_EQ(category.message(2), "Could not allocate buffer for file");
    EXPECT_EQ(category.message(3), "Could not obtain file lock");
    EXPECT_EQ(category.message(4), "Unknown error 4");
    EXPECT_EQ(category.message(7), "Unknown error 7");
    EXPECT_EQ(category.message(-3), "Unknown error -3");
    EXPECT_EQ(category.message(std::numeric_limits<int>::min()), "Unknown error -2147483648");
}

TEST(file_errc, makes_error_codes) {
    auto const code = make_error_code(errc::too_large);
    EXPECT_EQ(code.value(), 1);
    EXPECT_EQ(code.category(), QN::file::file_category());
    EXPECT_EQ(boost::system::error_code(errc::out_of_memory).value(), 2);
    EXPECT_EQ(boost::system::error_code(errc::not_locked).message(), "Could not obtain file lock");
    EXPECT_FALSE(boost::system::error_code(errc::success).failed());
}

} // namespace
