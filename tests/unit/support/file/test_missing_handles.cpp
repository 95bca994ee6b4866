// What files ask of the system, and what they make of an invalid handle. The create_file of
// this program takes the place of the library's.
#include "support/file/create_file.hpp"
#include "support/file/readable_file.hpp"
#include "support/file/writable_file.hpp"
#include "tests/unit/helpers/file_fixture.hpp"

#include <vector>

namespace {

using namespace file_tests;
using boost::system::error_code;
using QN::file::base;
using QN::file::readable_file;
using QN::file::writable_file;

struct request {
    DWORD access;
    DWORD share;
    DWORD disposition;
    DWORD flags;
    bool operator==(request const &) const = default;
};

request requested;
HANDLE answer;

constexpr auto name = L"folder/file";
constexpr DWORD others_read_and_delete = FILE_SHARE_READ | FILE_SHARE_DELETE;

} // namespace

HANDLE QN::file::detail::create_file(wchar_t const * opened, DWORD access, DWORD share,
                                     DWORD disposition, DWORD flags) {
    EXPECT_STREQ(opened, name);
    requested = {access, share, disposition, flags};
    SetLastError(ERROR_SHARING_VIOLATION);
    return answer;
}

namespace {

struct mode {
    char const * context;
    request expected;
    base (*open)(filesystem::path const &);
    base (*open_with_code)(filesystem::path const &, error_code &);
};

std::vector<mode> const modes{
    {"when opening file 'folder/file' for reading",
     {GENERIC_READ, others_read_and_delete, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN},
     [](auto & path) -> base { return readable_file(path); },
     [](auto & path, auto & ec) -> base { return readable_file(path, ec); }},
    {"when opening file 'folder/file' for appending",
     {FILE_APPEND_DATA, others_read_and_delete, OPEN_ALWAYS, 0},
     [](auto & path) -> base { return writable_file::open_append(path); },
     [](auto & path, auto & ec) -> base { return writable_file::open_append(path, ec); }},
    {"when clobbering file 'folder/file' for writing",
     {GENERIC_WRITE, others_read_and_delete, CREATE_ALWAYS, 0},
     [](auto & path) -> base { return writable_file::open_clobber(path); },
     [](auto & path, auto & ec) -> base { return writable_file::open_clobber(path, ec); }},
    {"when creating new file 'folder/file' for writing",
     {GENERIC_WRITE, others_read_and_delete, CREATE_NEW, 0},
     [](auto & path) -> base { return writable_file::create_new(path); },
     [](auto & path, auto & ec) -> base { return writable_file::create_new(path, ec); }},
};

class missing_handle : public testing::TestWithParam<HANDLE> {
protected:
    missing_handle() { answer = GetParam(); }

    error_code const code = system_error(ERROR_SHARING_VIOLATION);
};

TEST_P(missing_handle, is_a_failure_that_is_thrown) {
    for (auto const & by : modes) {
        try {
            by.open(name);
            ADD_FAILURE() << "nothing thrown " << by.context;
        } catch (boost::system::system_error const & error) {
            EXPECT_EQ(error.code(), code);
            EXPECT_EQ(error.what(), text_of(by.context, code));
        }
        EXPECT_EQ(requested, by.expected) << by.context;
    }
}

TEST_P(missing_handle, is_a_failure_that_is_stored) {
    for (auto const & by : modes) {
        error_code ec;
        auto const file = by.open_with_code(name, ec);
        EXPECT_EQ(ec, code) << by.context;
        EXPECT_FALSE(file.handle.is_open()) << by.context;
        EXPECT_TRUE(file.path.empty()) << by.context;
        EXPECT_EQ(requested, by.expected) << by.context;
    }
}

INSTANTIATE_TEST_SUITE_P(all, missing_handle, testing::Values(nullptr, INVALID_HANDLE_VALUE));

} // namespace
