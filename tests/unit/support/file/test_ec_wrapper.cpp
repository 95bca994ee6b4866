#include "support/file/ec_wrapper.hpp"

#include "support/file/errc.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using QN::asio_helpers::ec_wrapper;
using QN::file::errc;

TEST(ec_wrapper, stores_the_error_and_discards_the_context) {
    boost::system::error_code code;
    ec_wrapper const wrapper(code);
    wrapper.report(errc::too_large, []() -> std::string {
        ADD_FAILURE() << "nobody reads this context";
        return {};
    });
    EXPECT_EQ(code, errc::too_large);
}

TEST(ec_wrapper, clears_what_an_earlier_call_has_left) {
    boost::system::error_code code = errc::too_large;
    ec_wrapper const wrapper(code);
    EXPECT_FALSE(code.failed());
}

TEST(ec_wrapper, throws_where_there_is_no_error_code) {
    try {
        ec_wrapper().report(errc::too_large, [] { return "when testing"; });
        FAIL() << "nothing thrown";
    } catch (boost::system::system_error const & error) {
        EXPECT_EQ(error.code(), errc::too_large);
        EXPECT_STREQ(error.what(),
                     "when testing: File is too large to fit into the buffer [QN::file:1]");
    }
}

} // namespace
