#include "launcher/find_platform_libraries.hpp"

#include "launcher/store_packages.hpp"
#include "launcher/windows_places.hpp"

#include <utility>
#include <vector>

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

search_result find_mobile_device(place const & program, search_extent extent) {
    std::vector<place_source> const sources{
        [&] { return std::vector{program}; },
        [] { return std::vector{folder_of_registered_file(mobile_device_dll)}; },
        [] { return std::vector{usual_place(usual_mobile_device)}; },
        store_places,
    };
    return search_library(mobile_device_name, sources, extent);
}

std::vector<place> place_beside(search_result const & mobile_device) {
    if (!mobile_device.found()) {
        return {};
    }
    return {{"beside MobileDevice.dll", mobile_device.folder(), {}}};
}

search_result find_core_foundation(place const & program, search_result const & mobile_device,
                                   search_extent extent) {
    std::vector<place_source> const sources{
        [&] { return std::vector{program}; },
        [&] { return place_beside(mobile_device); },
        [] { return std::vector{registered_folder(application_support)}; },
        [] { return std::vector{usual_place(usual_application_support)}; },
    };
    return search_library("CoreFoundation.dll", sources, extent);
}

} // namespace

platform_search find_platform_libraries(place const & program, search_extent extent) {
    auto mobile_device = find_mobile_device(program, extent);
    auto core_foundation = find_core_foundation(program, mobile_device, extent);
    return {std::move(core_foundation), std::move(mobile_device)};
}

QN::filesystem::path installation_of_32_bit() {
    return search_library(mobile_device_name,
                          {[] { return std::vector{usual_place(usual_mobile_device_of_32_bit)}; }})
        .folder();
}

} // namespace launcher
