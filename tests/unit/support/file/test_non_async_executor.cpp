#include "support/file/non_async_executor.hpp"

#include "support/file/readable_file.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

namespace {

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
