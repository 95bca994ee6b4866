#include "simulator/MobileDevice/process_identity.hpp"

#if defined(_WIN32)
#include <memory>

#include <windows.h>
#else
#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <fmt/format.h>
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
// Each process that shares a world asks this of all others that restore, many times a second.
std::optional<std::int64_t> creation_of(std::int64_t id) {
    int const file = ::open(fmt::format("/proc/{}/stat", id).c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return std::nullopt;
    }
    std::array<char, 1024> buffer{};
    auto const size = ::read(file, buffer.data(), buffer.size());
    ::close(file);
    std::string_view text{buffer.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
    auto const name_end = text.rfind(')'); // a name may hold anything
    if (name_end == std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_prefix(name_end + 2);
    char const state = text.empty() ? 'X' : text.front();
    constexpr int fields_before = 19;
    for (int count = 0; count < fields_before; ++count) {
        text.remove_prefix(std::min(text.find(' '), text.size() - 1) + 1);
    }
    std::int64_t created = 0;
    std::from_chars(text.data(), text.data() + text.size(), created);
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
