#include "launcher/find_platform_libraries.hpp"

#include "launcher/store_packages.hpp"
#include "launcher/windows_places.hpp"

namespace launcher {

namespace {

constexpr auto mobile_device_name = "MobileDevice.dll";

constexpr registry_location mobile_device_dll{
    L"SOFTWARE\\Apple Inc.\\Apple Mobile Device Support\\Shared", L"MobileDeviceDLL"};
constexpr registry_location application_support{L"SOFTWARE\\Apple Inc.\\Apple Application Support",
                                                L"InstallDir"};
constexpr auto usual_mobile_device = L"%CommonProgramFiles%\\Apple\\Mobile Device Support";
constexpr auto usual_application_support =
    L"%CommonProgramFiles%\\Apple\\Apple Application Support";
constexpr auto usual_mobile_device_of_32_bit =
    L"%CommonProgramFiles(x86)%\\Apple\\Mobile Device Support";

library_search find_mobile_device(place const & program) {
    library_search search(mobile_device_name);
    search.look_in(program) || search.look_in(folder_of_registered_file(mobile_device_dll)) ||
        search.look_in(usual_place(usual_mobile_device)) || search.look_in_each(store_places());
    return search;
}

library_search find_core_foundation(place const & program, library_search const & mobile_device) {
    library_search search("CoreFoundation.dll");
    search.look_in(program) ||
        (mobile_device.found() &&
         search.look_in({"beside MobileDevice.dll", mobile_device.folder(), {}})) ||
        search.look_in(registered_folder(application_support)) ||
        search.look_in(usual_place(usual_application_support));
    return search;
}

} // namespace

platform_search find_platform_libraries(place const & program) {
    auto const mobile_device = find_mobile_device(program);
    return {find_core_foundation(program, mobile_device), mobile_device};
}

std::vector<QN::filesystem::path> dependency_folders(platform_search const & libraries,
                                                     place const & program) {
    std::vector<QN::filesystem::path> folders;
    auto const & mobile_device = libraries.mobile_device.folder();
    auto const & core_foundation = libraries.core_foundation.folder();
    if (mobile_device != program.folder) {
        folders.push_back(mobile_device);
    }
    if (core_foundation != program.folder && core_foundation != mobile_device) {
        folders.push_back(core_foundation);
    }
    return folders;
}

QN::filesystem::path installation_of_32_bit() {
    library_search search(mobile_device_name);
    search.look_in(usual_place(usual_mobile_device_of_32_bit));
    return search.folder();
}

} // namespace launcher
