#pragma once

#include "support/file/fd_type.hpp"
#include "support/filesystem.hpp"

#include <boost/system/error_code.hpp>

#include <cstdint>

namespace QN::file {

enum class open_mode { read, append, clobber, create_new };

// The system's calls on files. They report in the system category.
namespace detail {

// Opens a file and returns its handle, which the caller owns; an invalid one after a failure.
native_handle open(filesystem::path const & path, open_mode mode, boost::system::error_code & ec);

bool is_valid(native_handle handle) noexcept;

// Returns the size of a file in bytes.
std::uint64_t end_of_file(native_handle handle, boost::system::error_code & ec) noexcept;

void close(native_handle handle) noexcept;

} // namespace detail

} // namespace QN::file
