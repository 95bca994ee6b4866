#include "simulator/MobileDevice/restore.hpp"

namespace mobile_device {
namespace {

bool says_how_it_ended(cf_share<CFDictionaryRef> const & status) {
    auto const text = status ? CFDictionaryGetValue(status.get(), CFSTR("Status")) : nullptr;
    return text && (CFEqual(text, CFSTR("Successful")) || CFEqual(text, CFSTR("Failed")));
}

} // namespace

restore::restore(surroundings within, device & subject, std::vector<planned_report> planned)
    : around{within}
    , restored{subject}
    , plan{std::move(planned)} {}

void restore::start(AMRestorableDeviceRef object, AMRestorableDeviceProgressCallback callback,
                    void * context) {
    held = retain(object);
    report_to = callback;
    context_of_callback = context;
    if (around.world) {
        around.world->begin_restore(restored);
    }
    around.shared.start_thread([this] { run(); });
}

void restore::release_objects() {
    plan.clear();
    held = {};
}

void restore::run() {
    play();
    held = {};
}

void restore::play() {
    auto & time = around.shared.time();
    auto last = time.now();
    for (auto const & planned : plan) {
        bool ended = false;
        for (auto left = planned.report.repeat; left > 0; --left) {
            if (!around.shared.pause_until(last +
                                           to_duration(planned.report.after * around.time_scale))) {
                return;
            }
            ended = left == 1 && end_in_world(planned);
            last = time.now();
            report(planned.report.status.get());
        }
        if (auto const as = return_of(planned); as && !ended) {
            await_return(*as);
            last = time.now();
        }
    }
}

// Before the last report, as the process may end during it. Returns whether the world now knows of
// the end. A restore whose reports end otherwise goes on, silently, as long as the process.
bool restore::end_in_world(planned_report const & planned) {
    if (!around.world || &planned != &plan.back() || !says_how_it_ended(planned.report.status)) {
        return false;
    }
    around.world->end_restore(restored, leaves_after_report, return_of(planned),
                              returns_after_report);
    return true;
}

appearance const * restore::return_of(planned_report const & planned) const {
    return restored.description().returns ? planned.returns_as : nullptr;
}

void restore::await_return(appearance const & as) {
    if (around.world) {
        around.center.wait_for_step(restored, around.world->reappear(restored, leaves_after_report,
                                                                     as, returns_after_report));
    } else {
        around.center.wait_for_return(
            around.center.reappear(restored, leaves_after_report, as, returns_after_report));
    }
}

void restore::report(CFDictionaryRef status) {
    around.log.write_step(around.shared.time().calendar_time(), restored.description().ecid,
                          status);
    if (report_to) {
        report_to(held.get(), status, context_of_callback);
    }
}

} // namespace mobile_device
