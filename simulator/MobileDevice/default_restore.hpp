// The restore of a device without scripted reports.
#pragma once

#include "simulator/MobileDevice/restore_plan.hpp"

namespace mobile_device {

// Returns the whole restore where the options' RestoreBundlePath names a usable bundle, and one
// that soon fails otherwise. The options may be null.
std::vector<planned_report> plan_default_restore(device & subject, CFDictionaryRef options);

} // namespace mobile_device
