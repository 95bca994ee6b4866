#include "support/file/native_file.hpp"
#include "support/file/read_exactly.hpp"
#include "support/file/readable_file.hpp"
#include "support/file/writable_file.hpp"
#include "tests/unit/helpers/file_fixture.hpp"
#include "tests/unit/helpers/other_process.hpp"

#include <boost/asio/buffer.hpp>
#include <boost/filesystem/operations.hpp>

#include <winternl.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string_view>
#include <thread>

namespace {

using namespace file_tests;
using boost::system::error_code;
using QN::path_to_utf8;
using QN::file::base;
using QN::file::ec_wrapper;
using QN::file::readable_file;
using QN::file::writable_file;

constexpr std::uint32_t limit = 1000;

struct way_to_open {
    char const * name;
    ACCESS_MASK access; // that the handle grants
    bool takes_existing;
    std::function<base(filesystem::path const &, error_code &)> open;
};

std::vector<way_to_open> const ways_to_open{
    {"read", FILE_GENERIC_READ, true,
     [](auto & path, auto & ec) { return readable_file(path, ec); }},
    {"append", FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, true,
     [](auto & path, auto & ec) { return writable_file::open_append(path, ec); }},
    {"clobber", FILE_GENERIC_WRITE | FILE_READ_ATTRIBUTES, true,
     [](auto & path, auto & ec) { return writable_file::open_clobber(path, ec); }},
    {"create_new", FILE_GENERIC_WRITE | FILE_READ_ATTRIBUTES, false,
     [](auto & path, auto & ec) { return writable_file::create_new(path, ec); }},
};

class file_on_windows : public file_test {
protected:
    // Runs the check once for each mode, with a file opened that way.
    void with_each_mode(std::function<void(way_to_open const &, base &)> const & check) {
        for (auto const & by : ways_to_open) {
            SCOPED_TRACE(by.name);
            filesystem::remove(path);
            if (by.takes_existing) {
                make_file(path, "content");
            }
            error_code ec;
            auto file = by.open(path, ec);
            ASSERT_FALSE(ec.failed()) << ec;
            check(by, file);
        }
    }

    error_code error_of(way_to_open const & by) {
        error_code ec;
        EXPECT_FALSE(by.open(path, ec).handle.is_open());
        return ec;
    }

    filesystem::path const path = folder / "file";
};

// The last error of an attempt to open the file once more; success where that works.
DWORD error_of_second_open(filesystem::path const & path, DWORD access, DWORD share) {
    auto const handle =
        CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    CloseHandle(handle);
    return ERROR_SUCCESS;
}

bool is_readable(filesystem::path const & path) {
    std::ifstream stream(std::filesystem::path(path.native()));
    return stream.get() != std::ifstream::traits_type::eof();
}

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

TEST_F(file_on_windows, lets_others_read) {
    with_each_mode([this](auto &, auto &) {
        EXPECT_EQ(error_of_second_open(path, GENERIC_READ, share_all), DWORD{ERROR_SUCCESS});
        other_process const reader(other_process::hold::reading, path.native());
    });
}

TEST_F(file_on_windows, lets_nobody_else_write) {
    with_each_mode([this](auto &, auto &) {
        for (DWORD const access : {DWORD{GENERIC_WRITE}, DWORD{FILE_APPEND_DATA}}) {
            EXPECT_EQ(error_of_second_open(path, access, share_all),
                      DWORD{ERROR_SHARING_VIOLATION});
        }
    });
}

TEST_F(file_on_windows, lets_others_delete) {
    with_each_mode([this](auto &, base & file) {
        EXPECT_TRUE(DeleteFileW(path.c_str())) << GetLastError();
        file.close();
        EXPECT_FALSE(filesystem::exists(path));
    });
}

TEST_F(file_on_windows, is_free_for_all_once_it_is_closed) {
    with_each_mode([this](auto &, base & file) {
        file.close();
        EXPECT_EQ(error_of_second_open(path, GENERIC_READ | GENERIC_WRITE, 0),
                  DWORD{ERROR_SUCCESS});
    });
}

TEST_F(file_on_windows, opens_what_another_process_reads) {
    make_file(path, "content");
    other_process const reader(other_process::hold::reading, path.native());
    EXPECT_EQ(readable_file(path).read_whole_file(limit).size(), 7U);
}

TEST_F(file_on_windows, refuses_what_another_process_writes_or_keeps_to_itself) {
    using enum other_process::hold;
    make_file(path, "content");
    for (auto const how : {writing, exclusively}) {
        other_process const holder(how, path.native());
        for (auto const & by : ways_to_open) {
            auto const expected = by.takes_existing ? ERROR_SHARING_VIOLATION : ERROR_FILE_EXISTS;
            EXPECT_EQ(error_of(by), system_error(expected)) << by.name;
        }
    }
    EXPECT_EQ(content_of(path), "content");
}

TEST_F(file_on_windows, reports_bytes_that_another_process_has_locked) {
    make_file(path, "content");
    other_process const holder(other_process::hold::locked, path.native());
    if (is_readable(path)) {
        GTEST_SKIP() << "locks do not bind readers here";
    }
    error_code ec;
    readable_file file(path);
    file.read_whole_file(limit, ec);
    EXPECT_EQ(ec, system_error(ERROR_LOCK_VIOLATION));
}

TEST_F(file_on_windows, asks_for_no_more_access_than_it_needs) {
    using query = NTSTATUS(NTAPI *)(HANDLE, OBJECT_INFORMATION_CLASS, void *, ULONG, ULONG *);
    auto const function = reinterpret_cast<query>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
    ASSERT_NE(function, nullptr);
    with_each_mode([&](way_to_open const & by, base & file) {
        PUBLIC_OBJECT_BASIC_INFORMATION info{};
        EXPECT_EQ(function(file.handle.native_handle(), ObjectBasicInformation, &info, sizeof info,
                           nullptr),
                  0);
        EXPECT_EQ(info.GrantedAccess, by.access);
    });
}

TEST_F(file_on_windows, hands_on_no_handle_to_other_programs) {
    with_each_mode([](auto &, base & file) {
        DWORD flags = 0;
        EXPECT_TRUE(GetHandleInformation(file.handle.native_handle(), &flags)) << GetLastError();
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0U);
    });
}

TEST_F(file_on_windows, opens_for_overlapped_and_sequential_reading) {
    using query = NTSTATUS(NTAPI *)(HANDLE, IO_STATUS_BLOCK *, void *, ULONG, int);
    auto const function = reinterpret_cast<query>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationFile")));
    ASSERT_NE(function, nullptr);
    constexpr int mode_information = 16;
    constexpr ULONG sequential_only = 0x04;
    constexpr ULONG synchronous = 0x10 | 0x20;
    with_each_mode([&](way_to_open const & by, base & file) {
        IO_STATUS_BLOCK status{};
        ULONG flags = 0;
        EXPECT_EQ(
            function(file.handle.native_handle(), &status, &flags, sizeof flags, mode_information),
            0);
        EXPECT_EQ(flags & synchronous, 0U);
        EXPECT_EQ(flags & sequential_only, by.access == FILE_GENERIC_READ ? sequential_only : 0);
    });
}

TEST_F(file_on_windows, advances_by_what_a_request_transfers) {
    make_file(path, "content");
    readable_file file(path);
    std::string buffer(100, '\0');
    error_code ec;
    EXPECT_EQ(file.handle.position(), 0U);
    EXPECT_EQ(file.handle.read_some(boost::asio::buffer(buffer.data(), 4), ec), 4U);
    EXPECT_EQ(file.handle.position(), 4U);
    EXPECT_EQ(file.handle.read_some(boost::asio::buffer(buffer), ec), 3U);
    EXPECT_EQ(file.handle.position(), 7U);
    EXPECT_EQ(buffer.substr(0, 3), "ent");
    file.handle.read_some(boost::asio::buffer(buffer), ec);
    EXPECT_TRUE(ec.failed());
    EXPECT_EQ(file.handle.position(), 7U);
}

// A pipe that keeps messages apart; what is read comes from the other end of it.
class message_pipe {
public:
    message_pipe() {
        auto const name = LR"(\\.\pipe\file_test.)" + std::to_wstring(GetCurrentProcessId());
        auto const reader =
            CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
                             PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1, 0, 1000000, 0, nullptr);
        writer = CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(writer, INVALID_HANDLE_VALUE) << GetLastError();
        file.assign(name, reader, ec_wrapper());
    }
    ~message_pipe() { CloseHandle(writer); }
    message_pipe(message_pipe const &) = delete;
    message_pipe & operator=(message_pipe const &) = delete;

    void write(std::string_view message) {
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(writer, message.data(), static_cast<DWORD>(message.size()), &written,
                              nullptr))
            << GetLastError();
        EXPECT_EQ(written, message.size());
    }

    readable_file file;

private:
    HANDLE writer;
};

TEST(message_in_a_pipe, is_read_on_after_a_request_that_was_too_short) {
    message_pipe pipe;
    pipe.write("content");
    std::string buffer(100, '\0');
    error_code ec;
    EXPECT_EQ(pipe.file.handle.read_some(boost::asio::buffer(buffer.data(), 4), ec), 4U);
    EXPECT_EQ(ec, system_error(ERROR_MORE_DATA));
    EXPECT_EQ(pipe.file.handle.position(), 4U);
    ec.clear();
    EXPECT_EQ(pipe.file.handle.read_some(boost::asio::buffer(buffer) + 4, ec), 3U);
    EXPECT_FALSE(ec.failed()) << ec;
    EXPECT_EQ(pipe.file.handle.position(), 7U);
    EXPECT_EQ(buffer.substr(0, 7), "content");
}

TEST(message_in_a_pipe, is_waited_for) {
    message_pipe pipe;
    std::thread later([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        pipe.write("content");
    });
    std::string buffer(100, '\0');
    error_code ec;
    EXPECT_EQ(pipe.file.handle.read_some(boost::asio::buffer(buffer), ec), 7U);
    EXPECT_FALSE(ec.failed()) << ec;
    later.join();
    EXPECT_EQ(buffer.substr(0, 7), "content");
}

// Its first request is too short for the whole message.
TEST(message_in_a_pipe, shows_how_much_is_asked_for_at_once) {
    message_pipe pipe;
    auto const content = pattern(70000);
    pipe.write(content);
    std::vector<std::uint8_t> bytes(content.size());
    error_code ec;
    QN::file::detail::read_exactly(pipe.file.handle, bytes, ec);
    EXPECT_EQ(ec, system_error(ERROR_MORE_DATA));
    EXPECT_EQ(pipe.file.handle.position(), 65536U);
    auto expected = content.substr(0, 65536);
    expected.resize(content.size());
    EXPECT_TRUE(std::string(bytes.begin(), bytes.end()) == expected);
}

TEST_F(file_on_windows, takes_a_null_handle_for_a_failure) {
    readable_file file;
    error_code ec;
    auto const null = [](filesystem::path const &, ec_wrapper) -> HANDLE { return nullptr; };
    file.open_and_assign(path, null, ec_wrapper(ec));
    EXPECT_FALSE(ec.failed()) << "to report it is up to what opens";
    EXPECT_FALSE(file.handle.is_open());
    EXPECT_TRUE(file.path.empty());
    EXPECT_FALSE(QN::file::detail::is_valid(nullptr));
    EXPECT_FALSE(QN::file::detail::is_valid(INVALID_HANDLE_VALUE));
}

TEST_F(file_on_windows, closes_a_handle_that_is_not_for_overlapped_use) {
    make_file(path, "content");
    auto const handle =
        CreateFileW(path.c_str(), GENERIC_READ, share_all, nullptr, OPEN_EXISTING, 0, nullptr);
    readable_file file;
    error_code ec;
    file.assign(path, handle, ec_wrapper(ec));
    EXPECT_TRUE(ec.failed());
    EXPECT_FALSE(file.handle.is_open());
    EXPECT_FALSE(is_open_handle(handle));
}

TEST_F(file_on_windows, refuses_a_folder) {
    auto const access_denied = system_error(ERROR_ACCESS_DENIED);
    filesystem::create_directory(path);
    for (auto const & by : ways_to_open) {
        auto const code = error_of(by);
        EXPECT_EQ(code, by.takes_existing ? access_denied : system_error(ERROR_FILE_EXISTS))
            << by.name;
    }
    EXPECT_TRUE(filesystem::is_directory(path));
}

class read_only_file : public file_on_windows {
protected:
    read_only_file() {
        make_file(path, "content");
        EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
    }

    ~read_only_file() override { SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL); }
};

TEST_F(read_only_file, is_read) {
    EXPECT_EQ(readable_file(path).read_whole_file(limit).size(), 7U);
}

TEST_F(read_only_file, is_not_written) {
    if (error_of_second_open(path, GENERIC_WRITE, share_all) == ERROR_SUCCESS) {
        GTEST_SKIP() << "this user may write to files that are read-only";
    }
    for (auto const & by : ways_to_open) {
        if (by.access != FILE_GENERIC_READ) {
            auto const expected = by.takes_existing ? ERROR_ACCESS_DENIED : ERROR_FILE_EXISTS;
            EXPECT_EQ(error_of(by), system_error(expected)) << by.name;
        }
    }
    EXPECT_EQ(content_of(path), "content");
}

class file_with_long_path : public file_test {
protected:
    static filesystem::path made_in(filesystem::path folder) {
        for (int i = 0; i < 4; ++i) {
            folder /= std::wstring(100, L'ö');
            CreateDirectoryW((LR"(\\?\)" + folder.native()).c_str(), nullptr);
        }
        return folder;
    }

    filesystem::path const deep = made_in(folder);
    filesystem::path const path = deep / "file";
};

TEST_F(file_with_long_path, is_created_appended_to_and_read) {
    ASSERT_GT(path.size(), 400U);
    writable_file::create_new(path).write("content");
    writable_file::open_append(path).write(", more");
    EXPECT_EQ(readable_file(path).path, path);
    EXPECT_EQ(readable_file(path).read_whole_file(limit).size(), 13U);
    writable_file::open_clobber(path);
    EXPECT_EQ(readable_file(path).get_total_size(), 0U);
    EXPECT_NE(GetFileAttributesW((LR"(\\?\)" + path.native()).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(file_with_long_path, is_named_in_messages_as_given) {
    try {
        readable_file file(path);
        FAIL() << "nothing thrown";
    } catch (boost::system::system_error const & error) {
        auto const code = system_error(ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(error.code(), code);
        EXPECT_EQ(error.what(),
                  text_of("when opening file '" + path_to_utf8(path) + "' for reading", code));
    }
}

class current_directory {
public:
    explicit current_directory(filesystem::path const & path) { filesystem::current_path(path); }
    ~current_directory() {
        error_code ignored;
        filesystem::current_path(before, ignored);
    }
    current_directory(current_directory const &) = delete;
    current_directory & operator=(current_directory const &) = delete;

private:
    filesystem::path const before = filesystem::current_path();
};

TEST_F(file_with_long_path, is_found_from_the_current_directory) {
    current_directory const here(folder);
    writable_file::create_new(path).write("content");
    auto const relative =
        filesystem::path(L"./" + deep.native().substr(folder.size() + 1) + L"/file");
    EXPECT_EQ(readable_file(relative).read_whole_file(limit).size(), 7U);
}

} // namespace
