#pragma once

#include "support/file/ec_wrapper.hpp"
#include "support/file/native_file.hpp"

#include <fmt/format.h>

namespace QN::file::detail {

// Opens a file and reports a failure with the path, in UTF-8, in the place that the context has for
// it. The handle is the caller's.
native_handle open_or_report(filesystem::path const & path, open_mode mode,
                             fmt::format_string<std::string> context, asio_helpers::ec_wrapper ec);

} // namespace QN::file::detail
