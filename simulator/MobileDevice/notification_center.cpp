#include "simulator/MobileDevice/notification_center.hpp"

#include <utility>

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
        if (description.connects) {
            schedule(scripted, description.connect_after,
                     {.what = kind::plugged,
                      .client = id,
                      .subject = subject.get(),
                      .on_thread = description.connect_thread});
        }
        if (description.disconnect_after) {
            schedule(scripted, *description.disconnect_after,
                     {.what = kind::unplugged,
                      .client = id,
                      .subject = subject.get(),
                      .on_thread = description.disconnect_thread});
        }
    }
    for (auto const & raw : notifications) {
        schedule_raw(scripted, id, devices, raw);
    }
}

void notification_center::add_client_in_world(int id,
                                              AMRestorableDeviceNotificationCallback callback,
                                              void * context,
                                              std::span<std::unique_ptr<device> const> devices,
                                              std::span<raw_notification const> notifications,
                                              clock::time_point world_began) {
    std::lock_guard const lock{mutex};
    auto const now = shared.time().now();
    clients[id] = {callback, context, devices};
    schedule({now, next_batch++}, 0, {.what = kind::greeting, .client = id});
    batch const scripted{world_began, next_batch++};
    for (auto const & raw : notifications) {
        if (world_began + to_duration(raw.after * time_scale) > now) {
            schedule_raw(scripted, id, devices, raw);
        }
    }
}

void notification_center::follow(device & subject, std::span<planned_step const> steps) {
    std::lock_guard const lock{mutex};
    std::erase_if(events, [&subject](event const & each) {
        return each.what == kind::step && each.subject == &subject;
    });
    auto const number = next_batch++;
    for (auto const & step : steps) {
        if (step.number > subject.begun_step) {
            add({.due = step.due,
                 .batch = number,
                 .what = kind::step,
                 .subject = &subject,
                 .as = step.as,
                 .number = step.number});
        }
    }
}

void notification_center::wait_for_step(device & subject, std::int64_t number) {
    std::unique_lock lock{mutex};
    shared.time().wait(changed, lock, [&] { return stopping || subject.shown_step >= number; });
}

void notification_center::remove_client(int id) {
    std::unique_lock lock{mutex};
    if (id == 0) { // nobody's, and the mark of events and of no notification
        return;
    }
    clients.erase(id);
    std::erase_if(events, [id](event const & what) { return what.client == id; });
    if (std::this_thread::get_id() != calling) {
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
    other_threads.stop();
    std::lock_guard const lock{mutex};
    stopping = true;
    shared.time().notify(changed);
}

void notification_center::schedule_raw(batch const & with, int id,
                                       std::span<std::unique_ptr<device> const> devices,
                                       raw_notification const & raw) {
    auto const subject = raw.device ? devices[*raw.device].get() : nullptr;
    schedule(with, raw.after,
             {.what = kind::raw,
              .client = id,
              .subject = subject,
              .type = raw.type,
              .on_thread = raw.thread});
}

void notification_center::schedule(batch const & with, double after, event what) {
    what.due = with.base + to_duration(after * time_scale);
    what.batch = with.number;
    what.after = after;
    add(what);
}

void notification_center::add(event what) {
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
            if (next.what == kind::step) {
                next.subject->begun_step = next.number;
            }
            lock.unlock();
            handle(next);
            lock.lock();
            if (next.what == kind::returns) {
                absences.erase(next.batch);
                shared.time().notify(changed);
            } else if (next.what == kind::step) {
                next.subject->shown_step = next.number;
                shared.time().notify(changed);
            }
        }
    }
}

void notification_center::handle(event const & what) {
    if (what.what == kind::step) {
        show_step(what);
        return;
    }
    if (what.what == kind::greeting) {
        greet(what.client);
        return;
    }
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
    case kind::step:
    case kind::greeting:
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
        notify(id, subject ? subject->attached.get() : nullptr, type, what.on_thread);
    }
    if (subject && !stays) {
        subject->attached = {};
    }
}

void notification_center::show_step(event const & what) {
    auto & subject = *what.subject;
    if (subject.attached) {
        notify_all(subject, kAMRestorableDeviceDisconnected);
        subject.attached = {};
    }
    if (what.as) {
        subject.current = what.as;
        subject.attached = subject.make_object(*what.as);
        notify_all(subject, kAMRestorableDeviceConnected);
    }
}

void notification_center::greet(int id) {
    std::unique_lock lock{mutex};
    auto const found = clients.find(id);
    if (found == clients.end()) {
        return;
    }
    auto const devices = std::exchange(found->second.unseen, {});
    lock.unlock();
    for (auto const & each : devices) {
        if (each->attached) {
            notify(id, each->attached.get(), kAMRestorableDeviceConnected);
        }
    }
}

void notification_center::notify_all(device & subject, int type) {
    for (auto const id : addressees({.subject = &subject})) {
        notify(id, subject.attached.get(), type);
    }
}

void notification_center::notify(int id, AMRestorableDeviceRef object, int type, int on_thread) {
    std::unique_lock lock{mutex};
    auto const found = clients.find(id);
    if (found == clients.end()) {
        return;
    }
    auto const called = found->second;
    notified_client = id;
    lock.unlock();
    if (on_thread == 0) {
        call(called, object, type);
    } else {
        cf_share<AMRestorableDeviceRef> const held = retain(object);
        other_threads.run(on_thread,
                          [this, called, held, type] { call(called, held.get(), type); });
    }
    lock.lock();
    notified_client = 0;
    shared.time().notify(changed);
}

void notification_center::call(client const & called, AMRestorableDeviceRef object, int type) {
    {
        std::lock_guard const lock{mutex};
        calling = std::this_thread::get_id();
    }
    if (!shared.has_ended()) {
        called.callback(object, static_cast<AMRestorableDeviceNotificationType>(type),
                        called.context);
    }
}

std::vector<int> notification_center::addressees(event const & what) {
    if (what.client != 0) {
        return {what.client};
    }
    std::lock_guard const lock{mutex};
    std::vector<int> result;
    result.reserve(clients.size());
    for (auto const & [id, each] : clients) {
        if (each.unseen.empty()) {
            result.push_back(id);
        }
    }
    return result;
}

} // namespace mobile_device
