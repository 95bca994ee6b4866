#include "launcher/store_packages.hpp"

#include "launcher/registry.hpp"

#include <windows.h>

#include <fmt/format.h>

#include <array>
#include <string>
#include <string_view>
#include <system_error>

namespace launcher {

namespace {

struct store_app {
    std::wstring_view package; // the package's name; its full name adds version and publisher
    wchar_t const * folder;    // that of the libraries, in the package's
};
constexpr std::array apps{store_app{L"AppleInc.AppleDevices", L""},
                          store_app{L"AppleInc.iTunes", L"AMDS64"}};
constexpr std::wstring_view publisher = L"_nzyj5cx40ttqa";

// Has a key for each installed package, by its full name.
constexpr auto packages_key =
    L"Local Settings\\Software\\Microsoft\\Windows\\CurrentVersion\\AppModel"
    L"\\PackageRepository\\Packages";

bool is_package_of(store_app const & app, std::wstring_view full_name) {
    return full_name.starts_with(app.package) && full_name.ends_with(publisher) &&
           full_name.substr(app.package.size()).starts_with(L'_');
}

place place_in(store_app const & app, std::wstring const & full_name) {
    auto origin = fmt::format("Store package {}", QN::path_to_utf8(full_name));
    auto const key = packages_key + (L'\\' + full_name);
    std::error_code error;
    QN::filesystem::path folder = registry_text(HKEY_CLASSES_ROOT, key.c_str(), L"Path", error);
    if (error) {
        return {std::move(origin), {}, "no folder is registered"};
    }
    if (*app.folder != L'\0') {
        folder /= app.folder;
    }
    return place_of_folder(std::move(origin), folder);
}

} // namespace

std::vector<place> store_places() {
    std::vector<place> places;
    auto const packages = registry_keys(HKEY_CLASSES_ROOT, packages_key);
    for (auto const & app : apps) {
        for (auto const & full_name : packages) {
            if (is_package_of(app, full_name)) {
                places.push_back(place_in(app, full_name));
            }
        }
    }
    if (places.empty()) {
        places.push_back(
            {"Store packages AppleInc.AppleDevices and AppleInc.iTunes", {}, "not installed"});
    }
    return places;
}

} // namespace launcher
