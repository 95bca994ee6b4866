// What a restore needs of its bundle.
#pragma once

#include <optional>
#include <string>

namespace mobile_device {

// Why a bundle cannot be restored from.
struct bundle_fault {
    int error; // AMR error code
    std::string description;
};

// Nothing where the path (UTF-8) names a ZIP archive or a folder that holds BuildManifest.plist.
std::optional<bundle_fault> check_restore_bundle(std::string const & path);

} // namespace mobile_device
