#pragma once

#include "doctor/finding.hpp"
#include "support/filesystem.hpp"

#include <string>
#include <vector>

namespace doctor {

// An installed app of the Microsoft Store that has the platform's libraries.
struct store_package {
    std::string full_name;
    QN::filesystem::path folder; // empty if Windows does not say it
};

// Returns what each package means for a program that takes MobileDevice.dll from this folder
// (empty if it was not found); nothing without packages.
std::vector<finding> store_findings(std::vector<store_package> const & packages,
                                    QN::filesystem::path const & mobile_device);

} // namespace doctor
