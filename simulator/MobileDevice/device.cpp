#include "simulator/MobileDevice/device.hpp"

namespace mobile_device {
namespace {

// An array without callbacks of its own may hold any pointer. It is what this library's objects
// are made of, as CoreFoundation lets nobody add types.
reference<CFArrayRef> make_handle(void const * target) {
    return reference<CFArrayRef>::adopt(CFArrayCreate(kCFAllocatorDefault, &target, 1, nullptr));
}

void const * target_of(void const * handle) {
    return handle ? CFArrayGetValueAtIndex(static_cast<CFArrayRef>(handle), 0) : nullptr;
}

template <typename Object>
Object as_object(CFArrayRef handle) {
    return reinterpret_cast<Object>(const_cast<__CFArray *>(handle));
}

} // namespace

appearance::appearance(device & its_owner, int shown_state, bool has_recovery_mode_device)
    : owner{its_owner}
    , state{shown_state}
    , recovery_mode_device{has_recovery_mode_device}
    , handle{make_handle(this)} {}

AMRestorableDeviceRef appearance::object() const {
    return as_object<AMRestorableDeviceRef>(handle.get());
}

device::device(device_description const & description)
    : initial{*this, description.state, description.recovery_mode_device}
    , recovery{*this, kAMRestorableDeviceStateRecovery, description.recovery_mode_device}
    , restore_os{*this, kAMRestorableDeviceStateRestoreOS, false}
    , booted_os{*this, kAMRestorableDeviceStateBootedOS, false}
    , m_description{description}
    , m_recovery_mode_device{make_handle(this)} {}

appearance const * device::from(AMRestorableDeviceRef object) {
    return static_cast<appearance const *>(target_of(object));
}

device * device::from(AMRecoveryModeDeviceRef object) {
    return static_cast<device *>(const_cast<void *>(target_of(object)));
}

AMRecoveryModeDeviceRef device::copy_recovery_mode_device() const {
    auto copy = m_recovery_mode_device;
    return as_object<AMRecoveryModeDeviceRef>(copy.release());
}

void device::release_objects() {
    for (auto const shown : {&initial, &recovery, &restore_os, &booted_os}) {
        shown->release_object();
    }
    m_recovery_mode_device = {};
}

} // namespace mobile_device
