// One restore, whose reports are delivered on a separate thread.
#pragma once

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/device.hpp"
#include "simulator/MobileDevice/lifetime.hpp"
#include "simulator/MobileDevice/notification_center.hpp"
#include "simulator/MobileDevice/restore_log.hpp"
#include "simulator/MobileDevice/restore_plan.hpp"
#include "simulator/MobileDevice/shared_world.hpp"

#include <vector>

namespace mobile_device {

// Seconds after a report until the device has left, and has returned.
constexpr double leaves_after_report = 0.25;
constexpr double returns_after_report = 0.75;

class restore {
public:
    struct surroundings {
        lifetime & shared;
        notification_center & center;
        restore_log & log;
        double time_scale;
        shared_world * world; // null: the process has the devices to itself
    };

    restore(surroundings within, device & subject, std::vector<planned_report> planned);

    // Starts the thread; called once.
    void start(AMRestorableDeviceRef object, AMRestorableDeviceProgressCallback callback,
               void * context);
    void release_objects();

    restore * next = nullptr; // the one that began before

private:
    void run();
    void play();
    bool end_in_world(planned_report const & planned);
    appearance const * return_of(planned_report const & planned) const;
    void await_return(appearance const & as);
    void report(CFDictionaryRef status);

    surroundings around;
    device & restored;
    std::vector<planned_report> plan;
    cf_owner<AMRestorableDeviceRef> held;
    AMRestorableDeviceProgressCallback report_to = nullptr;
    void * context_of_callback = nullptr;
};

} // namespace mobile_device
