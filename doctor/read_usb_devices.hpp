#pragma once

#include "doctor/usb_findings.hpp"

#include <vector>

namespace doctor {

// Returns all USB devices that are attached. Throws win32_error.
std::vector<usb_device> read_usb_devices();

} // namespace doctor
