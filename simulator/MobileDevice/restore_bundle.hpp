// Checks the bundle that a restore is given.
#pragma once

#include <optional>
#include <string>

namespace mobile_device {

// Says why a bundle cannot be restored from.
struct bundle_fault {
    int error; // AMR error code
    std::string description;
};

// Returns nothing if the path (UTF-8) names a ZIP archive or a folder that holds
// BuildManifest.plist.
std::optional<bundle_fault> check_restore_bundle(std::string const & path);

} // namespace mobile_device
