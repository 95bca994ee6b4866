#include "doctor/read_store_packages.hpp"

#include <string>

namespace doctor {

namespace {

constexpr wchar_t const * families[] = {L"AppleInc.AppleDevices_nzyj5cx40ttqa",
                                        L"AppleInc.iTunes_nzyj5cx40ttqa"};

QN::filesystem::path folder_of(packaging_functions const & windows, wchar_t const * full_name) {
    std::wstring path(32768, L'\0'); // the longest path that Windows has
    auto length = static_cast<std::uint32_t>(path.size());
    if (windows.path_of_package(full_name, &length, path.data()) != ERROR_SUCCESS) {
        return {};
    }
    return QN::filesystem::path(path.c_str());
}

std::vector<std::wstring> packages_of(packaging_functions const & windows, wchar_t const * family) {
    std::uint32_t count = 0;
    std::uint32_t length = 0;
    windows.packages_of_family(family, &count, nullptr, &length, nullptr); // asks for the sizes
    std::vector<wchar_t *> names(count);
    std::wstring buffer(length, L'\0');
    if (count == 0 || windows.packages_of_family(family, &count, names.data(), &length,
                                                 buffer.data()) != ERROR_SUCCESS) {
        return {};
    }
    return {names.begin(), names.begin() + count};
}

} // namespace

packaging_functions find_packaging_functions() {
    packaging_functions found;
    auto const kernel = GetModuleHandleW(L"kernel32.dll");
    auto const packages =
        reinterpret_cast<void *>(GetProcAddress(kernel, "GetPackagesByPackageFamily"));
    auto const path = reinterpret_cast<void *>(GetProcAddress(kernel, "GetPackagePathByFullName"));
    if (packages != nullptr && path != nullptr) {
        found.packages_of_family = reinterpret_cast<decltype(found.packages_of_family)>(packages);
        found.path_of_package = reinterpret_cast<decltype(found.path_of_package)>(path);
    }
    return found;
}

std::vector<store_package> read_store_packages(packaging_functions const & windows) {
    std::vector<store_package> packages;
    if (windows.packages_of_family == nullptr) {
        return packages;
    }
    for (auto const * const family : families) {
        for (auto const & name : packages_of(windows, family)) {
            packages.push_back({QN::path_to_utf8(name), folder_of(windows, name.c_str())});
        }
    }
    return packages;
}

} // namespace doctor
