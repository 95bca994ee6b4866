#pragma once

#include "platform/MobileDevice.h"
#include "platform/cf_ownership.hpp"
#include "support/identifiers/ecid.hpp"
#include "support/identifiers/serial_number.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace qnrescue {

// What --device-info reports about one device.
struct device_info {
    QN::ecid ecid;
    std::uint16_t productID;
    std::uint32_t boardID;
    std::uint32_t chipID;
    std::uint32_t productType;
    std::uint32_t fusingInfo;
    std::uint32_t locationID;
    std::optional<QN::serial_number> serialNumber;
    std::optional<std::string> productString;
    std::optional<std::string> description; // never set
};

// Returns the properties of the device, which has this ECID.
device_info read_device_info(AMRestorableDeviceRef device, QN::ecid const & ecid);

// Returns the record as a dictionary, or null where it cannot be created. Unsigned numbers become
// signed numbers of the same width and the same bits.
cf_owner<CFDictionaryRef> make_cftype(device_info const & info);

// Returns the texts of the ECIDs in the same order, or null where the array cannot be created.
cf_owner<CFArrayRef> make_cftype(std::span<QN::ecid const> ecids);

} // namespace qnrescue
