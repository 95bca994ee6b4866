// The system's lock of a file, which ends with the process at the latest.
#pragma once

#include <filesystem>

namespace mobile_device {

class file_lock {
public:
    enum class kind { shared, exclusive };

    // Waits for the lock of the file, which is created where it is missing. The object converts to
    // false if that failed.
    file_lock(std::filesystem::path const & path, kind how);
    explicit operator bool() const { return locked; }

    file_lock(file_lock const &) = delete;
    file_lock & operator=(file_lock const &) = delete;
    ~file_lock();

private:
#if defined(_WIN32)
    void * handle;
#else
    int handle;
#endif
    bool locked = false;
};

} // namespace mobile_device
