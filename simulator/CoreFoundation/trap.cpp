#include "simulator/CoreFoundation/runtime.hpp"

#ifdef _WIN32
#include <windows.h>
#else
#include <cstdlib>
#include <unistd.h>
#endif

namespace cf {

namespace {

#ifdef _WIN32
// What abort() gives, but without its message box.
constexpr UINT exit_code_of_abort = 3;

[[noreturn]] void end_with(std::string_view line) {
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), line.data(), static_cast<DWORD>(line.size()),
              &written, nullptr);
    TerminateProcess(GetCurrentProcess(), exit_code_of_abort);
    for (;;) {
    }
}
#else
[[noreturn]] void end_with(std::string_view line) {
    [[maybe_unused]] auto const written = write(STDERR_FILENO, line.data(), line.size());
    std::abort();
}
#endif

} // namespace

void trap(std::string_view function, std::string_view why) {
    std::string line{"CoreFoundation: "};
    line.append(function).append(": ").append(why).append("\n");
    end_with(line);
}

} // namespace cf
