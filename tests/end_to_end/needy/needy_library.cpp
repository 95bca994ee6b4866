// What the simulator's MobileDevice.dll does not do by itself: it needs another library, and when
// it is loaded it ends the process with the status that NEEDY_STATUS names, or writes a line to the
// file that NEEDY_REPORT names: the error mode of the process, how many of its standard handles are
// inherited, and the file of the library that NEEDY_LIBRARY names, which it loads by that name,
// without a folder.
#include "tests/end_to_end/needy/needed_library.hpp"

#include <windows.h>

#include <cstdio>
#include <iterator>
#include <string>

namespace {

std::wstring variable(wchar_t const * name) {
    wchar_t value[1024] = L"";
    GetEnvironmentVariableW(name, value, static_cast<DWORD>(std::size(value)));
    return value;
}

int inherited_standard_handles() {
    int count = 0;
    for (auto const stream : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        DWORD flags = 0;
        GetHandleInformation(GetStdHandle(stream), &flags);
        count += (flags & HANDLE_FLAG_INHERIT) != 0;
    }
    return count;
}

std::wstring file_of_loaded(std::wstring const & library) {
    wchar_t path[1024] = L"";
    if (auto const module = LoadLibraryW(library.c_str())) {
        GetModuleFileNameW(module, path, static_cast<DWORD>(std::size(path)));
    }
    return path;
}

bool report() {
    if (auto const status = variable(L"NEEDY_STATUS"); !status.empty()) {
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(std::stoul(status)));
    }
    auto const path = variable(L"NEEDY_REPORT");
    if (auto const file = path.empty() ? nullptr : _wfopen(path.c_str(), L"w, ccs=UTF-8")) {
        std::fwprintf(file, L"%lu %d %ls\n", GetErrorMode(), inherited_standard_handles(),
                      file_of_loaded(variable(L"NEEDY_LIBRARY")).c_str());
        std::fclose(file);
    }
    return needed_number() == 1;
}

[[maybe_unused]] bool const reported = report();

} // namespace
