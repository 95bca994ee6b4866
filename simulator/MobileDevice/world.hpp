// What the processes of a world share: the content of its file.
#pragma once

#include "simulator/MobileDevice/process_identity.hpp"
#include "simulator/MobileDevice/scenario.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <vector>

namespace mobile_device {

// Since the world began.
using world_time = std::chrono::microseconds;

// How a device appears. What is unplugged never returns.
enum class phase { away, initial, recovery, restore_os, booted_os, unplugged };

// From a moment on, a device appears in another way.
struct world_step {
    std::int64_t number = 0; // rises from step to step, from 1 on
    world_time at = {};
    phase as = phase::away;

    bool operator==(world_step const &) const = default;
};

// A restore under way, and when the process that carries it out was last known to run.
struct world_restore {
    process_identity owner;
    world_time alive = {};

    bool operator==(world_restore const &) const = default;
};

struct world_device {
    std::uint64_t ecid = 0;
    bool auto_boot = false;
    std::vector<world_step> course; // in the order of time, never empty
    std::optional<world_restore> restore = {};

    // Returns how the device appears.
    phase at(world_time now) const;

    struct change {
        world_time at;
        phase as;
    };
    // Replaces what is planned from the moment on by the changes, as far as the device has not been
    // unplugged before. Returns the number of the last change; 0 where that is left out.
    std::int64_t change_from(world_time from, std::initializer_list<change> changes);

    // Ends the restore, if there is one, as the end of its process does: the device is in Recovery
    // so long after its last sign of life, and away just before.
    void interrupt_restore(world_time after, world_time away);

    // Removes the steps that no process needs any more.
    void forget_before(world_time now);

    bool operator==(world_device const &) const = default;
};

struct world {
    std::chrono::sys_time<std::chrono::microseconds> began = {};
    std::vector<world_device> devices = {};

    // Returns the device; null if the world has none with this ECID.
    world_device * find(std::uint64_t ecid);

    bool operator==(world const &) const = default;
};

// Returns a device that comes and goes as the scenario says.
world_device make_world_device(device_description const & description, double time_scale);

// Returns the seconds of a scenario as the world counts.
world_time scaled(double seconds, double time_scale);

// Reads the content of a file. Throws scenario_fault.
world parse_world(std::span<std::uint8_t const> bytes);

// Returns the content of the file of this world, a property list in XML.
cf_owner<CFDataRef> make_property_list(world const & written);

} // namespace mobile_device
