#include "doctor/examine_libraries.hpp"

#include "doctor/library_findings.hpp"
#include "launcher/forwarded_names.hpp"
#include "launcher/installation_advice.hpp"
#include "launcher/load_library.hpp"
#include "launcher/load_platform_libraries.hpp"
#include "launcher/windows_places.hpp"

#include <windows.h>

#include <boost/algorithm/string/predicate.hpp>

#include <fmt/format.h>

#include <string>
#include <utility>

namespace doctor {

namespace {

using launcher::platform_search;
using launcher::search_result;

std::vector<std::string> names_of(launcher::library owner) {
    std::vector<std::string> names;
    for (auto const & each : launcher::forwarded_names) {
        if (each.owner == owner) {
            names.emplace_back(each.name);
        }
    }
    return names;
}

// CoreFoundation.dll is loaded before MobileDevice.dll, which then uses it.
launcher::dependency_search dependencies_of(platform_search const & libraries,
                                            launcher::place const & program) {
    auto const core_foundation = libraries.core_foundation;
    return {[core_foundation](std::string const & name) {
                return boost::algorithm::iequals(name, core_foundation.file_name) &&
                               core_foundation.found()
                           ? core_foundation.path()
                           : QN::filesystem::path();
            },
            launcher::dependency_folders(libraries, program), launcher::system_folder()};
}

void append(std::vector<finding> & findings, std::vector<finding> const & others) {
    findings.insert(findings.end(), others.begin(), others.end());
}

finding load_finding(search_result const & search, launcher::library owner,
                     std::vector<QN::filesystem::path> const & searched) {
    auto const path = QN::path_to_utf8(search.path());
    try {
        auto const & module = launcher::load_library(search.path(), searched);
        auto const missing = launcher::missing_names(module, owner);
        if (missing.empty()) {
            return {id::library_load, verdict::ok, fmt::format("\"{}\" can be loaded", path)};
        }
        return {id::library_load, verdict::problem,
                fmt::format("\"{}\" lacks {}", path, fmt::join(missing, ", ")),
                launcher::installation_advice};
    } catch (launcher::load_error const & error) {
        return {id::library_load, verdict::problem,
                fmt::format("{} cannot be loaded: {}", search.file_name, error.what()),
                launcher::installation_advice};
    }
}

} // namespace

std::vector<finding> examine_libraries(platform_search const & libraries,
                                       launcher::place const & program) {
    auto const & [core_foundation, mobile_device] = libraries;
    auto const dependencies = dependencies_of(libraries, program);
    std::vector<finding> findings =
        library_findings({mobile_device, names_of(launcher::library::MobileDevice), dependencies});
    append(findings, library_findings({core_foundation, names_of(launcher::library::CoreFoundation),
                                       dependencies}));
    if (auto const versions = versions_finding(core_foundation)) {
        findings.push_back(*versions);
    }
    if (auto const other =
            finding_of_32_bit(launcher::installation_of_32_bit(), mobile_device.found())) {
        findings.push_back(*other);
    }
    return findings;
}

std::vector<finding> load_libraries(platform_search const & libraries,
                                    launcher::place const & program) {
    auto const & [core_foundation, mobile_device] = libraries;
    auto const searched = launcher::add_dependency_folders(libraries, program);
    std::vector<finding> findings{
        load_finding(core_foundation, launcher::library::CoreFoundation, searched)};
    if (findings.front().word == verdict::ok) {
        findings.push_back(load_finding(mobile_device, launcher::library::MobileDevice, searched));
    }
    return findings;
}

} // namespace doctor
