// The simulated platform as a whole: what all calls share.
#pragma once

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/device.hpp"
#include "simulator/MobileDevice/lifetime.hpp"
#include "simulator/MobileDevice/notification_center.hpp"
#include "simulator/MobileDevice/restore.hpp"
#include "simulator/MobileDevice/restore_log.hpp"
#include "simulator/MobileDevice/scenario.hpp"
#include "simulator/MobileDevice/shared_world.hpp"
#include "simulator/MobileDevice/trace.hpp"

#include <atomic>
#include <memory>
#include <vector>

namespace mobile_device {

class simulator {
public:
    // Returns the simulator of the scenario that the environment names, which the first call reads.
    // An invalid one ends the process with a line on standard error and status 70. Never destroyed,
    // as threads may use it until the process is gone.
    static simulator & instance();

    // Returns the simulator; null before the first call.
    static simulator * existing();

    // Replaces the present simulator, and waits for its threads. For tests alone; after null, the
    // next call reads the environment again.
    static void replace(std::unique_ptr<simulator> other);

    // Joins the world of the file, if one is named. Throws scenario_fault if that is broken.
    explicit simulator(scenario played, clock & time = clock::system(),
                       std::optional<std::string> const & world_path = {});
    simulator(simulator const &) = delete;
    simulator & operator=(simulator const &) = delete;
    ~simulator();

    scenario const & played() const { return scripted; }
    std::vector<std::unique_ptr<device>> const & devices() const { return scripted_devices; }
    trace & calls() { return recorded_calls; }
    restore_log & log() { return recorded_steps; }
    notification_center & center() { return notifications; }
    clock & time() { return shared.time(); }

    // Notifies a client, from now on.
    void add_client(int id, AMRestorableDeviceNotificationCallback callback, void * context);

    void set_auto_boot(device & subject, bool value);

    // Lets the device leave and return, as its auto-boot says.
    void reboot(device & subject, double leaves_after, double returns_after);

    // Creates a restore, which has not started yet and is kept as long as the simulator.
    restore & add_restore(device & subject, CFDictionaryRef options);

    // Ends all activity; returns whether no callback is still running.
    bool end(clock::duration limit);

    // Releases every CoreFoundation object that the simulator holds. Only once nothing else can use
    // them. Takes no lock: other threads may have been killed anywhere.
    void release_objects();

private:
    scenario scripted;
    std::vector<std::unique_ptr<device>> scripted_devices;
    trace recorded_calls;
    restore_log recorded_steps;
    lifetime shared;
    notification_center notifications;
    std::unique_ptr<shared_world> world; // null: this process has the devices to itself
    std::atomic<restore *> latest_restore = nullptr;
};

} // namespace mobile_device
