#include "simulator/MobileDevice/process_end.hpp"

#include "simulator/MobileDevice/simulator.hpp"

#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace mobile_device {
namespace {

// Runs while all threads live, so that running callbacks can release what they hold.
[[maybe_unused]] void end_simulator() {
    auto const simulator = simulator::existing();
    if (simulator && simulator->end(std::chrono::seconds{2})) {
        simulator->release_objects();
    }
}

} // namespace

#if defined(_WIN32)

// Threads of this library may run until the process ends, so its code must stay. What a DLL
// registers with atexit belongs to the DLL and runs when it is detached, after all other threads
// were killed; _onexit is the run-time library's own, whose list exit works off before that.
void prepare_for_process_end() {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&prepare_for_process_end), &self);
#if defined(__MINGW32__) // elsewhere each DLL has another run-time library, and thus another list
    _onexit([] {
        end_simulator();
        return 0;
    });
#endif
}

#else

// Registered while the process runs, the function is called before any that was registered at
// its start.
void prepare_for_process_end() {
    std::atexit(end_simulator);
}

#endif

} // namespace mobile_device

#if defined(_WIN32)

// For a process that ends without the run-time library, or with callbacks that do not: its other
// threads were killed, and may hold any lock. This library hears of it before CoreFoundation, which
// it depends on.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    auto const simulator = mobile_device::simulator::existing();
    if (reason == DLL_PROCESS_DETACH && simulator) {
        simulator->release_objects();
    }
    return TRUE;
}

#endif
