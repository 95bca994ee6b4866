// Devices that do nothing, so that what is measured is the tool. Their functions take the place of
// the device library's; all but what the notifier needs answer zero or null.
#pragma once

#include "platform/MobileDevice.h"
#include "platform/cf_ownership.hpp"

#include <cstdint>
#include <vector>

namespace benchmarks {

// An attached device in Recovery.
qnrescue::cf_owner<AMRestorableDeviceRef> make_device(std::uint64_t ecid);

// Devices with scattered ECIDs in no order; the same ones in every run.
std::vector<qnrescue::cf_owner<AMRestorableDeviceRef>> make_devices(std::size_t count);

} // namespace benchmarks
