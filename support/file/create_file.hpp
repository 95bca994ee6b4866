#pragma once

#include <windows.h>

#include <string>

namespace QN::file::detail {

// CreateFileW for overlapped I/O, without security attributes and template.
HANDLE create_file(wchar_t const * name, DWORD access, DWORD share, DWORD disposition, DWORD flags);

// The form of a path that CreateFileW opens however long it is: where it has no more than the 260
// characters that any process may use, the path itself, otherwise an absolute one that starts with
// "\\?\".
std::wstring openable_name(std::wstring const & path);

} // namespace QN::file::detail
