// Scripted devices and the CoreFoundation objects that stand for them.
#pragma once

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/scenario.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <atomic>

namespace mobile_device {

// How a device shows itself from one arrival to its departure.
struct appearance {
    int state;
    bool recovery_mode_device;
};

class device;

// What an object stands for, with which it goes: an object answers the same for as long as it is
// held.
struct presence {
    device & owner;
    int state = 0;
    cf_owner<AMRecoveryModeDeviceRef> recovery_mode_device = {}; // null: it has none
    void const * object = nullptr;                               // borrowed
};

// A device of the scenario in all its appearances.
class device {
public:
    explicit device(device_description const & description);
    device(device const &) = delete;
    device & operator=(device const &) = delete;

    // What the object stands for; null for null. The use of an object after its last release ends
    // the process in the name of the function.
    static presence const * from(AMRestorableDeviceRef object, char const * function);
    static device * from(AMRecoveryModeDeviceRef object, char const * function);

    // Leaves it to CoreFoundation from now on what a late use of an object leads to, so that no
    // lock is needed.
    static void stop_watching();

    device_description const & description() const { return m_description; }

    // A new object, as each arrival has one of its own.
    cf_owner<AMRestorableDeviceRef> make_object(appearance const & as);

    std::atomic<bool> auto_boot = false;

    appearance const initial;
    appearance const recovery;
    appearance const restore_os;
    appearance const booted_os;

    // Of the delivery thread alone: how the device shows itself, its object while it is attached,
    // and whether the scenario has taken it away for good.
    appearance const * current = &initial;
    cf_owner<AMRestorableDeviceRef> attached;
    bool unplugged = false;

private:
    device_description const & m_description;
};

} // namespace mobile_device
