// The objects of this library that have not been destroyed.
#pragma once

#include <atomic>
#include <mutex>
#include <unordered_set>

namespace mobile_device {

class live_objects {
public:
    // Returns the one list of the process. Never destroyed, as objects may outlive everything else.
    static live_objects & instance();

    void add(void const * object);
    void remove(void const * object);
    bool contains(void const * object);

    // From now on nothing is listed, every object counts as live, and no lock is taken.
    void stop() { stopped = true; }

private:
    std::atomic<bool> stopped = false;
    std::mutex mutex;
    std::unordered_set<void const *> objects;
};

} // namespace mobile_device
