#include "launcher/windows_places.hpp"

#include "launcher/registry.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

#include <fmt/format.h>

#include <string>
#include <system_error>
#include <utility>

namespace launcher {

namespace {

std::string fault_of(std::error_code const & error) {
    if (error == std::errc::no_such_file_or_directory) {
        return "not set";
    }
    return error.value() == ERROR_UNSUPPORTED_TYPE ? "not a text" : error.message();
}

place registered(registry_location const & location,
                 place (*place_of)(std::string, QN::filesystem::path const &)) {
    auto origin = fmt::format("registry value HKEY_LOCAL_MACHINE\\{}\\{}",
                              QN::path_to_utf8(location.key), QN::path_to_utf8(location.value));
    std::error_code error;
    auto const text = registry_text(HKEY_LOCAL_MACHINE, location.key, location.value, error);
    if (error) {
        return {std::move(origin), {}, fault_of(error)};
    }
    return place_of(std::move(origin), text);
}

} // namespace

QN::filesystem::path file_of_module(HMODULE module) {
    std::wstring path(32768, L'\0'); // the longest path that Windows has
    auto const length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) {
        auto const error = GetLastError();
        throw QN::win::win32_error("GetModuleFileName", error);
    }
    path.resize(length);
    return path;
}

place program_place() {
    return place_of_file("the program's folder", file_of_module(nullptr));
}

QN::filesystem::path system_folder() {
    wchar_t path[MAX_PATH];
    return {path, path + GetSystemDirectoryW(path, MAX_PATH)};
}

place registered_folder(registry_location const & location) {
    return registered(location, place_of_folder);
}

place folder_of_registered_file(registry_location const & location) {
    return registered(location, place_of_file);
}

place usual_place(wchar_t const * folder) {
    return place_of_folder("usual folder", replace_variables(folder));
}

} // namespace launcher
