#include "support/file/native_file.hpp"

#include <boost/system/system_category.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace QN::file::detail {

namespace {

constexpr int flags_of(open_mode mode) {
    switch (mode) {
    case open_mode::read:
        return O_RDONLY;
    case open_mode::append:
        return O_WRONLY | O_APPEND | O_CREAT;
    case open_mode::clobber:
        return O_WRONLY | O_CREAT | O_TRUNC;
    case open_mode::create_new:
        break;
    }
    return O_WRONLY | O_CREAT | O_EXCL;
}

boost::system::error_code last_error() noexcept {
    return {errno, boost::system::system_category()};
}

} // namespace

native_handle open(filesystem::path const & path, open_mode mode, boost::system::error_code & ec) {
    constexpr mode_t permissions = 0666; // less what the process masks
    auto const handle = ::open(path.c_str(), flags_of(mode) | O_CLOEXEC, permissions);
    ec = is_valid(handle) ? boost::system::error_code() : last_error();
    return handle;
}

bool is_valid(native_handle handle) noexcept {
    return handle >= 0;
}

std::uint64_t end_of_file(native_handle handle, boost::system::error_code & ec) noexcept {
    struct stat status {};
    if (fstat(handle, &status) != 0) {
        ec = last_error();
        return 0;
    }
    ec.clear();
    return static_cast<std::uint64_t>(status.st_size);
}

void close(native_handle handle) noexcept {
    ::close(handle);
}

} // namespace QN::file::detail
