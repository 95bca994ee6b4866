#include "launcher/installed_libraries.hpp"

#include "launcher/windows_places.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

namespace launcher {

namespace {

constexpr registry_location mobile_device_dll{
    L"SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared", L"MobileDeviceDLL"};
constexpr registry_location application_support{L"SOFTWARE\\Apple Inc.\\Apple Application Support",
                                                L"InstallDir"};
constexpr auto usual_mobile_device = L"%CommonProgramFiles%\\Apple\\Mobile Device Support";
constexpr auto usual_application_support =
    L"%CommonProgramFiles%\\Apple\\Apple Application Support";

library_search find_mobile_device(place const & program) {
    library_search search("MobileDevice.dll");
    search.look_in(program) || search.look_in(folder_of_registered_file(mobile_device_dll)) ||
        search.look_in(usual_place(usual_mobile_device));
    return search;
}

library_search find_core_foundation(place const & program, library_search const & mobile_device) {
    library_search search("CoreFoundation.dll");
    search.look_in(program) || search.look_in(registered_folder(application_support)) ||
        (mobile_device.found() &&
         search.look_in({"beside MobileDevice.dll", mobile_device.folder(), {}})) ||
        search.look_in(usual_place(usual_application_support));
    return search;
}

void add_folder(QN::filesystem::path const & folder) {
    if (AddDllDirectory(folder.c_str()) == nullptr) {
        auto const error = GetLastError();
        throw QN::win::win32_error(fmt::format("AddDllDirectory(\"{}\")", QN::path_to_utf8(folder)),
                                   error);
    }
}

} // namespace

platform_search find_platform_libraries(place const & program) {
    auto const mobile_device = find_mobile_device(program);
    return {find_core_foundation(program, mobile_device), mobile_device};
}

void add_installed_folders(platform_search const & libraries) {
    add_folder(libraries.mobile_device.folder());
    add_folder(libraries.core_foundation.folder());
    // An installed MobileDevice.dll needs more of this folder than CoreFoundation.dll, which may
    // come from another.
    for (auto const & support :
         {registered_folder(application_support), usual_place(usual_application_support)}) {
        boost::system::error_code ignored;
        if (is_directory(support.folder, ignored)) {
            add_folder(support.folder);
        }
    }
}

} // namespace launcher
