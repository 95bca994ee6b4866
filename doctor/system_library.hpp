#pragma once

#include "support/win/win32_module.hpp"

#include <string>

namespace doctor {

// A library of Windows that is loaded when it is needed, so that the program starts without it.
class system_library {
public:
    // Throws win32_error where it cannot be loaded.
    explicit system_library(std::wstring const & name)
        : module(name, LOAD_LIBRARY_SEARCH_SYSTEM32) {}

    // Returns the function of this name, which is of the type of the function that is given. Throws
    // win32_error where there is none.
    template <typename Function>
    Function * function(char const * name) const {
        return reinterpret_cast<Function *>(module.internal_get_proc_address(name));
    }

private:
    QN::win::win32_module module;
};

} // namespace doctor
