// Opening, moving and closing files of both kinds.
#include "support/file/readable_file.hpp"
#include "support/file/writable_file.hpp"
#include "tests/unit/helpers/allocation_hook.hpp"
#include "tests/unit/helpers/file_fixture.hpp"

#include <boost/asio/error.hpp>

#include <new>
#include <utility>

namespace {

using namespace file_tests;
using boost::system::error_code;
using QN::file::ec_wrapper;
using QN::file::native_handle;
using QN::file::readable_file;
using QN::file::writable_file;

class file_opening : public file_test {
protected:
    file_opening() { make_file(path, "content"); }

    filesystem::path const path = folder / "file";
};

TEST_F(file_opening, leaves_a_file_without_handle_unopened) {
    readable_file file;
    error_code ec;
    auto const failing = [](filesystem::path const &, ec_wrapper wrapper) {
        wrapper.report(system_error(file_not_found), [] { return "when testing"; });
        return native_handle(QN::file::fd_type(QN::non_async_executor()).native_handle());
    };
    file.open_and_assign(path, failing, ec_wrapper(ec));
    EXPECT_EQ(ec, system_error(file_not_found));
    EXPECT_FALSE(file.handle.is_open());
    EXPECT_TRUE(file.path.empty());
    EXPECT_THROW(file.open_and_assign(path, failing, ec_wrapper()), boost::system::system_error);
    EXPECT_FALSE(file.handle.is_open());
}

// A failure after opening could leave the handle behind.
TEST_F(file_opening, opens_nothing_without_memory_for_the_path) {
    static bool opened;
    opened = false;
    auto const note = [](filesystem::path const & file, ec_wrapper) {
        opened = true;
        return open_shared(file);
    };
    auto const copy = path.native();
    readable_file file;
    allocation_hook const hook((copy.capacity() + 1) * sizeof copy.front(),
                               [] { throw std::bad_alloc(); });
    EXPECT_THROW(file.open_and_assign(path, note, ec_wrapper()), std::bad_alloc);
    EXPECT_TRUE(hook.has_run());
    EXPECT_FALSE(opened);
}

TEST_F(file_opening, keeps_its_handle_to_this_process) {
    EXPECT_FALSE(is_inherited(readable_file(path).handle.native_handle()));
    EXPECT_FALSE(is_inherited(writable_file::open_append(path).handle.native_handle()));
}

TEST_F(file_opening, takes_over_an_open_handle) {
    auto const handle = open_shared(path);
    {
        readable_file file;
        error_code ec;
        file.assign(path, handle, ec_wrapper(ec));
        EXPECT_FALSE(ec.failed());
        EXPECT_EQ(file.path, path);
        EXPECT_EQ(file.handle.native_handle(), handle);
        EXPECT_TRUE(is_open_handle(handle));
    }
    EXPECT_FALSE(is_open_handle(handle));
}

TEST_F(file_opening, closes_a_handle_that_cannot_be_taken_over) {
    readable_file file(path);
    auto const first = file.handle.native_handle();
    for (bool const throwing : {false, true}) {
        auto const second = open_shared(path);
        if (throwing) {
            EXPECT_THROW(file.assign("other", second, ec_wrapper()), boost::system::system_error);
        } else {
            error_code ec;
            file.assign("other", second, ec_wrapper(ec));
            EXPECT_EQ(ec, boost::asio::error::already_open);
        }
        EXPECT_FALSE(is_open_handle(second));
    }
    EXPECT_EQ(file.path, path);
    EXPECT_EQ(file.handle.native_handle(), first);
    EXPECT_TRUE(is_open_handle(first));
}

template <typename File>
void expect_closes(File file) {
    auto const handle = file.handle.native_handle();
    EXPECT_TRUE(is_open_handle(handle));
    file.close();
    EXPECT_FALSE(file.handle.is_open());
    EXPECT_FALSE(is_open_handle(handle));
    file.close();
    error_code ec = boost::asio::error::eof;
    file.close(ec);
    EXPECT_FALSE(ec.failed());
}

TEST_F(file_opening, closes_once_and_for_all) {
    expect_closes(readable_file(path));
    expect_closes(writable_file::open_append(path));
}

TEST_F(file_opening, is_closed_even_where_closing_fails) {
    readable_file file(path);
    close_handle(file.handle.native_handle());
    try {
        file.close();
        FAIL() << "nothing thrown";
    } catch (boost::system::system_error const & error) {
        EXPECT_EQ(error.code(), system_error(invalid_handle));
        EXPECT_EQ(error.what(), text_of("close", system_error(invalid_handle)));
    }
    EXPECT_FALSE(file.handle.is_open());

    readable_file other(path);
    close_handle(other.handle.native_handle());
    error_code ec;
    other.close(ec);
    EXPECT_EQ(ec, system_error(invalid_handle));
    EXPECT_FALSE(other.handle.is_open());
}

TEST_F(file_opening, starts_at_the_beginning_each_time) {
    readable_file file;
    for (int i = 0; i < 2; ++i) {
        file.assign(path, open_shared(path), ec_wrapper());
        EXPECT_EQ(file.read_whole_file(7),
                  std::vector<std::uint8_t>({'c', 'o', 'n', 't', 'e', 'n', 't'}));
        file.close();
    }
}

TEST_F(file_opening, closes_when_it_is_destroyed) {
    native_handle handle;
    {
        readable_file file(path);
        handle = file.handle.native_handle();
    }
    EXPECT_FALSE(is_open_handle(handle));
}

TEST_F(file_opening, moves_its_handle_along) {
    readable_file first(path);
    auto const handle = first.handle.native_handle();
    readable_file second(std::move(first));
    EXPECT_EQ(second.handle.native_handle(), handle);
    EXPECT_EQ(second.path, path);

    auto const other = folder / "other";
    make_file(other, "more content");
    readable_file third(other);
    auto const replaced = third.handle.native_handle();
    third = std::move(second);
    EXPECT_FALSE(is_open_handle(replaced));
    EXPECT_EQ(third.path, path);
    EXPECT_EQ(third.get_total_size(), 7U);
}

} // namespace
