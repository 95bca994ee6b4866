#pragma once

#include "support/file/fd_type.hpp"
#include "support/filesystem.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/system/error_code.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What the tests of files need of the system, by means other than those under test.
namespace file_tests {

namespace filesystem = QN::filesystem;

// Gives each test a folder, which is removed with all that is in it.
class file_test : public testing::Test {
    tests::temporary_folder const temporary;

protected:
    filesystem::path const & folder = temporary.path();
};

std::string as_text(std::vector<std::uint8_t> const & bytes);

std::string content_of(filesystem::path const & path);
void make_file(filesystem::path const & path, std::string_view content);

// All zero bytes, without taking space on the disk.
void make_sparse_file(filesystem::path const & path, std::uint64_t size);

void truncate_file(filesystem::path const & path, std::uint64_t size);

// Opens without any restriction on others, for reading or for what does not include reading.
QN::file::native_handle open_shared(filesystem::path const & path);
QN::file::native_handle open_unreadable(filesystem::path const & path);

// Closes a handle behind its owner's back.
void close_handle(QN::file::native_handle handle);
bool is_open_handle(QN::file::native_handle handle);
// Whether processes that are started get the handle as well.
bool is_inherited(QN::file::native_handle handle);

// Bytes without a short period.
std::string pattern(std::size_t size);

// Returns the text of an exception: the context, and the code's own text and name.
std::string text_of(std::string const & context, boost::system::error_code const & code);

// Numbers of the system's errors.
#ifdef _WIN32
constexpr int file_not_found = 2;
constexpr int path_not_found = 3;
constexpr int file_exists = 80;
constexpr int invalid_handle = 6;
constexpr int refused_by_access = 5;
constexpr int folder_as_file = 5;
#else
constexpr int file_not_found = 2;
constexpr int path_not_found = 2;
constexpr int file_exists = 17;
constexpr int invalid_handle = 9;
constexpr int refused_by_access = 9;
constexpr int folder_as_file = 21;
#endif

boost::system::error_code system_error(int number);

} // namespace file_tests
