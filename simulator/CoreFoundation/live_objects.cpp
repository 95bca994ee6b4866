// Counts the live objects and writes their number as the trace's last line when the process ends.
// Code that keeps objects for the life of the process has to release them earlier: on Windows in
// the process-detach of a DLL that depends on this one, elsewhere in an atexit handler or a static
// destructor, all of which run before a destructor function of this priority.
#include "simulator/CoreFoundation/runtime.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <string_view>

#ifdef _WIN32
#include <windows.h>
#else
#include <cstdio>
#endif

namespace cf {

namespace {

constinit std::atomic<std::int64_t> live_object_count{0};

// Made without allocating: at the end, a thread that was killed could hold the lock of the heap.
class last_line {
public:
    last_line()
        : end{std::ranges::copy(prefix, characters.data()).out} {
        end = std::to_chars(end, characters.end() - 1,
                            live_object_count.load(std::memory_order_relaxed))
                  .ptr;
        *end++ = '\n';
    }

    std::string_view text() const { return {characters.data(), end}; }

private:
    static constexpr std::string_view prefix = "live-objects ";

    std::array<char, 64> characters;
    char * end;
};

} // namespace

void * allocate_uncounted(std::size_t size) {
    auto * const memory = std::malloc(size);
    if (memory == nullptr) {
        trap("allocate", "out of memory");
    }
    return memory;
}

void * allocate(std::size_t size) {
    auto * const memory = allocate_uncounted(size);
    live_object_count.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void deallocate(void * memory) noexcept {
    live_object_count.fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
}

#ifdef _WIN32

namespace {

// Read when the library is loaded: at the end, a thread that was killed could hold the lock of the
// environment.
wchar_t * trace_path = nullptr;

void remember_trace_path() {
    constexpr auto variable = L"MOBILEDEVICE_SIMULATOR_TRACE";
    auto const size = GetEnvironmentVariableW(variable, nullptr, 0);
    if (size > 1) {
        trace_path = new wchar_t[size];
        GetEnvironmentVariableW(variable, trace_path, size);
    }
}

void append_last_line() {
    if (trace_path == nullptr) {
        return;
    }
    auto const file = CreateFileW(trace_path, FILE_APPEND_DATA,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    last_line const line;
    auto const text = line.text();
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
}

} // namespace

} // namespace cf

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        cf::remember_trace_path();
    } else if (reason == DLL_PROCESS_DETACH) {
        cf::append_last_line();
    }
    return TRUE;
}

#else

namespace {

constexpr auto after_all_others = 101; // the lowest priority a program may use; runs last

__attribute__((destructor(after_all_others))) void append_last_line() {
    auto const * const path = std::getenv("MOBILEDEVICE_SIMULATOR_TRACE");
    if (path == nullptr || *path == '\0') {
        return;
    }
    if (auto * const file = std::fopen(path, "ab")) {
        last_line const line;
        std::fwrite(line.text().data(), 1, line.text().size(), file);
        std::fclose(file);
    }
}

} // namespace

} // namespace cf

#endif
