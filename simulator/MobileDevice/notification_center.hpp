// Delivers the arrivals and departures of devices, in time order and on one thread.
#pragma once

#include "platform/MobileDevice.h"
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

class notification_center {
public:
    notification_center(lifetime & shared, double time_scale)
        : m_lifetime{shared}
        , m_time_scale{time_scale} {}

    using absence = std::uint64_t;

    int new_client_id();
    bool has_client(int id);

    // Starts to notify the client of what the scenario scripts, counted from now.
    void add_client(int id, AMRestorableDeviceNotificationCallback callback, void * context,
                    std::span<std::unique_ptr<device> const> devices,
                    std::span<raw_notification const> notifications);

    // Once this has returned, the client is not called any more; a call under way is waited for,
    // unless this is that very call.
    void remove_client(int id);

    // The device leaves a number of seconds from then on, and returns in another appearance later.
    // Tells all clients, unless the scenario has taken the device away meanwhile.
    absence reappear(device & subject, double leaves_after, appearance const & as,
                     double returns_after);

    // Returns once all clients know of the device's return, or there is no telling them any more.
    // Not for use inside a notification.
    void wait_for_return(absence of);

    // Lets the thread end as soon as no callback holds it up.
    void stop();

private:
    enum class kind { plugged, unplugged, raw, leaves, returns };

    struct event {
        clock::time_point due = {};
        std::uint64_t batch = 0; // scheduled together: keeps others out where all is due at once
        double after = 0;        // seconds before scaling: keeps the order when the scale is 0
        std::uint64_t order = 0; // of creation: keeps what is due together in order
        kind what = kind::raw;
        int client = 0;             // 0: all
        device * subject = nullptr; // null: none
        appearance const * as = nullptr;
        int type = 0;

        bool operator<(event const & other) const {
            return std::tie(due, batch, after, order) <
                   std::tie(other.due, other.batch, other.after, other.order);
        }
    };

    struct client {
        AMRestorableDeviceNotificationCallback callback;
        void * context;
    };

    struct batch {
        clock::time_point base;
        std::uint64_t number;
    };

    void schedule(batch const & with, double after, event what);
    void run();
    void handle(event const & what);
    void notify(int id, AMRestorableDeviceRef object, int type);
    std::vector<int> addressees(event const & what);

    lifetime & m_lifetime;
    double const m_time_scale;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<int, client> m_clients;
    std::set<event> m_events;
    std::set<absence> m_absences; // batches of devices that have not returned
    std::uint64_t m_next_batch = 0;
    std::uint64_t m_next_order = 0;
    int m_next_id = 1;
    int m_notified_client = 0; // the one whose callback is under way
    bool m_stopping = false;
    std::thread::id m_thread;
};

} // namespace mobile_device
