#include "simulator/MobileDevice/notification_center.hpp"

namespace mobile_device {

int notification_center::new_client_id() {
    std::lock_guard const lock{mutex};
    return next_id++;
}

bool notification_center::has_client(int id) {
    std::lock_guard const lock{mutex};
    return clients.contains(id);
}

void notification_center::add_client(int id, AMRestorableDeviceNotificationCallback callback,
                                     void * context,
                                     std::span<std::unique_ptr<device> const> devices,
                                     std::span<raw_notification const> notifications) {
    std::lock_guard const lock{mutex};
    clients[id] = {callback, context};
    batch const scripted{shared.time().now(), next_batch++};
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
    std::unique_lock lock{mutex};
    if (id == 0) { // nobody's, and the mark of events and of no notification
        return;
    }
    clients.erase(id);
    std::erase_if(events, [id](event const & what) { return what.client == id; });
    if (std::this_thread::get_id() != thread) {
        shared.time().wait(changed, lock, [this, id] { return notified_client != id; });
    }
}

notification_center::absence notification_center::reappear(device & subject, double leaves_after,
                                                           appearance const & as,
                                                           double returns_after) {
    std::lock_guard const lock{mutex};
    batch const both{shared.time().now(), next_batch++};
    absences.insert(both.number);
    schedule(both, leaves_after, {.what = kind::leaves, .subject = &subject});
    schedule(both, returns_after, {.what = kind::returns, .subject = &subject, .as = &as});
    return both.number;
}

void notification_center::wait_for_return(absence of) {
    std::unique_lock lock{mutex};
    shared.time().wait(changed, lock, [&] { return stopping || !absences.contains(of); });
}

void notification_center::stop() {
    std::lock_guard const lock{mutex};
    stopping = true;
    shared.time().notify(changed);
}

void notification_center::schedule(batch const & with, double after, event what) {
    what.due = with.base + to_duration(after * time_scale);
    what.batch = with.number;
    what.after = after;
    what.order = next_order++;
    events.insert(what);
    if (thread == std::thread::id{}) {
        thread = shared.start_thread([this] { run(); });
    }
    shared.time().notify(changed);
}

void notification_center::run() {
    std::unique_lock lock{mutex};
    while (!stopping) {
        if (events.empty()) {
            shared.time().wait(changed, lock, [this] { return stopping || !events.empty(); });
            continue;
        }
        auto const next = *events.begin();
        auto const overtaken = [&] {
            return stopping || events.empty() || events.begin()->order != next.order;
        };
        if (!shared.time().wait_until(changed, lock, next.due, overtaken)) {
            events.erase(events.begin());
            lock.unlock();
            handle(next);
            lock.lock();
            if (next.what == kind::returns) {
                absences.erase(next.batch);
                shared.time().notify(changed);
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
    std::unique_lock lock{mutex};
    auto const found = clients.find(id);
    if (found == clients.end()) {
        return;
    }
    auto const [callback, context] = found->second;
    notified_client = id;
    lock.unlock();
    if (!shared.has_ended()) {
        callback(object, static_cast<AMRestorableDeviceNotificationType>(type), context);
    }
    lock.lock();
    notified_client = 0;
    shared.time().notify(changed);
}

std::vector<int> notification_center::addressees(event const & what) {
    if (what.client != 0) {
        return {what.client};
    }
    std::lock_guard const lock{mutex};
    std::vector<int> result;
    result.reserve(clients.size());
    for (auto const & each : clients) {
        result.push_back(each.first);
    }
    return result;
}

} // namespace mobile_device
