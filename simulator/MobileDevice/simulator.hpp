// The simulated platform as a whole: what all calls share.
#pragma once

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/device.hpp"
#include "simulator/MobileDevice/lifetime.hpp"
#include "simulator/MobileDevice/notification_center.hpp"
#include "simulator/MobileDevice/restore.hpp"
#include "simulator/MobileDevice/restore_log.hpp"
#include "simulator/MobileDevice/scenario.hpp"
#include "simulator/MobileDevice/trace.hpp"

#include <atomic>
#include <memory>
#include <vector>

namespace mobile_device {

class simulator {
public:
    // Plays the scenario that the environment names, which the first call reads. One that cannot
    // be understood ends the process with a line on standard error and status 70. Never destroyed,
    // as threads may use it until the process is gone.
    static simulator & instance();

    // Null before the first call.
    static simulator * existing();

    // Puts another one in the place of the present one, whose threads are waited for. For tests
    // alone; null lets the next call read the environment again.
    static void replace(std::unique_ptr<simulator> other);

    explicit simulator(scenario played, clock & time = clock::system());
    simulator(simulator const &) = delete;
    simulator & operator=(simulator const &) = delete;
    ~simulator();

    scenario const & played() const { return m_scenario; }
    std::vector<std::unique_ptr<device>> const & devices() const { return m_devices; }
    trace & calls() { return m_trace; }
    restore_log & log() { return m_log; }
    notification_center & center() { return m_center; }
    clock & time() { return m_lifetime.time(); }

    // A restore that has not started yet; kept as long as the simulator.
    restore & add_restore(device & subject, CFDictionaryRef options);

    // Ends all activity; answers whether no callback is left under way.
    bool end(clock::duration limit);

    // Gives up every CoreFoundation object that the simulator holds. Only once nothing else can
    // use them. Takes no lock: other threads may have been killed anywhere.
    void release_objects();

private:
    scenario m_scenario;
    std::vector<std::unique_ptr<device>> m_devices;
    trace m_trace;
    restore_log m_log;
    lifetime m_lifetime;
    notification_center m_center;
    std::atomic<restore *> m_latest_restore = nullptr;
};

} // namespace mobile_device
