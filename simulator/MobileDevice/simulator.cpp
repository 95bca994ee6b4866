#include "simulator/MobileDevice/simulator.hpp"

#include "simulator/MobileDevice/process_end.hpp"

#include <mutex>

namespace mobile_device {
namespace {

std::atomic<simulator *> current = nullptr;

void start(scenario played, std::optional<std::string> const & world_path = {}) {
    auto made = std::make_unique<simulator>(std::move(played), clock::system(), world_path);
    prepare_for_process_end();
    current.store(made.release(), std::memory_order_release);
}

// Returns what is wrong with the scenario that the environment names. Then an empty one is played:
// functions that run at the exit may still call.
std::optional<std::string> load() {
    try {
        start(chosen_scenario(), environment_variable("MOBILEDEVICE_SIMULATOR_WORLD"));
        return std::nullopt;
    } catch (scenario_fault const & fault) {
        start({});
        return fault.what();
    }
}

std::vector<std::unique_ptr<device>> make_devices(scenario const & played) {
    std::vector<std::unique_ptr<device>> result;
    result.reserve(played.devices.size());
    for (auto const & description : played.devices) {
        result.push_back(std::make_unique<device>(description));
    }
    return result;
}

void release_objects_of(std::vector<scripted_report> & reports) {
    for (auto & report : reports) {
        report.status = {};
    }
}

void release_objects_of(device_description & description) {
    description.serial_number = {};
    description.product_string = {};
    for (auto & [key, answers] : description.answers) {
        for (auto & answer : answers) {
            answer.text = {};
        }
    }
    if (description.restore_reports) {
        release_objects_of(*description.restore_reports);
    }
    for (auto & reports : description.later_restores) {
        release_objects_of(reports);
    }
}

} // namespace

simulator & simulator::instance() {
    static auto & loading = *new std::mutex;
    if (auto const loaded = existing()) {
        return *loaded;
    }
    std::unique_lock lock{loading};
    auto const fault = existing() ? std::nullopt : load();
    lock.unlock();
    if (fault) {
        exit_for_faulty_scenario(*fault);
    }
    return *existing();
}

simulator * simulator::existing() {
    return current.load(std::memory_order_acquire);
}

void simulator::replace(std::unique_ptr<simulator> other) {
    std::unique_ptr<simulator> const old{current.exchange(other.release())};
}

simulator::simulator(scenario played, clock & time, std::optional<std::string> const & world_path)
    : scripted{std::move(played)}
    , scripted_devices{make_devices(scripted)}
    , shared{time}
    , notifications{shared, scripted.time_scale} {
    if (world_path) {
        world = std::make_unique<shared_world>(
            *world_path, shared_world::surroundings{shared, notifications, scripted_devices,
                                                    scripted.time_scale});
        world->start();
    }
}

simulator::~simulator() {
    end(std::chrono::hours{1});
    for (auto each = latest_restore.load(); each;) {
        std::unique_ptr<restore> const done{each};
        each = each->next;
    }
}

void simulator::add_client(int id, AMRestorableDeviceNotificationCallback callback,
                           void * context) {
    if (world) {
        notifications.add_client_in_world(id, callback, context, scripted_devices,
                                          scripted.notifications, world->began());
    } else {
        notifications.add_client(id, callback, context, scripted_devices, scripted.notifications);
    }
}

void simulator::set_auto_boot(device & subject, bool value) {
    if (world) {
        world->set_auto_boot(subject, value);
    } else {
        subject.auto_boot = value;
    }
}

void simulator::reboot(device & subject, double leaves_after, double returns_after) {
    if (world) {
        world->reboot(subject, leaves_after, returns_after);
    } else {
        auto const & next = subject.auto_boot ? subject.booted_os : subject.recovery;
        notifications.reappear(subject, leaves_after, next, returns_after);
    }
}

restore & simulator::add_restore(device & subject, CFDictionaryRef options) {
    restore::surroundings const around{shared, notifications, recorded_steps, scripted.time_scale,
                                       world.get()};
    auto const added = new restore{around, subject, plan_restore(subject, options)};
    added->next = latest_restore.load();
    while (!latest_restore.compare_exchange_weak(added->next, added)) {
    }
    return *added;
}

bool simulator::end(clock::duration limit) {
    notifications.stop();
    bool const quiet = shared.end(limit);
    recorded_calls.end();
    return quiet;
}

void simulator::release_objects() {
    device::stop_watching();
    for (auto each = latest_restore.load(); each; each = each->next) {
        each->release_objects();
    }
    for (auto const & each : scripted_devices) {
        each->attached = {};
    }
    for (auto & description : scripted.devices) {
        release_objects_of(description);
    }
    scripted.failures.register_for_notifications = {};
    scripted.default_options = {};
}

} // namespace mobile_device
