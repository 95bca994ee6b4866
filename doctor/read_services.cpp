#include "doctor/read_services.hpp"

#include "doctor/system_library.hpp"
#include "support/filesystem.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

#include <winsvc.h>

#include <memory>
#include <span>
#include <type_traits>

namespace doctor {

namespace {

struct close_service_handle {
    decltype(&CloseServiceHandle) close;
    void operator()(SC_HANDLE handle) const { close(handle); }
};
using service_handle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, close_service_handle>;

service_handle open_manager(system_library const & library) {
    auto const open = library.function<decltype(OpenSCManagerW)>("OpenSCManagerW");
    service_handle manager(open(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE),
                           {library.function<decltype(CloseServiceHandle)>("CloseServiceHandle")});
    if (!manager) {
        auto const error = GetLastError();
        throw QN::win::win32_error("OpenSCManager", error);
    }
    return manager;
}

// Returns the bytes of all entries, and sets how many there are.
std::vector<BYTE> read_entries(system_library const & library, DWORD & count) {
    auto const enumerate =
        library.function<decltype(EnumServicesStatusExW)>("EnumServicesStatusExW");
    auto const manager = open_manager(library);
    std::vector<BYTE> entries(0x10000);
    for (;;) {
        DWORD lacking = 0;
        DWORD resume = 0;
        if (enumerate(manager.get(), SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL,
                      entries.data(), static_cast<DWORD>(entries.size()), &lacking, &count, &resume,
                      nullptr)) {
            return entries;
        }
        auto const error = GetLastError();
        if (error != ERROR_MORE_DATA) {
            throw QN::win::win32_error("EnumServicesStatusEx", error);
        }
        entries.resize(entries.size() + lacking);
    }
}

} // namespace

std::vector<service> read_services() {
    system_library const library(L"advapi32.dll");
    DWORD count = 0;
    auto const entries = read_entries(library, count);
    std::vector<service> services;
    for (auto const & each :
         std::span(reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSW const *>(entries.data()), count)) {
        // Wine has no display name where none was given.
        auto const * const display_name =
            each.lpDisplayName == nullptr ? each.lpServiceName : each.lpDisplayName;
        services.push_back({QN::path_to_utf8(each.lpServiceName), QN::path_to_utf8(display_name),
                            each.ServiceStatusProcess.dwCurrentState});
    }
    return services;
}

} // namespace doctor
