// The simulated devices of a test program, and the calls that it makes to them.
#pragma once

#include "platform/MobileDevice.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tests {

// Makes the simulator play the scenario, the XML property list of a dictionary without its frame.
// To be called before the program makes any other call to the simulator, by initialising a global
// variable with the result.
bool play_scenario(std::string_view dictionary);

// What a device has in a scenario so that its restore is complete with the first report.
constexpr std::string_view completes_at_once =
    "<key>RestoreReports</key><array><dict><key>Status</key><dict>"
    "<key>Status</key><string>Successful</string><key>Operation</key><integer>0</integer>"
    "<key>Progress</key><integer>100</integer></dict></dict></array>";

// The devices with this ECID, one for each entry of the scenario, as the library delivers them.
// They live as long as the program.
std::vector<AMRestorableDeviceRef> const & devices_with(std::uint64_t ecid);
inline AMRestorableDeviceRef device_with(std::uint64_t ecid) {
    return devices_with(ecid).at(0);
}

// The calls that the library has had since this object was made.
class call_trace {
public:
    call_trace();
    // Those of functions whose names begin like this, as the simulator writes them down.
    std::vector<std::string> calls(std::string_view beginning) const;

private:
    std::uintmax_t const beginning_of_trace; // bytes
};

// The options of the last restore that was asked for, as an XML property list.
std::string last_restore_options();

} // namespace tests
