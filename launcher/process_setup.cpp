#include "launcher/process_setup.hpp"

#include "support/win/standard_handles.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

namespace launcher {

namespace {

// A program that drives this one would wait for ever behind a dialog about a bad library or a
// fault.
void raise_no_dialogs() {
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
}

void restrict_library_search() {
    if (!SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS)) {
        auto const error = GetLastError();
        throw QN::win::win32_error("SetDefaultDllDirectories", error);
    }
}

} // namespace

void prepare_process() {
    raise_no_dialogs();
    QN::win::keep_standard_handles(); // before there is a library that could start a process
    restrict_library_search();
}

} // namespace launcher
