// A device library that does what a test or a benchmark says, in place of the simulator. What the
// notifier does not need returns zero or null.
#pragma once

#include "platform/MobileDevice.h"
#include "platform/cf_ownership.hpp"

#include <cstdint>
#include <functional>

namespace tests {

// The client number that a registration returns.
constexpr int registered_client = 17;

// What the library does when it is called. When it is asked for notifications and for a restore, it
// may call at once and from any thread, and unlike the real one it may go on after unregistering.
struct library_behaviour {
    std::function<AMDeviceNotificationRef()> on_subscription; // fails where it returns null
    std::function<void(AMDeviceNotificationRef)> on_unsubscription;
    std::function<void(AMRestorableDeviceNotificationCallback, void * context)> on_registration;
    std::function<void(int client)> on_unregistration;
    std::function<void()> on_question_for_state;
    std::function<void(AMRestorableDeviceProgressCallback, void * context)> on_restore;
};

// Returns the behaviour of the library, to be set before the tool runs. It is never destroyed.
library_behaviour & fake_device_library();

// Makes a device, which is attached once a test notifies the tool of it.
qnrescue::cf_owner<AMRestorableDeviceRef>
make_device(std::uint64_t ecid, AMRestorableDeviceState state = kAMRestorableDeviceStateRecovery);

} // namespace tests
