#include "launcher/load_platform_libraries.hpp"

#include "launcher/installation_advice.hpp"
#include "launcher/load_library.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

namespace launcher {

namespace {

constexpr auto refusal_note =
    "Windows denies access to a library. Other programs may not load the libraries of an app from "
    "the Microsoft Store: use another installation, or a copy.\n";

std::string note_on_32_bit() {
    auto const folder = installation_of_32_bit();
    return folder.empty() ? std::string()
                          : fmt::format("The installation in \"{}\" is for 32-bit programs; this "
                                        "one needs 64-bit libraries.\n",
                                        QN::path_to_utf8(folder));
}

std::string list_of_names(std::vector<char const *> const & names) {
    constexpr std::size_t most = 5;
    if (names.size() <= most) {
        return fmt::format("{}", fmt::join(names, ", "));
    }
    return fmt::format("{} and {} more", fmt::join(std::span(names).first(most), ", "),
                       names.size() - most);
}

// Loads the library and returns the report of what is wrong with it; empty if it can be used.
std::string load(search_result const & search, library owner,
                 std::vector<QN::filesystem::path> const & searched) {
    try {
        auto const missing = missing_names(load_library(search.path(), searched), owner);
        if (missing.empty()) {
            return {};
        }
        return search.report(
            fmt::format("{} lacks {}", QN::path_to_utf8(search.path()), list_of_names(missing)));
    } catch (load_error const & error) {
        return search.report(
                   fmt::format("{} cannot be loaded: {}", search.file_name, error.what())) +
               (error.code == ERROR_ACCESS_DENIED ? refusal_note : "");
    }
}

std::string report_if_not_found(search_result const & search) {
    if (search.found()) {
        return {};
    }
    return search.report(search.file_name + " was not found") +
           (search.refused() ? refusal_note : "");
}

void throw_if(std::string const & faults) {
    if (!faults.empty()) {
        throw std::runtime_error(faults + installation_advice);
    }
}

std::vector<QN::filesystem::path> library_folders(platform_search const & libraries,
                                                  place const & program) {
    std::vector<QN::filesystem::path> folders;
    for (auto const * const library : {&libraries.mobile_device, &libraries.core_foundation}) {
        auto folder = library->folder();
        if (library->found() && folder != program.folder &&
            std::ranges::find(folders, folder) == folders.end()) {
            folders.push_back(std::move(folder));
        }
    }
    return folders;
}

void add_folder(QN::filesystem::path const & folder) {
    if (AddDllDirectory(folder.c_str()) == nullptr) {
        auto const error = GetLastError();
        throw QN::win::win32_error(fmt::format("AddDllDirectory(\"{}\")", QN::path_to_utf8(folder)),
                                   error);
    }
}

} // namespace

void load_platform_libraries(place const & program) {
    auto const libraries = find_platform_libraries(program);
    auto const & [core_foundation, mobile_device] = libraries;
    auto const not_found =
        report_if_not_found(mobile_device) + report_if_not_found(core_foundation);
    throw_if(not_found.empty() ? not_found : not_found + note_on_32_bit());

    auto const searched = add_dependency_folders(libraries, program);
    // In this order the second takes the first, and no other of its name.
    throw_if(load(core_foundation, library::CoreFoundation, searched));
    throw_if(load(mobile_device, library::MobileDevice, searched));
}

std::vector<QN::filesystem::path> dependency_folders(platform_search const & libraries,
                                                     place const & program) {
    auto folders = library_folders(libraries, program);
    folders.insert(folders.begin(), program.folder);
    return folders;
}

std::vector<QN::filesystem::path> add_dependency_folders(platform_search const & libraries,
                                                         place const & program) {
    std::ranges::for_each(library_folders(libraries, program), add_folder);
    return dependency_folders(libraries, program);
}

std::vector<char const *> missing_names(QN::win::win32_module const & module, library owner) {
    std::vector<char const *> missing;
    for (auto const & forwarded : forwarded_names) {
        if (forwarded.owner == owner && module.find_proc_address(forwarded.name) == nullptr) {
            missing.push_back(forwarded.name);
        }
    }
    return missing;
}

} // namespace launcher
