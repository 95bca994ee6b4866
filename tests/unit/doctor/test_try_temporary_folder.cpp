#include "doctor/try_temporary_folder.hpp"

#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <string>

#ifndef _WIN32
#include <csignal>

#include <sys/resource.h>
#endif

namespace {

#ifdef _WIN32
constexpr auto variable = "TMP";
#else
constexpr auto variable = "TMPDIR";
#endif

class try_temporary_folder_test : public testing::Test {
protected:
    ~try_temporary_folder_test() override { tests::set_environment(variable, former); }

    tests::temporary_folder folder;
    std::string const former = tests::environment_variable(variable);
};

TEST_F(try_temporary_folder_test, leaves_nothing_behind) {
    auto const path = folder / "Grüße";
    QN::filesystem::create_directory(path);
    tests::set_environment(variable, QN::path_to_utf8(path));
    auto const result = doctor::try_temporary_folder();
    EXPECT_EQ("", result.fault);
    EXPECT_TRUE(equivalent(path, QN::path_from_utf8(result.path))) << result.path;
    EXPECT_TRUE(is_empty(path));
}

#ifndef _WIN32 // which then takes another folder
TEST_F(try_temporary_folder_test, says_that_it_is_no_folder) {
    tests::set_environment(variable, folder.write("file", ""));
    EXPECT_NE("", doctor::try_temporary_folder().fault);
}

TEST_F(try_temporary_folder_test, says_that_no_file_can_be_created) {
    tests::set_environment(variable, "/proc/self"); // closed to root, too
    auto const result = doctor::try_temporary_folder();
    EXPECT_EQ("/proc/self", result.path);
    EXPECT_NE("", result.fault);
}

TEST_F(try_temporary_folder_test, leaves_nothing_behind_where_nothing_fits) {
    tests::set_environment(variable, QN::path_to_utf8(folder.path()));
    auto * const former_action = std::signal(SIGXFSZ, SIG_IGN);
    rlimit former_size{};
    getrlimit(RLIMIT_FSIZE, &former_size);
    rlimit const nothing{0, former_size.rlim_max};
    setrlimit(RLIMIT_FSIZE, &nothing);
    auto const result = doctor::try_temporary_folder();
    setrlimit(RLIMIT_FSIZE, &former_size);
    std::signal(SIGXFSZ, former_action);
    EXPECT_EQ("it is full", result.fault);
    EXPECT_TRUE(is_empty(folder.path()));
}
#endif

} // namespace
