// A device library that does what a test tells it to, in place of the simulator.
#pragma once

#include "platform/MobileDevice.h"
#include "platform/cf_ownership.hpp"

#include <cstdint>
#include <functional>

namespace tests {

// What a registration is answered with.
constexpr int registered_client = 17;

// What the library does when it is called. When it is asked for notifications and for a restore, it
// may call at once and from any thread, and unlike the real one it may go on after unregistering.
struct library_behaviour {
    std::function<AMDeviceNotificationRef()> on_subscription; // fails where it answers null
    std::function<void(AMDeviceNotificationRef)> on_unsubscription;
    std::function<void(AMRestorableDeviceNotificationCallback, void * context)> on_registration;
    std::function<void(int client)> on_unregistration;
    std::function<void()> on_question_for_state;
    std::function<void(AMRestorableDeviceProgressCallback, void * context)> on_restore;
};

// To be set before the tool runs. Never destroyed.
library_behaviour & stand_in_library();

qnrescue::cf_owner<AMRestorableDeviceRef>
make_device(std::uint64_t ecid, AMRestorableDeviceState state = kAMRestorableDeviceStateRecovery);

} // namespace tests
