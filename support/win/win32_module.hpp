#pragma once

#include <windows.h>

#include <string>

namespace QN::win {

// Owns a loaded library.
class win32_module {
public:
    win32_module() = default;

    // Loads the library of this name; throws win32_error where that fails.
    explicit win32_module(std::string name);
    // The same; null and ordinals name no library.
    explicit win32_module(char const * name);
    // The same for a path, with the flags of LoadLibraryExW.
    win32_module(std::wstring const & path, unsigned long flags);

    win32_module(win32_module && other) noexcept;
    win32_module & operator=(win32_module && other) noexcept;
    ~win32_module();

    // The address of a function or variable that the library exports; throws win32_error where it
    // exports none of this name. An ordinal (MAKEINTRESOURCEA) is a name too, and null is that of
    // 0.
    void * internal_get_proc_address(char const * proc) const;
    // The same, but null where it exports none; the last error tells why.
    void * find_proc_address(char const * proc) const noexcept;

private:
    void throw_unless_loaded(unsigned long error) const;

    std::string name;
    HMODULE module = nullptr;
};

} // namespace QN::win
