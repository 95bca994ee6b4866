#include "recorder/process_session.hpp"

#include "recorder/recording_file.hpp"
#include "simulator/MobileDevice/files.hpp"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace recorder {
namespace {

using mobile_device::environment_variable;

struct running {
    running(clock::time_point (*time)(), std::string path, bool keeps_identities)
        : events{time}
        , file{events, std::move(path), keeps_identities} {}

    session events;
    recording_file file;
};

std::atomic<bool> session_has_started = false;
std::atomic<running *> current = nullptr;
std::atomic<clock::time_point (*)()> session_clock = clock::now;

// Runs while all threads live, so that no lock is held for ever.
void finish_file() {
    if (auto const at_end = current.load()) {
        at_end->file.finish();
    }
}

// The thread of the file runs until the process ends, so the code of this library must stay. What a
// DLL registers with atexit runs when it is detached, after all other threads were killed; _onexit
// is the run-time library's, whose list exit works off before that.
void prepare_for_process_end() {
#if defined(_WIN32)
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&prepare_for_process_end), &self);
    _onexit([] {
        finish_file();
        return 0;
    });
#else
    std::atexit(finish_file);
#endif
}

running * start() {
    auto const path = environment_variable("MOBILEDEVICE_RECORDER_FILE");
    if (!path) {
        return nullptr;
    }
    prepare_for_process_end();
    bool const keeps = environment_variable("MOBILEDEVICE_RECORDER_IDENTITIES") == "keep";
    return new running{session_clock, *path, keeps};
}

} // namespace

session * process_session() {
    static auto & starting = *new std::mutex;
    if (!session_has_started.load(std::memory_order_acquire)) {
        std::lock_guard const lock{starting};
        if (!session_has_started.load(std::memory_order_relaxed)) {
            current = start();
            session_has_started.store(true, std::memory_order_release);
        }
    }
    auto const recorded = current.load(std::memory_order_acquire);
    return recorded ? &recorded->events : nullptr;
}

void end_process_session() {
    std::unique_ptr<running> const ended{current.exchange(nullptr)};
    if (ended) {
        ended->file.finish();
    }
    session_has_started = false;
}

void set_session_clock(clock::time_point (*time)()) {
    session_clock = time;
}

} // namespace recorder
