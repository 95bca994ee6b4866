#pragma once

#include <windows.h>

namespace QN::file::detail {

// Calls CreateFileW for overlapped I/O, without security attributes and template.
HANDLE create_file(wchar_t const * name, DWORD access, DWORD share, DWORD disposition, DWORD flags);

} // namespace QN::file::detail
