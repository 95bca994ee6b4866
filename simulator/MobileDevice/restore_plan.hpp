// Plans the reports of a restore.
#pragma once

#include "simulator/MobileDevice/device.hpp"
#include "simulator/MobileDevice/scenario.hpp"

#include <vector>

namespace mobile_device {

struct planned_report {
    scripted_report report;
    appearance const * returns_as = nullptr; // the device leaves and returns before what follows
};

// Returns the reports of the device's next restore: those of its scenario or, without them, of the
// default restore with these options, which may be null.
std::vector<planned_report> plan_restore(device & subject, CFDictionaryRef options);

} // namespace mobile_device
