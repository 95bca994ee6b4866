#include "doctor/read_system.hpp"

#include "doctor/system_library.hpp"

#include <windows.h>

namespace doctor {

windows_version read_windows_version() {
    using get_version = LONG WINAPI(OSVERSIONINFOW *);
    system_library const library(L"ntdll.dll");
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    library.function<get_version>("RtlGetVersion")(&version);
    return {version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber};
}

code_pages read_code_pages() {
    return {GetACP(), GetConsoleOutputCP()};
}

} // namespace doctor
