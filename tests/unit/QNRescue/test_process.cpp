#include "QNRescue/process.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

namespace {

bool standard_error_waits_for_flush() {
    return (std::cerr.flags() & std::ios::unitbuf) == 0 && std::cerr.tie() == nullptr;
}

[[noreturn]] void prepare_and_end() {
    qnrescue::prepare_standard_streams();
    std::_Exit(standard_error_waits_for_flush() ? 0 : 1);
}

TEST(PrepareStandardStreams, LeavesTheMomentOfWritingToTheTool) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_FALSE(standard_error_waits_for_flush());
    EXPECT_EXIT(prepare_and_end(), testing::ExitedWithCode(0), "");
}

} // namespace
