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
    batch const scripted{m_lifetime.time().now(), m_next_batch++};
    for (auto const & subject : devices) {
        auto const & description = subject->description();
        schedule(scripted, description.connect_after,
                 {.what = kind::plugged, .client = id, .subject = subject.get()});
        if (description.disconnect_after) {
            schedule(scripted, *description.disconnect_after,
                     {.what = kind::unplugged, .client = id, .subject = subject.get()});
        }
    }
    for (auto const & raw : notifications) {
        auto const subject = raw.device ? devices[*raw.device].get() : nullptr;
        schedule(scripted, raw.after,
                 {.what = kind::raw, .client = id, .subject = subject, .type = raw.type});
    }
}

void notification_center::remove_client(int id) {
    std::unique_lock lock{m_mutex};
    if (id == 0) { // nobody's, and the mark of events and of no notification
        return;
    }
    m_clients.erase(id);
    std::erase_if(m_events, [id](event const & what) { return what.client == id; });
    if (std::this_thread::get_id() != m_thread) {
        m_lifetime.time().wait(m_changed, lock, [this, id] { return m_notified_client != id; });
    }
}

notification_center::absence notification_center::reappear(device & subject, double leaves_after,
                                                           appearance const & as,
                                                           double returns_after) {
    std::lock_guard const lock{m_mutex};
    batch const both{m_lifetime.time().now(), m_next_batch++};
    m_absences.insert(both.number);
    schedule(both, leaves_after, {.what = kind::leaves, .subject = &subject});
    schedule(both, returns_after, {.what = kind::returns, .subject = &subject, .as = &as});
    return both.number;
}

void notification_center::wait_for_return(absence of) {
    std::unique_lock lock{m_mutex};
    m_lifetime.time().wait(m_changed, lock, [&] { return m_stopping || !m_absences.contains(of); });
}

void notification_center::stop() {
    std::lock_guard const lock{m_mutex};
    m_stopping = true;
    m_lifetime.time().notify(m_changed);
}

void notification_center::schedule(batch const & with, double after, event what) {
    what.due = with.base + to_duration(after * m_time_scale);
    what.batch = with.number;
    what.after = after;
    what.order = m_next_order++;
    m_events.insert(what);
    if (m_thread == std::thread::id{}) {
        m_thread = m_lifetime.start_thread([this] { run(); });
    }
    m_lifetime.time().notify(m_changed);
}

void notification_center::run() {
    std::unique_lock lock{m_mutex};
    while (!m_stopping) {
        if (m_events.empty()) {
            m_lifetime.time().wait(m_changed, lock,
                                   [this] { return m_stopping || !m_events.empty(); });
            continue;
        }
        auto const next = *m_events.begin();
        auto const overtaken = [&] {
            return m_stopping || m_events.empty() || m_events.begin()->order != next.order;
        };
        if (!m_lifetime.time().wait_until(m_changed, lock, next.due, overtaken)) {
            m_events.erase(m_events.begin());
            lock.unlock();
            handle(next);
            lock.lock();
            if (next.what == kind::returns) {
                m_absences.erase(next.batch);
                m_lifetime.time().notify(m_changed);
            }
        }
    }
}

void notification_center::handle(event const & what) {
    auto const subject = what.subject;
    bool stays = subject && subject->attached;
    switch (what.what) {
    case kind::plugged:
    case kind::unplugged:
        stays = what.what == kind::plugged;
        subject->unplugged = !stays;
        break;
    case kind::returns:
        subject->current = what.as;
        subject->attached = {};
        [[fallthrough]];
    case kind::leaves:
        if (subject->unplugged) {
            return;
        }
        stays = what.what == kind::returns;
        break;
    case kind::raw:
        break;
    }
    bool const departure = what.what == kind::unplugged || what.what == kind::leaves;
    auto const type = what.what == kind::raw ? what.type
                      : departure            ? kAMRestorableDeviceDisconnected
                                             : kAMRestorableDeviceConnected;
    if (subject && !subject->attached) {
        subject->attached = subject->make_object(*subject->current);
    }
    for (auto const id : addressees(what)) {
        notify(id, subject ? subject->attached.get() : nullptr, type);
    }
    if (subject && !stays) {
        subject->attached = {};
    }
}

void notification_center::notify(int id, AMRestorableDeviceRef object, int type) {
    std::unique_lock lock{m_mutex};
    auto const found = m_clients.find(id);
    if (found == m_clients.end()) {
        return;
    }
    auto const [callback, context] = found->second;
    m_notified_client = id;
    lock.unlock();
    if (!m_lifetime.has_ended()) {
        callback(object, static_cast<AMRestorableDeviceNotificationType>(type), context);
    }
    lock.lock();
    m_notified_client = 0;
    m_lifetime.time().notify(m_changed);
}

std::vector<int> notification_center::addressees(event const & what) {
    if (what.client != 0) {
        return {what.client};
    }
    std::lock_guard const lock{m_mutex};
    std::vector<int> result;
    result.reserve(m_clients.size());
    for (auto const & each : m_clients) {
        result.push_back(each.first);
    }
    return result;
}

} // namespace mobile_device
