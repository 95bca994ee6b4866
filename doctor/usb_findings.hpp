#pragma once

#include "doctor/finding.hpp"

#include <string>
#include <vector>

namespace doctor {

// A USB device as Windows describes it.
struct usb_device {
    std::string instance; // for example USB\VID_05AC&PID_1227\…
    std::string description;
    std::string driver;        // the name of its service; empty if there is none
    unsigned long problem = 0; // the number that the Device Manager shows; 0 for none
};

// Returns the state of the devices that can be restored, of a list of all; a warning if there is
// none. Their serial numbers are left out.
std::vector<finding> usb_findings(std::vector<usb_device> const & devices);

} // namespace doctor
