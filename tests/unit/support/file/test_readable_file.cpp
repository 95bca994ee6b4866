#include "support/file/errc.hpp"
#include "support/file/read_exactly.hpp"
#include "support/file/readable_file.hpp"
#include "tests/unit/helpers/allocation_hook.hpp"
#include "tests/unit/helpers/file_fixture.hpp"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/filesystem/operations.hpp>
#include <fmt/format.h>

#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using namespace file_tests;
using boost::system::error_code;
using QN::path_to_utf8;
using QN::file::ec_wrapper;
using QN::file::errc;
using QN::file::readable_file;

constexpr std::uint32_t no_limit = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t no_size = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t gibibyte = 0x40000000;

class file_reading : public file_test {
protected:
    filesystem::path const path = folder / "file";
};

void expect_thrown(std::function<void()> const & call, error_code const & code,
                   std::string const & context) {
    try {
        call();
        ADD_FAILURE() << "nothing thrown";
    } catch (boost::system::system_error const & error) {
        EXPECT_EQ(error.code(), code);
        EXPECT_EQ(error.what(), text_of(context, code));
    }
}

TEST_F(file_reading, opens_an_existing_file) {
    make_file(path, "content");
    readable_file file(path);
    EXPECT_TRUE(file.handle.is_open());
    EXPECT_EQ(file.path, path);
    EXPECT_EQ(file.get_total_size(), 7U);
    EXPECT_EQ(as_text(file.read_whole_file(no_limit)), "content");
}

TEST_F(file_reading, succeeds_with_an_error_code_that_was_set_before) {
    make_file(path, "content");
    error_code ec = errc::too_large;
    readable_file file(path, ec);
    EXPECT_FALSE(ec.failed());
    ec = errc::too_large;
    EXPECT_EQ(file.get_total_size(ec), 7U);
    EXPECT_FALSE(ec.failed());
    ec = errc::too_large;
    EXPECT_EQ(as_text(file.read_whole_file(no_limit, ec)), "content");
    EXPECT_FALSE(ec.failed());
}

TEST_F(file_reading, is_unopened_by_default) {
    readable_file file;
    EXPECT_FALSE(file.handle.is_open());
    EXPECT_TRUE(file.path.empty());
}

TEST_F(file_reading, refuses_a_missing_file) {
    auto const context = "when opening file '" + path_to_utf8(path) + "' for reading";
    expect_thrown([&] { readable_file file(path); }, system_error(file_not_found), context);

    error_code ec;
    readable_file file(path, ec);
    EXPECT_EQ(ec, system_error(file_not_found));
    EXPECT_FALSE(file.handle.is_open());
    EXPECT_TRUE(file.path.empty());
    EXPECT_FALSE(filesystem::exists(path));
}

TEST_F(file_reading, refuses_a_missing_folder) {
    error_code ec;
    readable_file const file(folder / "missing" / "file", ec);
    EXPECT_EQ(ec, system_error(path_not_found));
}

TEST_F(file_reading, reads_an_empty_file) {
    make_file(path, "");
    for (std::uint32_t const max : {0U, 1U, no_limit}) {
        error_code ec;
        readable_file file(path);
        EXPECT_TRUE(file.read_whole_file(max, ec).empty());
        EXPECT_FALSE(ec.failed());
    }
}

TEST_F(file_reading, reads_in_order_what_takes_many_requests) {
    for (std::size_t const size : {1U, 65535U, 65536U, 65537U, 131072U, 1000001U}) {
        auto const content = pattern(size);
        make_file(path, content);
        readable_file file(path);
        EXPECT_TRUE(as_text(file.read_whole_file(no_limit)) == content) << size;
    }
}

TEST_F(file_reading, accepts_a_file_of_exactly_the_limit) {
    make_file(path, pattern(70000));
    readable_file file(path);
    EXPECT_EQ(file.read_whole_file(70000).size(), 70000U);
}

TEST_F(file_reading, refuses_one_byte_more_than_the_limit) {
    make_file(path, pattern(70001));
    readable_file file(path);
    expect_thrown([&] { file.read_whole_file(70000); }, errc::too_large,
                  fmt::format("'{}' is 70001 bytes (max size is 70000 bytes)", path_to_utf8(path)));

    error_code ec;
    EXPECT_TRUE(file.read_whole_file(70000, ec).empty());
    EXPECT_EQ(ec, errc::too_large);

    // Nothing has been read yet.
    EXPECT_EQ(as_text(file.read_whole_file(70001)), pattern(70001));
}

// That a file is accepted shows in the attempt to allocate memory for it.
TEST_F(file_reading, accepts_a_gibibyte_but_no_byte_more) {
    error_code ec;
    make_sparse_file(path, gibibyte);
    allocation_hook const hook(gibibyte, [] { throw std::bad_alloc(); });
    readable_file(path).read_whole_file(gibibyte, ec);
    EXPECT_EQ(ec, errc::out_of_memory);
    EXPECT_TRUE(hook.has_run());

    make_sparse_file(path, gibibyte + 1);
    readable_file file(path);
    expect_thrown(
        [&] { file.read_whole_file(gibibyte); }, errc::too_large,
        fmt::format("'{}' is 1073741825 bytes (max size is 1073741824 bytes)", path_to_utf8(path)));
    file.read_whole_file(gibibyte, ec);
    EXPECT_EQ(ec, errc::too_large);
}

TEST_F(file_reading, compares_sizes_that_need_more_than_32_bits) {
    constexpr auto size = 4 * gibibyte + 5;
    make_sparse_file(path, size);
    readable_file file(path);
    EXPECT_EQ(file.get_total_size(), size);
    for (std::uint32_t const max : {0U, 5U, 100U, no_limit}) {
        allocation_hook const hook(size, [] { ADD_FAILURE() << "memory for the whole file"; });
        error_code ec;
        EXPECT_TRUE(file.read_whole_file(max, ec).empty());
        EXPECT_EQ(ec, errc::too_large);
    }
    expect_thrown(
        [&] { file.read_whole_file(no_limit); }, errc::too_large,
        fmt::format("'{}' is 4294967301 bytes (max size is 4294967295 bytes)", path_to_utf8(path)));
}

TEST_F(file_reading, reports_that_there_is_no_memory) {
    make_file(path, pattern(70000));
    readable_file file(path);
    struct row {
        std::string reason;
        std::function<void()> fail;
    };
    std::vector<row> const rows{
        {std::bad_alloc().what(), [] { throw std::bad_alloc(); }},
        {"too long", [] { throw std::length_error("too long"); }},
    };
    for (auto const & [reason, fail] : rows) {
        {
            allocation_hook const hook(70000, fail);
            expect_thrown([&] { file.read_whole_file(no_limit); }, errc::out_of_memory,
                          "while allocating 70000 bytes for '" + path_to_utf8(path) +
                              "': " + reason);
        }
        allocation_hook const hook(70000, fail);
        error_code ec;
        EXPECT_TRUE(file.read_whole_file(no_limit, ec).empty());
        EXPECT_EQ(ec, errc::out_of_memory);
    }
}

// The one moment between the size query and the first read is that of the allocation.
TEST_F(file_reading, reports_the_end_of_a_file_that_shrinks) {
    auto const content = pattern(200000);
    for (bool const throwing : {false, true}) {
        make_file(path, content);
        readable_file file;
        file.assign(path, open_shared(path), ec_wrapper());
        allocation_hook const hook(content.size(), [&] { truncate_file(path, 70000); });
        if (throwing) {
            expect_thrown([&] { file.read_whole_file(no_limit); }, boost::asio::error::eof, "read");
        } else {
            error_code ec;
            auto const bytes = file.read_whole_file(no_limit, ec);
            EXPECT_EQ(ec, boost::asio::error::eof);
            auto expected = content.substr(0, 70000);
            expected.resize(content.size());
            EXPECT_TRUE(as_text(bytes) == expected);
        }
        EXPECT_TRUE(hook.has_run());
    }
}

TEST_F(file_reading, reads_on_where_it_has_come_to) {
    make_file(path, "content");
    readable_file file(path);
    file.read_whole_file(no_limit);
    error_code ec;
    EXPECT_EQ(as_text(file.read_whole_file(no_limit, ec)), std::string(7, '\0'));
    EXPECT_EQ(ec, boost::asio::error::eof);
}

TEST_F(file_reading, reports_a_failing_size_query) {
    readable_file file;
    expect_thrown([&] { file.get_total_size(); }, system_error(invalid_handle),
                  "when getting size of file ''");
    expect_thrown([&] { file.read_whole_file(no_limit); }, system_error(invalid_handle),
                  "when getting size of file ''");

    error_code ec;
    EXPECT_EQ(file.get_total_size(ec), no_size);
    EXPECT_EQ(ec, system_error(invalid_handle));
    ec.clear();
    EXPECT_TRUE(file.read_whole_file(no_limit, ec).empty());
    EXPECT_EQ(ec, system_error(invalid_handle));
}

TEST_F(file_reading, names_the_file_whose_size_is_not_to_be_had) {
    make_file(path, "content");
    readable_file file(path);
    close_handle(file.handle.native_handle());
    expect_thrown([&] { file.get_total_size(); }, system_error(invalid_handle),
                  "when getting size of file '" + path_to_utf8(path) + "'");
    error_code ignored;
    file.close(ignored);
}

TEST_F(file_reading, reports_a_failing_read) {
    make_file(path, "content");
    readable_file file;
    file.assign(path, open_unreadable(path), ec_wrapper());
    expect_thrown([&] { file.read_whole_file(no_limit); }, system_error(refused_by_access), "read");

    error_code ec;
    EXPECT_EQ(as_text(file.read_whole_file(no_limit, ec)), std::string(7, '\0'));
    EXPECT_EQ(ec, system_error(refused_by_access));
}

TEST_F(file_reading, finds_files_by_any_letters) {
    auto const named = folder / QN::path_from_utf8("Gerät 日本 \xF0\x9F\x93\xB1.plist");
    auto const context = "when opening file '" + path_to_utf8(folder) +
                         std::string(1, filesystem::path::preferred_separator) +
                         "Gerät 日本 \xF0\x9F\x93\xB1.plist' for reading";
    expect_thrown([&] { readable_file file(named); }, system_error(file_not_found), context);
    make_file(named, "content");
    EXPECT_EQ(as_text(readable_file(named).read_whole_file(7)), "content");
}

} // namespace
