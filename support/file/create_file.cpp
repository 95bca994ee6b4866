#include "support/file/create_file.hpp"

namespace QN::file::detail {

HANDLE
create_file(wchar_t const * name, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    return CreateFileW(name, access, share, nullptr, disposition, flags | FILE_FLAG_OVERLAPPED,
                       nullptr);
}

} // namespace QN::file::detail
