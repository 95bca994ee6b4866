// What this process does in a world that it shares with others, and what it sees of them.
#pragma once

#include "simulator/MobileDevice/device.hpp"
#include "simulator/MobileDevice/lifetime.hpp"
#include "simulator/MobileDevice/notification_center.hpp"
#include "simulator/MobileDevice/world_file.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>

namespace mobile_device {

class shared_world {
public:
    struct surroundings {
        lifetime & shared;
        notification_center & center;
        std::span<std::unique_ptr<device> const> devices;
        double time_scale;
    };

    // Joins the world of the file, or begins it where there is no file. Throws scenario_fault.
    // Later faults of the file end the process with a line on standard error and status 70.
    shared_world(std::string const & path, surroundings within);

    // Starts the thread that follows what other processes do.
    void start();

    // Returns when the world began.
    clock::time_point began();

    void set_auto_boot(device & subject, bool value);

    // Lets the device leave and return, as its auto-boot says.
    void reboot(device & subject, double leaves_after, double returns_after);

    // Lets the device leave a number of seconds from now, and return in another appearance later.
    // Returns the number of the step that is its return, for the notification center; 0 for none.
    std::int64_t reappear(device & subject, double leaves_after, appearance const & as,
                          double returns_after);

    // Begins a restore by this process, which is interrupted if the process ends before the restore
    // does.
    void begin_restore(device & subject);
    // Ends the restore. In an appearance, lets the device leave and return like reappear.
    void end_restore(device & subject, double leaves_after, appearance const * as,
                     double returns_after);

private:
    using change = std::function<void(world_device &, world_time now)>;

    void join(world & joined);
    world_time now_in(world const & in);
    world_time scaled_time(double seconds) const { return scaled(seconds, around.time_scale); }
    void change_device(device & subject, change const & apply);
    std::int64_t plan_return(world_device & changed, world_time now, double leaves_after, phase as,
                             double returns_after);
    void interrupt_lost_restores(world & in);
    bool has_news();
    void poll();
    void follow();
    clock::time_point due(world_time at);

    surroundings around;
    process_identity const self = this_process();
    std::mutex mutex; // held before that of the notification center
    world_file file;
    world latest;
};

} // namespace mobile_device
