#include "simulator/MobileDevice/notification_center.hpp"

namespace mobile_device {

int notification_center::new_client_id() {
    std::lock_guard const lock{m_mutex};
    return m_next_id++;
}

bool notification_center::has_client(int id) {
    std::lock_guard const lock{m_mutex};
    return m_clients.contains(id);
}

void notification_center::add_client(int id, AMRestorableDeviceNotificationCallback callback,
                                     void * context,
                                     std::span<std::unique_ptr<device> const> devices,
                                     std::span<raw_notification const> notifications) {
    std::lock_guard const lock{m_mutex};
    m_clients[id] = {callback, context};
    auto const now = clock::now();
    for (auto const & subject : devices) {
        auto const & description = subject->description();
        schedule(now, description.connect_after,
                 {.what = kind::plugged, .client = id, .subject = subject.get()});
        if (description.disconnect_after) {
            schedule(now, *description.disconnect_after,
                     {.what = kind::unplugged, .client = id, .subject = subject.get()});
        }
    }
    for (auto const & raw : notifications) {
        auto const subject = raw.device ? devices[*raw.device].get() : nullptr;
        schedule(now, raw.after,
                 {.what = kind::raw, .client = id, .subject = subject, .type = raw.type});
    }
}

void notification_center::remove_client(int id) {
    std::unique_lock lock{m_mutex};
    m_clients.erase(id);
    std::erase_if(m_events, [id](event const & what) { return what.client == id; });
    if (std::this_thread::get_id() != m_thread) {
        m_changed.wait(lock, [this, id] { return m_notified_client != id; });
    }
}

void notification_center::reappear(device & subject, double leaves_after, appearance const & as,
                                   double returns_after) {
    std::lock_guard const lock{m_mutex};
    auto const now = clock::now();
    schedule(now, leaves_after, {.what = kind::leaves, .subject = &subject});
    schedule(now, returns_after, {.what = kind::returns, .subject = &subject, .as = &as});
}

void notification_center::stop() {
    std::lock_guard const lock{m_mutex};
    m_stopping = true;
    m_changed.notify_all();
}

void notification_center::schedule(clock::time_point base, double after, event what) {
    what.due = base + to_duration(after * m_time_scale);
    what.after = after;
    what.order = m_next_order++;
    m_events.insert(what);
    if (m_thread == std::thread::id{}) {
        m_thread = m_lifetime.start_thread([this] { run(); });
    }
    m_changed.notify_all();
}

void notification_center::run() {
    std::unique_lock lock{m_mutex};
    while (!m_stopping) {
        if (m_events.empty()) {
            m_changed.wait(lock);
            continue;
        }
        auto const next = *m_events.begin();
        auto const overtaken = [&] {
            return m_stopping || m_events.empty() || m_events.begin()->order != next.order;
        };
        if (!wait_until(m_changed, lock, next.due, overtaken)) {
            m_events.erase(m_events.begin());
            lock.unlock();
            handle(next);
            lock.lock();
        }
    }
}

void notification_center::handle(event const & what) {
    auto const subject = what.subject;
    switch (what.what) {
    case kind::plugged:
    case kind::unplugged:
        subject->unplugged = what.what == kind::unplugged;
        break;
    case kind::returns:
        subject->current = what.as;
        [[fallthrough]];
    case kind::leaves:
        if (subject->unplugged) {
            return;
        }
        break;
    case kind::raw:
        break;
    }
    bool const departure = what.what == kind::unplugged || what.what == kind::leaves;
    auto const type = what.what == kind::raw ? what.type
                      : departure            ? kAMRestorableDeviceDisconnected
                                             : kAMRestorableDeviceConnected;
    for (auto const id : addressees(what)) {
        notify(id, subject ? subject->current : nullptr, type);
    }
}

void notification_center::notify(int id, appearance const * shown, int type) {
    std::unique_lock lock{m_mutex};
    auto const found = m_clients.find(id);
    if (found == m_clients.end()) {
        return;
    }
    auto const [callback, context] = found->second;
    m_notified_client = id;
    lock.unlock();
    if (!m_lifetime.has_ended()) {
        callback(shown ? shown->object() : nullptr,
                 static_cast<AMRestorableDeviceNotificationType>(type), context);
    }
    lock.lock();
    m_notified_client = 0;
    m_changed.notify_all();
}

std::vector<int> notification_center::addressees(event const & what) {
    if (what.client != 0) {
        return {what.client};
    }
    std::lock_guard const lock{m_mutex};
    std::vector<int> result;
    for (auto const & each : m_clients) {
        result.push_back(each.first);
    }
    return result;
}

} // namespace mobile_device
