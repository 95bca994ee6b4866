#include "simulator/MobileDevice/process_end.hpp"

#include "simulator/MobileDevice/simulator.hpp"

#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>

namespace mobile_device {

// Threads of this library may run until the process ends, so its code must stay.
void prepare_for_process_end() {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&prepare_for_process_end), &self);
}

} // namespace mobile_device

// At the end of a process its other threads are gone when libraries hear of it. This one hears
// before CoreFoundation, which it depends on.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    auto const simulator = mobile_device::simulator::existing();
    if (reason == DLL_PROCESS_DETACH && simulator) {
        simulator->release_objects();
    }
    return TRUE;
}

#else

namespace mobile_device {
namespace {

void end_simulator() {
    auto const simulator = simulator::existing();
    if (simulator && simulator->end(std::chrono::seconds{2})) {
        simulator->release_objects();
    }
}

} // namespace

// Registered while the process runs, the function is called before any that was registered at
// its start.
void prepare_for_process_end() {
    std::atexit(end_simulator);
}

} // namespace mobile_device

#endif
