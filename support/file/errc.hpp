#pragma once

#include <boost/system/error_category.hpp>
#include <boost/system/error_code.hpp>

namespace QN::file {

// File errors that do not come from a system call.
enum class errc { success = 0, too_large = 1, out_of_memory = 2, not_locked = 3 };

// Returns the category of these errors, whose name is "QN::file".
boost::system::error_category const & file_category() noexcept;

boost::system::error_code make_error_code(errc code) noexcept;

} // namespace QN::file

template <>
struct boost::system::is_error_code_enum<QN::file::errc> : std::true_type {};
