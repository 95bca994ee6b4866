#include "simulator/MobileDevice/live_objects.hpp"

namespace mobile_device {

live_objects & live_objects::instance() {
    static auto & only = *new live_objects;
    return only;
}

void live_objects::add(void const * object) {
    if (!stopped) {
        std::lock_guard const lock{mutex};
        objects.insert(object);
    }
}

void live_objects::remove(void const * object) {
    if (!stopped) {
        std::lock_guard const lock{mutex};
        objects.erase(object);
    }
}

bool live_objects::contains(void const * object) {
    if (stopped) {
        return true;
    }
    std::lock_guard const lock{mutex};
    return objects.contains(object);
}

} // namespace mobile_device
