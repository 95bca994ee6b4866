#include "simulator/MobileDevice/live_objects.hpp"

namespace mobile_device {

live_objects & live_objects::instance() {
    static auto & objects = *new live_objects;
    return objects;
}

void live_objects::add(void const * object) {
    if (!m_stopped) {
        std::lock_guard const lock{m_mutex};
        m_objects.insert(object);
    }
}

void live_objects::remove(void const * object) {
    if (!m_stopped) {
        std::lock_guard const lock{m_mutex};
        m_objects.erase(object);
    }
}

bool live_objects::contains(void const * object) {
    if (m_stopped) {
        return true;
    }
    std::lock_guard const lock{m_mutex};
    return m_objects.contains(object);
}

} // namespace mobile_device
