#include "simulator/MobileDevice/restore.hpp"

namespace mobile_device {

restore::restore(surroundings within, device & subject, std::vector<planned_report> planned)
    : around{within}
    , restored{subject}
    , plan{std::move(planned)} {}

void restore::start(AMRestorableDeviceRef object, AMRestorableDeviceProgressCallback callback,
                    void * context) {
    held = retain(object);
    report_to = callback;
    context_of_callback = context;
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
        for (std::int64_t count = 0; count < planned.report.repeat; ++count) {
            if (!deliver(planned, last)) {
                return;
            }
        }
        if (planned.returns_as) {
            auto const absence = around.center.reappear(restored, leaves_after_report,
                                                        *planned.returns_as, returns_after_report);
            around.center.wait_for_return(absence);
            last = time.now();
        }
    }
}

bool restore::deliver(planned_report const & planned, clock::time_point & last) {
    auto const & [after, status, repeat] = planned.report;
    if (!around.shared.pause_until(last + to_duration(after * around.time_scale))) {
        return false;
    }
    auto & time = around.shared.time();
    last = time.now();
    around.log.write_step(time.calendar_time(), restored.description().ecid, status.get());
    if (report_to) {
        report_to(held.get(), status.get(), context_of_callback);
    }
    return true;
}

} // namespace mobile_device
