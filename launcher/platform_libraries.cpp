#include "launcher/platform_libraries.hpp"

#include "launcher/forwarded_names.hpp"
#include "launcher/installed_libraries.hpp"
#include "launcher/permanent_module.hpp"
#include "support/win/win32_error.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <stdexcept>
#include <vector>

namespace launcher {

namespace {

constexpr auto advice =
    "Install or update \"Apple Devices\" or \"iTunes for Windows\", which bring "
    "both libraries, and try again. A library in the program's folder is used "
    "before an installed one.";

std::string missing_names(QN::win::win32_module const & module, library owner) {
    std::vector<char const *> missing;
    for (auto const & forwarded : forwarded_names) {
        if (forwarded.owner == owner && module.find_proc_address(forwarded.name) == nullptr) {
            missing.push_back(forwarded.name);
        }
    }
    constexpr std::size_t most = 5;
    if (missing.size() <= most) {
        return fmt::format("{}", fmt::join(missing, ", "));
    }
    return fmt::format("{} and {} more", fmt::join(std::span(missing).first(most), ", "),
                       missing.size() - most);
}

// Answers the report of what is wrong with the library; an empty one where it can be used.
std::string load(library_search const & search, library owner) {
    try {
        auto const missing = missing_names(load_permanently(search.path()), owner);
        if (missing.empty()) {
            return {};
        }
        return search.report(fmt::format("{} lacks {}", QN::path_to_utf8(search.path()), missing));
    } catch (QN::win::win32_error const & error) {
        return search.report(
            fmt::format("{} cannot be loaded: {}", search.file_name(), error.what()));
    }
}

std::string report_if_not_found(library_search const & search) {
    return search.found() ? std::string() : search.report(search.file_name() + " was not found");
}

void throw_if(std::string const & faults) {
    if (!faults.empty()) {
        throw std::runtime_error(faults + advice);
    }
}

} // namespace

void load_platform_libraries(place const & program) {
    auto const libraries = find_platform_libraries(program);
    auto const & [core_foundation, mobile_device] = libraries;
    throw_if(report_if_not_found(mobile_device) + report_if_not_found(core_foundation));

    bool const installed =
        core_foundation.folder() != program.folder || mobile_device.folder() != program.folder;
    if (installed) {
        add_installed_folders(libraries);
    }
    // In this order the second takes the first, and no other of its name.
    throw_if(load(core_foundation, library::CoreFoundation));
    throw_if(load(mobile_device, library::MobileDevice));
}

} // namespace launcher
