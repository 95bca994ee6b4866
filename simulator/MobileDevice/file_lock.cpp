#include "simulator/MobileDevice/file_lock.hpp"

#if defined(_WIN32)
#include <windows.h>
#else
#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

namespace mobile_device {

#if defined(_WIN32)

file_lock::file_lock(std::filesystem::path const & path, kind how)
    : handle{CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)} {
    if (handle != INVALID_HANDLE_VALUE) {
        OVERLAPPED at_start{};
        locked = LockFileEx(handle, how == kind::exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0, 0, 1, 0,
                            &at_start) != FALSE;
    }
}

file_lock::~file_lock() {
    if (locked) {
        OVERLAPPED at_start{};
        UnlockFileEx(handle, 0, 1, 0, &at_start); // closing alone may end the lock later
    }
    if (handle != INVALID_HANDLE_VALUE) {
        CloseHandle(handle);
    }
}

#else

// The lock belongs to the opened file, not to the process as that of fcntl does: it also keeps out
// other threads.
file_lock::file_lock(std::filesystem::path const & path, kind how)
    : handle{::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)} {
    int failed = -1;
    if (handle >= 0) {
        do {
            failed = ::flock(handle, how == kind::exclusive ? LOCK_EX : LOCK_SH);
        } while (failed && errno == EINTR);
    }
    locked = !failed;
}

file_lock::~file_lock() {
    if (handle >= 0) {
        ::close(handle);
    }
}

#endif

} // namespace mobile_device
