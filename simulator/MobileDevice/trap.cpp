#include "simulator/MobileDevice/trap.hpp"

#include "simulator/MobileDevice/text.hpp"

#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>

#ifdef _WIN32
#include <windows.h>
#endif

namespace mobile_device {

void trap(std::string_view function, std::string_view why) {
    write_error_line(fmt::format("MobileDevice: {}: {}", function, why));
    std::fflush(stderr);
#ifdef _WIN32
    TerminateProcess(GetCurrentProcess(), 3); // what abort() gives, but without its message box
#endif
    std::abort();
}

void end_process(std::string_view line, int status) {
    write_error_line(line);
    std::fflush(stderr);
#ifdef _WIN32
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
#endif
    std::_Exit(status);
}

} // namespace mobile_device
