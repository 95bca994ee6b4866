#include "support/file/readable_file.hpp"

#include "support/file/errc.hpp"
#include "support/file/open.hpp"
#include "support/file/read_exactly.hpp"

#include <fmt/format.h>

#include <exception>
#include <limits>

namespace QN::file {

namespace {

constexpr auto no_size = std::numeric_limits<std::uint64_t>::max();

native_handle open_for_reading(filesystem::path const & path, ec_wrapper ec) {
    return detail::open_or_report(path, open_mode::read, "when opening file '{}' for reading", ec);
}

} // namespace

readable_file::readable_file(filesystem::path const & file) {
    open_and_assign(file, open_for_reading, ec_wrapper());
}

readable_file::readable_file(filesystem::path const & file, boost::system::error_code & ec) {
    open_and_assign(file, open_for_reading, ec_wrapper(ec));
}

std::uint64_t readable_file::get_total_size() {
    return get_total_size_impl(ec_wrapper());
}

std::uint64_t readable_file::get_total_size(boost::system::error_code & ec) {
    return get_total_size_impl(ec_wrapper(ec));
}

std::uint64_t readable_file::get_total_size_impl(ec_wrapper ec) {
    boost::system::error_code error;
    auto const size = detail::end_of_file(handle.native_handle(), error);
    if (error) {
        ec.report(error, [this] {
            return fmt::format("when getting size of file '{}'", path_to_utf8(path));
        });
        return no_size;
    }
    return size;
}

std::vector<std::uint8_t> readable_file::read_whole_file(std::uint32_t max) {
    return read_whole_file_impl(max, ec_wrapper());
}

std::vector<std::uint8_t> readable_file::read_whole_file(std::uint32_t max,
                                                         boost::system::error_code & ec) {
    return read_whole_file_impl(max, ec_wrapper(ec));
}

std::vector<std::uint8_t> readable_file::read_whole_file_impl(std::uint32_t max, ec_wrapper ec) {
    std::vector<std::uint8_t> bytes;
    auto const size = get_total_size_impl(ec);
    if (size == no_size) {
        return bytes;
    }
    if (size > max) {
        ec.report(errc::too_large, [&] {
            return fmt::format("'{}' is {} bytes (max size is {} bytes)", path_to_utf8(path), size,
                               max);
        });
        return bytes;
    }
    if (!allocate(bytes, size, ec)) {
        return bytes;
    }
    boost::system::error_code error;
    detail::read_exactly(handle, bytes, error);
    if (error) {
        ec.report(error, [] { return "read"; });
    }
    return bytes;
}

bool readable_file::allocate(std::vector<std::uint8_t> & bytes, std::uint64_t size,
                             ec_wrapper ec) const {
    try {
        bytes.resize(static_cast<std::size_t>(size));
        return true;
    } catch (std::exception const & exception) {
        ec.report(errc::out_of_memory, [&] {
            return fmt::format("while allocating {} bytes for '{}': {}", size, path_to_utf8(path),
                               exception.what());
        });
        return false;
    }
}

} // namespace QN::file
