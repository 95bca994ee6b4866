// Scripted devices and the CoreFoundation objects that represent them.
#pragma once

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/scenario.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace mobile_device {

// The properties that a device has from its arrival to its departure.
struct appearance {
    int state;
    bool recovery_mode_device;
};

class device;

// What an object represents. It is destroyed with the object, and never changes.
struct presence {
    device & owner;
    int state = 0;
    cf_owner<AMRecoveryModeDeviceRef> recovery_mode_device = {}; // null: absent
    void const * object = nullptr;                               // borrowed
};

// A device of the scenario in all its appearances.
class device {
public:
    explicit device(device_description const & description);
    device(device const &) = delete;
    device & operator=(device const &) = delete;

    // Return what the object represents; null for null. The use of an object after its last release
    // ends the process in the name of the function.
    static presence const * from(AMRestorableDeviceRef object, char const * function);
    static device * from(AMRecoveryModeDeviceRef object, char const * function);

    // Ends the check for the use of released objects, so that no lock is needed any more.
    static void stop_watching();

    device_description const & description() const { return described; }

    // Returns what the next call under this key of the scenario returns; null if all calls return
    // what the description says.
    scripted_answer const * next_answer(std::string_view key);

    // Creates an object, as each arrival has another one.
    cf_owner<AMRestorableDeviceRef> make_object(appearance const & as);

    std::atomic<bool> auto_boot = false;
    std::atomic<std::size_t> restores = 0; // that have been planned

    appearance const initial;
    appearance const recovery;
    appearance const restore_os;
    appearance const booted_os;

    // For the delivery thread alone: the present properties, the object while the device is
    // attached, and whether the scenario has unplugged it for good.
    appearance const * current = &initial;
    cf_owner<AMRestorableDeviceRef> attached;
    bool unplugged = false;

    // In a world, for the notification center alone: the latest steps of which the notification has
    // begun, and has been given.
    std::int64_t begun_step = 0;
    std::int64_t shown_step = 0;

private:
    struct answer_sequence {
        std::vector<scripted_answer> const & answers;
        std::atomic<std::size_t> calls = 0;
    };

    device_description const & described;
    std::map<std::string, answer_sequence, std::less<>> sequences;
};

} // namespace mobile_device
