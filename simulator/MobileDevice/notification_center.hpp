// Delivers the arrivals and departures of devices, one after the other in time order, and on one
// thread unless the scenario names others.
#pragma once

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/callback_threads.hpp"
#include "simulator/MobileDevice/device.hpp"
#include "simulator/MobileDevice/lifetime.hpp"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <thread>
#include <tuple>
#include <vector>

namespace mobile_device {

// In a world, a device's arrival in an appearance, or its departure.
struct planned_step {
    std::int64_t number; // rises from step to step, from 1 on
    clock::time_point due;
    appearance const * as; // null: the device leaves
};

class notification_center {
public:
    notification_center(lifetime & threads, double scale)
        : shared{threads}
        , time_scale{scale}
        , other_threads{threads} {}

    using absence = std::uint64_t;

    int new_client_id();
    bool has_client(int id);

    // Starts to notify the client of what the scenario scripts, counted from now.
    void add_client(int id, AMRestorableDeviceNotificationCallback callback, void * context,
                    std::span<std::unique_ptr<device> const> devices,
                    std::span<raw_notification const> notifications);

    // In a world: starts to notify the client, first of the devices that are attached, and then of
    // what follow plans and the scenario scripts, counted from when the world began.
    void add_client_in_world(int id, AMRestorableDeviceNotificationCallback callback,
                             void * context, std::span<std::unique_ptr<device> const> devices,
                             std::span<raw_notification const> notifications,
                             clock::time_point world_began);

    // In a world: replaces what is planned for a device, except steps that have begun, and notifies
    // all clients in time.
    void follow(device & subject, std::span<planned_step const> steps);

    // Waits until all clients have been notified of the step, or nobody is notified any more. Not
    // for use inside a notification.
    void wait_for_step(device & subject, std::int64_t number);

    // Removes the client, which is not called any more once this has returned; waits for a running
    // call, unless called by it.
    void remove_client(int id);

    // Lets the device leave a number of seconds from now, and return in another appearance later;
    // notifies all clients, unless the scenario has unplugged the device meanwhile.
    absence reappear(device & subject, double leaves_after, appearance const & as,
                     double returns_after);

    // Waits until all clients have been notified of the device's return, or nobody is notified any
    // more. Not for use inside a notification.
    void wait_for_return(absence of);

    // Ends the thread as soon as no callback is running.
    void stop();

private:
    enum class kind { plugged, unplugged, raw, leaves, returns, step, greeting };

    struct event {
        clock::time_point due = {};
        std::uint64_t batch = 0; // scheduled together: keeps others out where all is due at once
        double after = 0;        // seconds before scaling: keeps the order when the scale is 0
        std::uint64_t order = 0; // of creation: keeps what is due together in order
        kind what = kind::raw;
        int client = 0;             // 0: all
        device * subject = nullptr; // null: no device
        appearance const * as = nullptr;
        int type = 0;
        int on_thread = 0;
        std::int64_t number = 0; // of a step

        bool operator<(event const & other) const {
            return std::tie(due, batch, after, order) <
                   std::tie(other.due, other.batch, other.after, other.order);
        }
    };

    struct client {
        AMRestorableDeviceNotificationCallback callback;
        void * context;
        // In a world: those of which it is to be notified first.
        std::span<std::unique_ptr<device> const> unseen = {};
    };

    struct batch {
        clock::time_point base;
        std::uint64_t number;
    };

    void schedule_raw(batch const & with, int id, std::span<std::unique_ptr<device> const> devices,
                      raw_notification const & raw);
    void schedule(batch const & with, double after, event what);
    void add(event what);
    void run();
    void handle(event const & what);
    void show_step(event const & what);
    void greet(int id);
    void notify_all(device & subject, int type);
    void notify(int id, AMRestorableDeviceRef object, int type, int on_thread = 0);
    void call(client const & called, AMRestorableDeviceRef object, int type);
    std::vector<int> addressees(event const & what);

    lifetime & shared;
    double const time_scale;
    callback_threads other_threads;

    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, client> clients;
    std::set<event> events;
    std::set<absence> absences; // batches of devices that have not returned
    std::uint64_t next_batch = 0;
    std::uint64_t next_order = 0;
    int next_id = 1;
    int notified_client = 0; // the one whose callback is running
    std::thread::id calling; // the thread of the latest callback
    bool stopping = false;
    std::thread::id thread;
};

} // namespace mobile_device
