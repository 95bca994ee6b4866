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

void write_to_standard_error(std::string_view text) {
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()),
              &written, nullptr);
}

[[noreturn]] void end_process() {
    TerminateProcess(GetCurrentProcess(), exit_code_of_abort);
    for (;;) {
    }
}
#else
void write_to_standard_error(std::string_view text) {
    [[maybe_unused]] auto const written = write(STDERR_FILENO, text.data(), text.size());
}

[[noreturn]] void end_process() {
    std::abort();
}
#endif

} // namespace

void write_error_line(std::string_view text) {
    write_to_standard_error(std::string{text} + "\n");
}

void trap(std::string_view function, std::string_view why) noexcept {
    std::string line{"CoreFoundation: "};
    line.append(function).append(": ").append(why);
    write_error_line(line);
    end_process();
}

} // namespace cf
