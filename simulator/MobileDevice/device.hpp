// Scripted devices and the CoreFoundation objects that stand for them.
#pragma once

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/reference.hpp"
#include "simulator/MobileDevice/scenario.hpp"

#include <atomic>

namespace mobile_device {

class device;

// A device from one arrival to its departure: what never changes meanwhile. Each has an object of
// its own, so that a user's reference answers the same for as long as it is held.
struct appearance {
    appearance(device & owner, int shown_state, bool has_recovery_mode_device);

    // Borrowed, as all of this project's callbacks hand it out.
    AMRestorableDeviceRef object() const;
    void release_object() { handle = {}; }

    device & owner;
    int state;
    bool recovery_mode_device;

private:
    reference<CFArrayRef> handle;
};

// A device of the scenario in all its appearances. All objects exist from the start, whether or
// not they will be handed out, and are released together.
class device {
public:
    explicit device(device_description const & description);
    device(device const &) = delete;
    device & operator=(device const &) = delete;

    // The device behind an object; null for null.
    static appearance const * from(AMRestorableDeviceRef object);
    static device * from(AMRecoveryModeDeviceRef object);

    device_description const & description() const { return m_description; }
    // Owned by the caller.
    AMRecoveryModeDeviceRef copy_recovery_mode_device() const;
    void release_objects();

    std::atomic<bool> auto_boot = false;

    appearance initial;
    appearance recovery;
    appearance restore_os;
    appearance booted_os;

    // Of the delivery thread alone: how the device shows itself, and whether the scenario has
    // taken it away for good.
    appearance const * current = &initial;
    bool unplugged = false;

private:
    device_description const & m_description;
    reference<CFArrayRef> m_recovery_mode_device;
};

} // namespace mobile_device
