// The table of attached devices: notifications change it, and waitForDevice() reads it.
#include "QNRescue/RestorableDeviceHandler.hpp"
#include "QNRescue/wait_in_slices.hpp"

namespace qnrescue {

void device_notifier_state::handleNotification(char const * callback, AMRestorableDeviceRef device,
                                               AMRestorableDeviceNotificationType type) {
    if (device == nullptr) {
        debug("{}: called with null device", callback);
        return;
    }
    std::unique_lock lock(mutex);
    if (inTeardown) {
        debug("{}: Ignoring notification, inTeardown", callback);
        return;
    }
    if (AMRestorableDeviceGetState(device) == kAMRestorableDeviceStateBootedOS) {
        debug("{}: Ignoring booted device", callback);
        return;
    }
    auto const number = AMRestorableDeviceGetECID(device);
    if (number == 0) {
        debug("{}: Ignoring AMRestorableDevice with invalid ECID ({} type {})", callback,
              fmt::ptr(device), type);
        return;
    }
    QN::ecid const from(number);
    switch (type) {
    case kAMRestorableDeviceConnected:
        connected(callback, from, device);
        break;
    case kAMRestorableDeviceDisconnected:
        disconnected(callback, from);
        break;
    default:
        debug("{}: called with invalid notification type {}", callback, type);
        break;
    }
    lock.unlock();
    condition.notify_all();
}

void device_notifier_state::connected(char const * callback, QN::ecid const & from,
                                      AMRestorableDeviceRef device) {
    auto const entry = devices.find(from);
    if (entry != devices.end()) {
        debug("{}: Connected AMRestorableDevice, but '{}' already present", callback, from);
    }
    debug("{}: Adding '{}' ({})", callback, from, fmt::ptr(device));
    if (entry != devices.end()) {
        entry->second = retain(device);
    } else {
        devices.emplace(from, retain(device));
    }
}

void device_notifier_state::disconnected(char const * callback, QN::ecid const & from) {
    auto const entry = devices.find(from);
    if (entry == devices.end()) {
        debug("{}: Disconnected AMRestorableDevice, but '{}' not present", callback, from);
    }
    debug("{}: Removing '{}'", callback, from);
    if (entry != devices.end()) {
        devices.erase(entry);
    }
}

std::shared_ptr<_AMRestorableDevice> device_notifier_state::waitForDevice(QN::ecid const & sought) {
    debug("{}: Looking for device '{}'", __func__, sought);
    std::unique_lock lock(mutex);
    if (!devices.contains(sought)) {
        debug("{}: Waiting for device '{}'", __func__, sought);
        wait_in_slices(clock, detectTimeout, [&](auto slice_end) {
            while (!devices.contains(sought) && clock.now() < slice_end) {
                clock.wait_until(condition, lock, slice_end);
            }
            return devices.contains(sought);
        });
    }
    auto const entry = devices.find(sought);
    return entry == devices.end() ? nullptr : entry->second;
}

} // namespace qnrescue
