#include "simulator/MobileDevice/process_identity.hpp"

#if defined(_WIN32)
#include <memory>

#include <windows.h>
#else
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>

#include <unistd.h>
#endif

namespace mobile_device {

#if defined(_WIN32)

namespace {

struct handle_closer {
    void operator()(void * handle) const { CloseHandle(handle); }
};

std::int64_t creation_of(HANDLE process) {
    FILETIME created{};
    FILETIME ignored{};
    GetProcessTimes(process, &created, &ignored, &ignored, &ignored);
    return static_cast<std::int64_t>(created.dwHighDateTime) << 32 | created.dwLowDateTime;
}

} // namespace

process_identity this_process() {
    return {GetCurrentProcessId(), creation_of(GetCurrentProcess())};
}

bool is_running(process_identity const & process) {
    std::unique_ptr<void, handle_closer> const opened{OpenProcess(
        PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, static_cast<DWORD>(process.id))};
    if (!opened) {
        return GetLastError() == ERROR_ACCESS_DENIED;
    }
    return WaitForSingleObject(opened.get(), 0) == WAIT_TIMEOUT &&
           creation_of(opened.get()) == process.created;
}

#else

namespace {

// Returns when the process was created; nothing for one that is gone, or dead and not waited for.
std::optional<std::int64_t> creation_of(std::int64_t id) {
    std::ifstream file{"/proc/" + std::to_string(id) + "/stat"};
    std::string const text{std::istreambuf_iterator<char>{file}, {}};
    auto const name_end = text.rfind(')'); // a name may hold anything
    if (name_end == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields{text.substr(name_end + 1)};
    char state = 0;
    fields >> state;
    constexpr int fields_between = 18;
    for (int count = 0; count < fields_between; ++count) {
        std::string skipped;
        fields >> skipped;
    }
    std::int64_t created = 0;
    fields >> created;
    return state == 'Z' || state == 'X' ? std::nullopt : std::optional{created};
}

} // namespace

process_identity this_process() {
    return {::getpid(), creation_of(::getpid()).value_or(0)};
}

bool is_running(process_identity const & process) {
    return creation_of(process.id) == process.created;
}

#endif

} // namespace mobile_device
