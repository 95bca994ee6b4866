#include "support/file/create_file.hpp"
#include "support/file/native_file.hpp"
#include "support/file/openable_name.hpp"

#include <boost/system/system_category.hpp>

namespace QN::file::detail {

namespace {

struct create_file_arguments {
    DWORD access;
    DWORD disposition;
    DWORD flags;
};

// Others may read and delete a file that is open here, but not write to it.
constexpr DWORD share = FILE_SHARE_READ | FILE_SHARE_DELETE;

constexpr create_file_arguments arguments_of(open_mode mode) {
    switch (mode) {
    case open_mode::read:
        return {GENERIC_READ, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN};
    case open_mode::append:
        // No more than append access, so that every write lands at the end of the file.
        return {FILE_APPEND_DATA, OPEN_ALWAYS, 0};
    case open_mode::clobber:
        return {GENERIC_WRITE, CREATE_ALWAYS, 0};
    case open_mode::create_new:
        break;
    }
    return {GENERIC_WRITE, CREATE_NEW, 0};
}

boost::system::error_code last_error() noexcept {
    return {static_cast<int>(GetLastError()), boost::system::system_category()};
}

} // namespace

native_handle open(filesystem::path const & path, open_mode mode, boost::system::error_code & ec) {
    auto const [access, disposition, flags] = arguments_of(mode);
    auto const name = openable_name(path.native());
    auto const handle = create_file(name.c_str(), access, share, disposition, flags);
    ec = is_valid(handle) ? boost::system::error_code() : last_error();
    return handle;
}

bool is_valid(native_handle handle) noexcept {
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

std::uint64_t end_of_file(native_handle handle, boost::system::error_code & ec) noexcept {
    FILE_STANDARD_INFO info{};
    if (!GetFileInformationByHandleEx(handle, FileStandardInfo, &info, sizeof info)) {
        ec = last_error();
        return 0;
    }
    ec.clear();
    return static_cast<std::uint64_t>(info.EndOfFile.QuadPart);
}

void close(native_handle handle) noexcept {
    CloseHandle(handle);
}

} // namespace QN::file::detail
