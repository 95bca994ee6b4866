#include "simulator/MobileDevice/shared_world.hpp"

#include "simulator/MobileDevice/trap.hpp"

#include <algorithm>
#include <set>

namespace mobile_device {
namespace {

using namespace std::chrono_literals;

constexpr auto time_between_polls = 50ms;

// How often a process that restores shows that it lives.
constexpr world_time time_between_signs = 1s;

// Seconds for which a device is away before it is back in Recovery, as after a report.
constexpr double away_after_interruption = 0.5;

constexpr int exit_status = 70;

// Returns what the call returns. A broken world ends the process: nothing that it returned from now
// on would be true.
template <typename Call>
auto in_whole_world(Call call) {
    try {
        return call();
    } catch (scenario_fault const & fault) {
        end_process(fault.what(), exit_status);
    }
}

appearance const * appearance_in(phase as, device const & subject) {
    switch (as) {
    case phase::initial:
        return &subject.initial;
    case phase::recovery:
        return &subject.recovery;
    case phase::restore_os:
        return &subject.restore_os;
    case phase::booted_os:
        return &subject.booted_os;
    case phase::away:
    case phase::unplugged:
        break;
    }
    return nullptr;
}

phase phase_of(appearance const & as, device const & subject) {
    for (auto const each : {phase::recovery, phase::restore_os, phase::booted_os}) {
        if (appearance_in(each, subject) == &as) {
            return each;
        }
    }
    return phase::initial;
}

void check_identities(std::span<std::unique_ptr<device> const> devices, std::string const & path) {
    std::set<std::uint64_t> known;
    for (std::size_t index = 0; index < devices.size(); ++index) {
        if (!known.insert(devices[index]->description().ecid).second) {
            throw scenario_fault{
                fmt::format("{}: a world knows devices by their ECIDs, and Devices[{}].ECID of the"
                            " scenario is that of another device",
                            path, index)};
        }
    }
}

} // namespace

shared_world::shared_world(std::string const & path, surroundings within)
    : around{within}
    , file{path} {
    check_identities(around.devices, path);
    world fresh;
    fresh.began = std::chrono::time_point_cast<world_time>(around.shared.time().calendar_now());
    latest = file.update([this](world & joined) { join(joined); }, fresh);
}

void shared_world::join(world & joined) {
    for (auto const & each : around.devices) {
        if (!joined.find(each->description().ecid)) {
            joined.devices.push_back(make_world_device(each->description(), around.time_scale));
        }
    }
    interrupt_lost_restores(joined);
}

void shared_world::start() {
    std::lock_guard const lock{mutex};
    follow();
    around.shared.start_thread([this] {
        auto & time = around.shared.time();
        while (around.shared.pause_until(time.now() + time_between_polls)) {
            poll();
        }
    });
}

clock::time_point shared_world::began() {
    std::lock_guard const lock{mutex};
    return due(0s);
}

void shared_world::set_auto_boot(device & subject, bool value) {
    change_device(subject,
                  [value](world_device & changed, world_time) { changed.auto_boot = value; });
}

void shared_world::reboot(device & subject, double leaves_after, double returns_after) {
    change_device(subject, [&](world_device & changed, world_time now) {
        auto const next = changed.auto_boot ? phase::booted_os : phase::recovery;
        plan_return(changed, now, leaves_after, next, returns_after);
    });
}

std::int64_t shared_world::reappear(device & subject, double leaves_after, appearance const & as,
                                    double returns_after) {
    std::int64_t result = 0;
    change_device(subject, [&](world_device & changed, world_time now) {
        result = plan_return(changed, now, leaves_after, phase_of(as, subject), returns_after);
    });
    return result;
}

void shared_world::begin_restore(device & subject) {
    change_device(subject, [this](world_device & changed, world_time now) {
        changed.restore = {self, now};
    });
}

void shared_world::end_restore(device & subject, double leaves_after, appearance const * as,
                               double returns_after) {
    change_device(subject, [&](world_device & changed, world_time now) {
        if (changed.restore && changed.restore->owner == self) {
            changed.restore.reset();
        }
        if (as) {
            plan_return(changed, now, leaves_after, phase_of(*as, subject), returns_after);
        }
    });
}

std::int64_t shared_world::plan_return(world_device & changed, world_time now, double leaves_after,
                                       phase as, double returns_after) {
    return changed.change_from(now, {{now + scaled_time(leaves_after), phase::away},
                                     {now + scaled_time(returns_after), as}});
}

world_time shared_world::now_in(world const & in) {
    return std::chrono::duration_cast<world_time>(around.shared.time().calendar_now() - in.began);
}

void shared_world::change_device(device & subject, change const & apply) {
    in_whole_world([&] {
        std::lock_guard const lock{mutex};
        latest = file.update([&](world & in) {
            auto const now = now_in(in);
            auto const changed = in.find(subject.description().ecid);
            if (changed) { // unless another hand has written the file
                apply(*changed, now);
                changed->forget_before(now);
            }
        });
        follow();
    });
}

void shared_world::interrupt_lost_restores(world & in) {
    for (auto const & each : around.devices) {
        auto const subject = in.find(each->description().ecid);
        if (!subject || !subject->restore) {
            continue;
        }
        if (subject->restore->owner == self) {
            subject->restore->alive = std::max(subject->restore->alive, now_in(in));
        } else if (!is_running(subject->restore->owner)) {
            subject->interrupt_restore(scaled_time(each->description().after_interruption),
                                       scaled_time(away_after_interruption));
        }
    }
}

// Returns whether interrupt_lost_restores has something to write.
bool shared_world::has_news() {
    return std::ranges::any_of(latest.devices, [this](world_device const & each) {
        if (!each.restore) {
            return false;
        }
        auto const & [owner, alive] = *each.restore;
        return owner == self ? now_in(latest) - alive >= time_between_signs : !is_running(owner);
    });
}

void shared_world::poll() {
    in_whole_world([this] {
        std::lock_guard const lock{mutex};
        auto const changed = file.read_change();
        if (changed) {
            latest = *changed;
        }
        bool const news = has_news();
        if (news) {
            latest = file.update([this](world & in) { interrupt_lost_restores(in); });
        }
        if (changed || news) {
            follow();
        }
    });
}

// Plans the notifications of what is known of the world. The caller holds the mutex.
void shared_world::follow() {
    for (auto const & each : around.devices) {
        auto const subject = latest.find(each->description().ecid);
        if (!subject) {
            continue;
        }
        std::vector<planned_step> steps;
        steps.reserve(subject->course.size());
        for (auto const & step : subject->course) {
            steps.push_back({step.number, due(step.at), appearance_in(step.as, *each)});
        }
        around.center.follow(*each, steps);
    }
}

clock::time_point shared_world::due(world_time at) {
    constexpr world_time farthest = 24h * 365 * 100;
    auto const ahead = std::clamp(at - now_in(latest), -farthest, farthest);
    return around.shared.time().now() + ahead;
}

} // namespace mobile_device
