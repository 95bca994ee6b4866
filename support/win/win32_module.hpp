#pragma once

#include <windows.h>

#include <string>

namespace QN::win {

// Owns a loaded module.
class win32_module {
public:
    win32_module() = default;

    // Loads the module of this name; throws win32_error where that fails.
    explicit win32_module(std::string name);
    // Loads the module of this name; null and ordinals name no module.
    explicit win32_module(char const * name);
    // Loads the module at a path, with the flags of LoadLibraryExW.
    win32_module(std::wstring const & path, unsigned long flags);

    win32_module(win32_module && other) noexcept;
    win32_module & operator=(win32_module && other) noexcept;
    ~win32_module();

    // Returns the address of a function or variable that the module exports, or throws
    // win32_error. The name may be an ordinal (MAKEINTRESOURCEA); null is ordinal 0.
    void * internal_get_proc_address(char const * proc) const;
    // Returns the same, but null where there is no such export; the last error says why.
    void * find_proc_address(char const * proc) const noexcept;

private:
    void throw_unless_loaded(unsigned long error) const;

    std::string name;
    HMODULE module = nullptr;
};

} // namespace QN::win
