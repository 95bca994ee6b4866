#include "tests/unit/helpers/file_fixture.hpp"

#include <boost/filesystem/operations.hpp>
#include <boost/system/system_category.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>

#ifdef _WIN32
#include <windows.h>

#include <winioctl.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace file_tests {

namespace {

std::filesystem::path standard(filesystem::path const & path) {
    return path.native();
}

} // namespace

std::string as_text(std::vector<std::uint8_t> const & bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string content_of(filesystem::path const & path) {
    std::ifstream stream(standard(path), std::ios::binary);
    EXPECT_TRUE(stream.is_open());
    return {std::istreambuf_iterator<char>(stream), {}};
}

void make_file(filesystem::path const & path, std::string_view content) {
    std::ofstream stream(standard(path), std::ios::binary);
    stream.write(content.data(), static_cast<std::streamsize>(content.size()));
    stream.close();
    ASSERT_TRUE(stream.good());
}

#ifdef _WIN32

namespace {

HANDLE open(filesystem::path const & path, DWORD access, DWORD disposition) {
    constexpr auto share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    auto const handle = CreateFileW(path.c_str(), access, share, nullptr, disposition,
                                    FILE_FLAG_OVERLAPPED, nullptr);
    EXPECT_NE(handle, INVALID_HANDLE_VALUE) << GetLastError();
    return handle;
}

void set_end(HANDLE handle, std::uint64_t size) {
    LARGE_INTEGER end{};
    end.QuadPart = static_cast<LONGLONG>(size);
    EXPECT_TRUE(SetFilePointerEx(handle, end, nullptr, FILE_BEGIN)) << GetLastError();
    EXPECT_TRUE(SetEndOfFile(handle)) << GetLastError();
}

} // namespace

void make_sparse_file(filesystem::path const & path, std::uint64_t size) {
    auto const handle = open(path, GENERIC_WRITE, CREATE_ALWAYS);
    DWORD returned = 0;
    // Where there is no such call, files are sparse anyway.
    DeviceIoControl(handle, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
    set_end(handle, size);
    CloseHandle(handle);
}

void truncate_file(filesystem::path const & path, std::uint64_t size) {
    auto const handle = open(path, GENERIC_WRITE, OPEN_EXISTING);
    set_end(handle, size);
    CloseHandle(handle);
}

QN::file::native_handle open_shared(filesystem::path const & path) {
    return open(path, GENERIC_READ, OPEN_EXISTING);
}

QN::file::native_handle open_unreadable(filesystem::path const & path) {
    return open(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING);
}

void close_handle(QN::file::native_handle handle) {
    EXPECT_TRUE(CloseHandle(handle));
}

bool is_open_handle(QN::file::native_handle handle) {
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags);
}

bool is_inherited(QN::file::native_handle handle) {
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(handle, &flags)) << GetLastError();
    return (flags & HANDLE_FLAG_INHERIT) != 0;
}

#else

void make_sparse_file(filesystem::path const & path, std::uint64_t size) {
    make_file(path, "");
    truncate_file(path, size);
}

void truncate_file(filesystem::path const & path, std::uint64_t size) {
    EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
}

QN::file::native_handle open_shared(filesystem::path const & path) {
    return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

QN::file::native_handle open_unreadable(filesystem::path const & path) {
    return open(path.c_str(), O_WRONLY | O_CLOEXEC);
}

void close_handle(QN::file::native_handle handle) {
    EXPECT_EQ(close(handle), 0);
}

bool is_open_handle(QN::file::native_handle handle) {
    return fcntl(handle, F_GETFD) != -1;
}

bool is_inherited(QN::file::native_handle handle) {
    auto const flags = fcntl(handle, F_GETFD);
    EXPECT_NE(flags, -1);
    return (flags & FD_CLOEXEC) == 0;
}

#endif

std::string pattern(std::size_t size) {
    std::string bytes;
    for (std::uint32_t state = 1; bytes.size() < size; state = state * 1664525 + 1013904223) {
        bytes += static_cast<char>(state >> 24);
    }
    return bytes;
}

std::string text_of(std::string const & context, boost::system::error_code const & code) {
    return context + ": " + code.message() + " [" + code.category().name() + ':' +
           std::to_string(code.value()) + ']';
}

boost::system::error_code system_error(int number) {
    return {number, boost::system::system_category()};
}

} // namespace file_tests
