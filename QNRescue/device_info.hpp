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

// What --device-info reports of one device.
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
    std::optional<std::string> description; // nothing fills it yet
};

// Reads the properties of the device that has this ECID.
device_info read_device_info(AMRestorableDeviceRef device, QN::ecid const & ecid);

// The record as a dictionary; unsigned numbers become the signed numbers of their width, bit for
// bit. Null where the dictionary cannot be created.
cf_owner<CFDictionaryRef> make_cftype(device_info const & info);

// The texts of the ECIDs, in their order. Null where the array cannot be created.
cf_owner<CFArrayRef> make_cftype(std::span<QN::ecid const> ecids);

} // namespace qnrescue
