#include "doctor/run_tool.hpp"

#include "launcher/windows_places.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <gtest/gtest.h>

namespace {

TEST(run_tool, says_that_the_tool_is_missing) {
    tests::temporary_folder const folder;
    auto const run = doctor::run_tool(folder.path());
    EXPECT_TRUE(run.fault.starts_with("CreateProcess: ")) << run.fault;
    EXPECT_FALSE(run.has_started);
}

TEST(run_tool, names_a_file_that_is_no_program) {
    tests::temporary_folder const folder;
    folder.write("qnrescue.exe", "text");
    auto const run = doctor::run_tool(folder.path());
    EXPECT_NE(std::string::npos, run.fault.find("qnrescue.exe")) << run.fault;
}

TEST(run_tool, ends_a_tool_that_takes_too_long) {
    // It lists devices for three seconds. Wine may hang when it ends a process that begins.
    auto const run =
        doctor::run_tool(launcher::program_place().folder, std::chrono::milliseconds(1500));
    EXPECT_EQ("was still running after 1500 ms", run.fault);
}

} // namespace
