#include "support/file/ec_wrapper.hpp"
#include "support/file/errc.hpp"
#include "support/file/non_async_executor.hpp"
#include "support/file/readable_file.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

using QN::asio_helpers::ec_wrapper;
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

TEST(non_async_executor, has_one_context_for_all_threads) {
    std::vector<boost::asio::io_context *> seen(8);
    std::vector<std::thread> threads;
    for (auto & entry : seen) {
        threads.emplace_back([&entry] { entry = &QN::non_async_executor::context(); });
    }
    for (auto & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(seen, std::vector(seen.size(), &QN::non_async_executor::context()));
}

// Run where nothing has asked for the context before.
[[noreturn]] void end_with_a_file() {
    std::atexit([] {
        boost::system::error_code ec;
        QN::file::readable_file const file("no such file", ec);
        std::_Exit(ec.failed() ? 0 : 1);
    });
    QN::non_async_executor::context();
    std::exit(2);
}

TEST(non_async_executor, outlives_what_uses_files_as_the_process_ends) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(end_with_a_file(), testing::ExitedWithCode(0), "");
}

} // namespace
