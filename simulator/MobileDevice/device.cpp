#include "simulator/MobileDevice/device.hpp"

#include "simulator/MobileDevice/live_objects.hpp"
#include "simulator/MobileDevice/trap.hpp"

#include <algorithm>
#include <memory>

namespace mobile_device {
namespace {

void end_presence(CFAllocatorRef, void const * ending) {
    std::unique_ptr<presence const> const target{static_cast<presence const *>(ending)};
    live_objects::instance().remove(target->object);
}

// The objects of this library are arrays with one element, as CoreFoundation has no public way to
// add types.
CFArrayCallBacks const one_presence{0, nullptr, end_presence, nullptr, nullptr};

template <typename Object>
cf_owner<Object> make_object_of(presence contents) {
    auto const target = new presence{std::move(contents)};
    void const * element = target;
    auto const object = CFArrayCreate(kCFAllocatorDefault, &element, 1, &one_presence);
    target->object = object;
    live_objects::instance().add(object);
    return adopt(reinterpret_cast<Object>(const_cast<__CFArray *>(object)));
}

bool ever_has_recovery_mode_device(device_description const & description) {
    auto const found = description.answers.find("RecoveryModeDevice");
    return found == description.answers.end()
               ? description.recovery_mode_device
               : std::ranges::any_of(found->second, [](auto const & each) { return each.bits; });
}

presence const * presence_of(void const * object, char const * function) {
    if (object == nullptr) {
        return nullptr;
    }
    if (!live_objects::instance().contains(object)) {
        trap(function, "the device has been released");
    }
    return static_cast<presence const *>(
        CFArrayGetValueAtIndex(static_cast<CFArrayRef>(object), 0));
}

} // namespace

device::device(device_description const & description)
    : initial{description.state, ever_has_recovery_mode_device(description)}
    , recovery{kAMRestorableDeviceStateRecovery, description.recovery_mode_device}
    , restore_os{kAMRestorableDeviceStateRestoreOS, false}
    , booted_os{kAMRestorableDeviceStateBootedOS, false}
    , described{description} {
    for (auto const & [key, answers] : description.answers) {
        sequences.try_emplace(key, answers);
    }
}

presence const * device::from(AMRestorableDeviceRef object, char const * function) {
    return presence_of(object, function);
}

device * device::from(AMRecoveryModeDeviceRef object, char const * function) {
    auto const shown = presence_of(object, function);
    return shown ? &shown->owner : nullptr;
}

void device::stop_watching() {
    live_objects::instance().stop();
}

scripted_answer const * device::next_answer(std::string_view key) {
    auto const found = sequences.find(key);
    if (found == sequences.end()) {
        return nullptr;
    }
    auto & [answers, calls] = found->second;
    return &answers[std::min(calls.fetch_add(1), answers.size() - 1)];
}

cf_owner<AMRestorableDeviceRef> device::make_object(appearance const & as) {
    presence shown{.owner = *this, .state = as.state};
    if (as.recovery_mode_device) {
        shown.recovery_mode_device = make_object_of<AMRecoveryModeDeviceRef>({.owner = *this});
    }
    return make_object_of<AMRestorableDeviceRef>(std::move(shown));
}

} // namespace mobile_device
