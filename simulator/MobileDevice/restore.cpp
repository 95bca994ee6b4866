#include "simulator/MobileDevice/restore.hpp"

namespace mobile_device {

restore::restore(surroundings around, device & subject, std::vector<planned_report> plan)
    : m_around{around}
    , m_device{subject}
    , m_plan{std::move(plan)} {}

void restore::start(AMRestorableDeviceRef object, AMRestorableDeviceProgressCallback callback,
                    void * context) {
    m_object = retain(object);
    m_callback = callback;
    m_context = context;
    m_around.shared.start_thread([this] { run(); });
}

void restore::release_objects() {
    m_plan.clear();
    m_object = {};
}

void restore::run() {
    play();
    m_object = {};
}

void restore::play() {
    auto & time = m_around.shared.time();
    auto last = time.now();
    for (auto const & planned : m_plan) {
        for (std::int64_t count = 0; count < planned.report.repeat; ++count) {
            if (!deliver(planned, last)) {
                return;
            }
        }
        if (planned.returns_as) {
            auto const absence = m_around.center.reappear(
                m_device, leaves_after_report, *planned.returns_as, returns_after_report);
            m_around.center.wait_for_return(absence);
            last = time.now();
        }
    }
}

bool restore::deliver(planned_report const & planned, clock::time_point & last) {
    auto const & [after, status, repeat] = planned.report;
    if (!m_around.shared.pause_until(last + to_duration(after * m_around.time_scale))) {
        return false;
    }
    auto & time = m_around.shared.time();
    last = time.now();
    m_around.log.write_step(time.calendar_time(), m_device.description().ecid, status.get());
    if (m_callback) {
        m_callback(m_object.get(), status.get(), m_context);
    }
    return true;
}

} // namespace mobile_device
