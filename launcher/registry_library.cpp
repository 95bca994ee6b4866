#include "launcher/registry_library.hpp"

#include "support/win/win32_module.hpp"

namespace launcher {

void * registry_function(char const * name) {
    static QN::win::win32_module const library(L"advapi32.dll", LOAD_LIBRARY_SEARCH_SYSTEM32);
    return library.internal_get_proc_address(name);
}

} // namespace launcher
