// Writes how often each function was called, beside the trace, when the process ends.
#include "simulator/faults/counted_function.hpp"

#include "simulator/MobileDevice/files.hpp"

#include <windows.h>

#include <array>

namespace faults {
namespace {

HANDLE counts_file = INVALID_HANDLE_VALUE;

// Opened when the library is loaded, and written without allocating: at the end, a thread that was
// killed could hold the lock of the heap.
void open_counts_file() {
    if (auto const trace = mobile_device::environment_variable("MOBILEDEVICE_SIMULATOR_TRACE")) {
        counts_file =
            CreateFileW(mobile_device::make_path(*trace + ".calls").c_str(), GENERIC_WRITE,
                        FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
}

void write_counts() {
    if (counts_file == INVALID_HANDLE_VALUE) {
        return;
    }
    for (auto const function : counted_functions()) {
        if (auto const calls = function->calls.load(std::memory_order_relaxed)) {
            std::array<char, 128> line;
            auto const text =
                fmt::format_to_n(line.data(), line.size(), "{} {}\n", function->name, calls);
            DWORD written = 0;
            WriteFile(counts_file, line.data(), static_cast<DWORD>(text.size), &written, nullptr);
        }
    }
    CloseHandle(counts_file);
}

} // namespace
} // namespace faults

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        faults::open_counts_file();
    } else if (reason == DLL_PROCESS_DETACH) {
        faults::write_counts();
    }
    return TRUE;
}
