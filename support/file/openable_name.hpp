#pragma once

#include <string>

namespace QN::file::detail {

// Returns the name by which CreateFileW finds a path of any length: the path itself, or, where its
// absolute form has 260 characters or more, that form after "\\?\", which lifts the limit.
std::wstring openable_name(std::wstring const & path);

} // namespace QN::file::detail
