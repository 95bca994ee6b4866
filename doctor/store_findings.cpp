#include "doctor/store_findings.hpp"

#include "launcher/installation_advice.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <utility>

namespace doctor {

namespace {

// Returns whether a folder is another one or is somewhere in it.
bool is_in(QN::filesystem::path folder, QN::filesystem::path const & other) {
    for (; !folder.empty(); folder = folder.parent_path()) {
        boost::system::error_code ignored;
        if (equivalent(folder, other, ignored)) {
            return true;
        }
        if (folder == folder.root_path()) {
            break;
        }
    }
    return false;
}

finding package_finding(store_package const & package, QN::filesystem::path const & mobile_device) {
    auto const text = fmt::format(
        "The app \"{}\" of the Microsoft Store is installed{}", package.full_name,
        package.folder.empty() ? std::string()
                               : fmt::format(" in \"{}\"", QN::path_to_utf8(package.folder)));
    if (!mobile_device.empty() && !is_in(mobile_device, package.folder)) {
        return {id::store_app, verdict::ok, text + "; its libraries are not used"};
    }
    return {id::store_app, verdict::warning,
            text + "; it keeps its libraries where other programs may not load them",
            std::string("What works instead is a classic installation or a copy. ") +
                launcher::installation_advice};
}

} // namespace

std::vector<finding> store_findings(std::vector<store_package> const & packages,
                                    QN::filesystem::path const & mobile_device) {
    std::vector<finding> findings;
    findings.reserve(packages.size());
    for (auto const & each : packages) {
        findings.push_back(package_finding(each, mobile_device));
    }
    return findings;
}

} // namespace doctor
