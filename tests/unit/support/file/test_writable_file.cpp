#include "support/file/writable_file.hpp"
#include "tests/unit/helpers/file_fixture.hpp"

#include <boost/filesystem/operations.hpp>

#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#endif

namespace {

using namespace file_tests;
using boost::system::error_code;
using QN::path_to_utf8;
using QN::file::ec_wrapper;
using QN::file::writable_file;

struct mode {
    char const * name;
    writable_file (*open)(filesystem::path const &);
    writable_file (*open_with_code)(filesystem::path const &, error_code &);
    std::string before;
    std::string after;
};

std::vector<mode> const modes{
    {"append", writable_file::open_append, writable_file::open_append, "when opening file '",
     "' for appending"},
    {"clobber", writable_file::open_clobber, writable_file::open_clobber, "when clobbering file '",
     "' for writing"},
    {"create_new", writable_file::create_new, writable_file::create_new, "when creating new file '",
     "' for writing"},
};

class file_writing : public file_test {
protected:
    void expect_refused(mode const & by, filesystem::path const & file, int number) {
        SCOPED_TRACE(by.name);
        auto const code = system_error(number);
        try {
            by.open(file);
            ADD_FAILURE() << "nothing thrown";
        } catch (boost::system::system_error const & error) {
            EXPECT_EQ(error.code(), code);
            EXPECT_EQ(error.what(), text_of(by.before + path_to_utf8(file) + by.after, code));
        }
        error_code ec;
        auto const opened = by.open_with_code(file, ec);
        EXPECT_EQ(ec, code);
        EXPECT_FALSE(opened.handle.is_open());
        EXPECT_TRUE(opened.path.empty());
    }

    filesystem::path const path = folder / "file";
};

TEST_F(file_writing, makes_a_missing_file) {
    for (auto const & by : modes) {
        SCOPED_TRACE(by.name);
        auto const file = folder / by.name;
        by.open(file).write("content");
        EXPECT_EQ(content_of(file), "content");

        filesystem::remove(file);
        error_code ec = system_error(file_exists);
        auto opened = by.open_with_code(file, ec);
        EXPECT_FALSE(ec.failed());
        EXPECT_EQ(opened.path, file);
        opened.write("content", ec);
        EXPECT_FALSE(ec.failed());
        opened.close();
        EXPECT_EQ(content_of(file), "content");
    }
}

TEST_F(file_writing, makes_no_folder) {
    for (auto const & by : modes) {
        expect_refused(by, folder / "missing" / "file", path_not_found);
    }
    EXPECT_FALSE(filesystem::exists(folder / "missing"));
}

TEST_F(file_writing, refuses_to_create_an_existing_file) {
    make_file(path, "content");
    expect_refused(modes[2], path, file_exists);
    EXPECT_EQ(content_of(path), "content");
}

TEST_F(file_writing, appends_at_the_end) {
    make_file(path, "content");
    {
        auto file = writable_file::open_append(path);
        file.write(", more");
        file.write(", and more");
    }
    writable_file::open_append(path).write(".");
    EXPECT_EQ(content_of(path), "content, more, and more.");
}

TEST_F(file_writing, clobbers_what_was_there) {
    make_file(path, "content");
    auto file = writable_file::open_clobber(path);
    EXPECT_EQ(filesystem::file_size(path), 0U);
    file.write("new");
    file.close();
    EXPECT_EQ(content_of(path), "new");
}

TEST_F(file_writing, writes_all_bytes_as_they_are) {
    auto content = pattern(300001);
    content[1] = '\n';
    auto file = writable_file::create_new(path);
    file.write(std::string_view(content).substr(0, 200000));
    file.write("");
    file.write(std::string_view(content).substr(200000));
    file.close();
    EXPECT_TRUE(content_of(path) == content);
}

#ifndef _WIN32

// Files of this process get no longer than this, in bytes, as long as it lives.
class file_size_limit {
public:
    explicit file_size_limit(rlim_t size) {
        getrlimit(RLIMIT_FSIZE, &former);
        rlimit const limit{size, former.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~file_size_limit() {
        setrlimit(RLIMIT_FSIZE, &former);
        std::signal(SIGXFSZ, former_handler);
    }
    file_size_limit(file_size_limit const &) = delete;
    file_size_limit & operator=(file_size_limit const &) = delete;

private:
    rlimit former{};
    void (*const former_handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

TEST_F(file_writing, goes_on_after_part_of_a_request) {
    auto const content = pattern(3000);
    auto file = writable_file::create_new(path);
    error_code ec;
    {
        file_size_limit const limit(1000);
        file.write(content, ec);
    }
    EXPECT_EQ(ec, system_error(EFBIG));
    EXPECT_EQ(content_of(path), content.substr(0, 1000));
}

#endif

TEST_F(file_writing, reports_a_failing_write) {
    make_file(path, "content");
    writable_file file;
    file.assign(path, open_shared(path), ec_wrapper());
    try {
        file.write("new");
        FAIL() << "nothing thrown";
    } catch (boost::system::system_error const & error) {
        EXPECT_EQ(error.code(), system_error(refused_by_access));
        EXPECT_EQ(error.what(), text_of("write", system_error(refused_by_access)));
    }
    error_code ec;
    file.write("new", ec);
    EXPECT_EQ(ec, system_error(refused_by_access));
    file.close();
    EXPECT_EQ(content_of(path), "content");
}

} // namespace
