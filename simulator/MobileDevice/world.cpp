#include "simulator/MobileDevice/world.hpp"

#include "simulator/MobileDevice/clock.hpp"
#include "simulator/MobileDevice/text.hpp"

#include <algorithm>
#include <limits>

namespace mobile_device {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t longest = 200LL * 365 * 24 * 60 * 60 * 1'000'000; // microseconds

// Leaves numbers for all steps that could follow.
constexpr std::int64_t highest_number = std::numeric_limits<std::int64_t>::max() / 2;

// How long a step is kept for processes that have not read it yet.
constexpr world_time kept_for = 10s;

struct named_phase {
    std::string_view name;
    phase as;
};

constexpr named_phase named_phases[] = {
    {"Away", phase::away},          {"Initial", phase::initial},
    {"Recovery", phase::recovery},  {"RestoreOS", phase::restore_os},
    {"BootedOS", phase::booted_os}, {"Unplugged", phase::unplugged},
};

phase read_phase(node const & value) {
    auto const found = std::ranges::find(named_phases, value.text(), &named_phase::name);
    if (found == std::end(named_phases)) {
        value.fail("must be Away, Initial, Recovery, RestoreOS, BootedOS or Unplugged");
    }
    return found->as;
}

std::string name_of(phase as) {
    return std::string{std::ranges::find(named_phases, as, &named_phase::as)->name};
}

world_time read_time(node const & value) {
    auto const count = value.integer<std::int64_t>();
    if (count < -longest || count > longest) {
        value.fail("must be a time within 200 years");
    }
    return world_time{count};
}

std::vector<world_step> read_course(node const & value) {
    std::vector<world_step> result;
    for (auto const & each : value.elements()) {
        dictionary_node const step{each, {"Number", "At", "As"}};
        world_step const read{step.at("Number").integer<std::int64_t>(), read_time(step.at("At")),
                              read_phase(step.at("As"))};
        if (read.number < 1 || (!result.empty() && (read.number <= result.back().number ||
                                                    read.at < result.back().at))) {
            each.fail("must follow the step before");
        }
        if (read.number > highest_number) {
            step.at("Number").fail("is too high");
        }
        result.push_back(read);
    }
    if (result.empty()) {
        value.fail("must not be empty");
    }
    return result;
}

world_restore read_restore(node const & value) {
    dictionary_node const restore{value, {"Process", "Created", "Alive"}};
    return {{restore.at("Process").integer<std::int64_t>(),
             restore.at("Created").integer<std::int64_t>()},
            read_time(restore.at("Alive"))};
}

world_device read_world_device(node const & value) {
    dictionary_node const device{value, {"ECID", "AutoBoot", "Course", "Restore"}};
    world_device result;
    result.ecid = read_ecid(device.at("ECID"));
    result.auto_boot = device.at("AutoBoot").boolean();
    result.course = read_course(device.at("Course"));
    if (auto const restore = device.find("Restore")) {
        result.restore = read_restore(*restore);
    }
    return result;
}

using dictionary = cf_owner<CFMutableDictionaryRef>;

void set(dictionary const & in, CFStringRef key, std::int64_t value) {
    CFDictionarySetValue(in.get(), key, make_number(value).get());
}

void set(dictionary const & in, CFStringRef key, std::string const & value) {
    CFDictionarySetValue(in.get(), key, make_cfstring(value).get());
}

template <typename Element, typename Write>
void set_array(dictionary const & in, CFStringRef key, std::vector<Element> const & elements,
               Write write) {
    auto const array = make_mutable_array();
    for (auto const & each : elements) {
        CFArrayAppendValue(array.get(), write(each).get());
    }
    CFDictionarySetValue(in.get(), key, array.get());
}

dictionary write_step(world_step const & step) {
    auto result = make_mutable_dictionary();
    set(result, CFSTR("Number"), step.number);
    set(result, CFSTR("At"), step.at.count());
    set(result, CFSTR("As"), name_of(step.as));
    return result;
}

dictionary write_restore(world_restore const & restore) {
    auto result = make_mutable_dictionary();
    set(result, CFSTR("Process"), restore.owner.id);
    set(result, CFSTR("Created"), restore.owner.created);
    set(result, CFSTR("Alive"), restore.alive.count());
    return result;
}

dictionary write_device(world_device const & device) {
    auto result = make_mutable_dictionary();
    set(result, CFSTR("ECID"), format_ecid(device.ecid));
    CFDictionarySetValue(result.get(), CFSTR("AutoBoot"),
                         device.auto_boot ? kCFBooleanTrue : kCFBooleanFalse);
    set_array(result, CFSTR("Course"), device.course, write_step);
    if (device.restore) {
        CFDictionarySetValue(result.get(), CFSTR("Restore"), write_restore(*device.restore).get());
    }
    return result;
}

} // namespace

phase world_device::at(world_time now) const {
    auto const next = std::ranges::upper_bound(course, now, {}, &world_step::at);
    return next == course.begin() ? phase::away : std::prev(next)->as;
}

std::int64_t world_device::change_from(world_time from, std::initializer_list<change> changes) {
    auto const unplugging = std::ranges::find(course, phase::unplugged, &world_step::as);
    auto const unplugged =
        unplugging == course.end() ? std::nullopt : std::optional{unplugging->at};
    auto number = course.empty() ? 0 : course.back().number;
    if (unplugged && *unplugged <= from) {
        return 0;
    }
    std::erase_if(course, [from](world_step const & step) { return step.at >= from; });
    std::int64_t last = 0;
    for (auto const & each : changes) {
        last = unplugged && *unplugged <= each.at ? 0 : ++number;
        if (last) {
            course.push_back({last, each.at, each.as});
        }
    }
    if (unplugged) {
        course.push_back({++number, *unplugged, phase::unplugged});
    }
    return last;
}

void world_device::interrupt_restore(world_time after, world_time away) {
    if (!restore) {
        return;
    }
    auto const back = restore->alive + after;
    auto const leaves = std::max(restore->alive, back - away);
    change_from(leaves, {{leaves, phase::away}, {back, phase::recovery}});
    restore.reset();
}

void world_device::forget_before(world_time now) {
    auto const kept = std::ranges::upper_bound(course, now - kept_for, {}, &world_step::at);
    if (kept != course.begin()) {
        course.erase(course.begin(), std::prev(kept));
    }
}

world_device * world::find(std::uint64_t ecid) {
    auto const found = std::ranges::find(devices, ecid, &world_device::ecid);
    return found == devices.end() ? nullptr : &*found;
}

world_time scaled(double seconds, double time_scale) {
    return std::chrono::duration_cast<world_time>(to_duration(seconds * time_scale));
}

world_device make_world_device(device_description const & description, double time_scale) {
    world_device result;
    result.ecid = description.ecid;
    auto const connects = scaled(description.connect_after, time_scale);
    result.course.push_back({1, connects, description.connects ? phase::initial : phase::away});
    if (description.disconnect_after) {
        auto const disconnects = scaled(*description.disconnect_after, time_scale);
        result.course.push_back({2, std::max(connects, disconnects), phase::unplugged});
    }
    return result;
}

world parse_world(std::span<std::uint8_t const> bytes) {
    auto const root = parse_property_list(bytes);
    if (!root) {
        throw scenario_fault{"is not a property list"};
    }
    dictionary_node const content{node{root.get(), ""}, {"Began", "Devices"}};
    world result;
    result.began += read_time(content.at("Began"));
    for (auto const & device : content.at("Devices").elements()) {
        result.devices.push_back(read_world_device(device));
    }
    return result;
}

cf_owner<CFDataRef> make_property_list(world const & written) {
    auto const root = make_mutable_dictionary();
    set(root, CFSTR("Began"), written.began.time_since_epoch().count());
    set_array(root, CFSTR("Devices"), written.devices, write_device);
    return adopt(CFPropertyListCreateData(kCFAllocatorDefault, root.get(),
                                          kCFPropertyListXMLFormat_v1_0, 0, nullptr));
}

} // namespace mobile_device
