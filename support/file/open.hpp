#pragma once

#include "support/file/ec_wrapper.hpp"
#include "support/file/native_file.hpp"

#include <fmt/format.h>

namespace QN::file::detail {

// Opens a file and returns its handle, which the caller owns. Reports a failure with the context,
// whose placeholder becomes the path in UTF-8.
native_handle open_or_report(filesystem::path const & path, open_mode mode,
                             fmt::format_string<std::string> context, asio_helpers::ec_wrapper ec);

} // namespace QN::file::detail
