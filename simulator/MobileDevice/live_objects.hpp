// Which of this library's objects have not been released for the last time.
#pragma once

#include <atomic>
#include <mutex>
#include <unordered_set>

namespace mobile_device {

class live_objects {
public:
    // The one list of the process. Never destroyed, as objects may outlive everything else.
    static live_objects & instance();

    void add(void const * object);
    void remove(void const * object);
    bool contains(void const * object);

    // From now on nothing is listed, every object counts as live, and no lock is taken.
    void stop() { m_stopped = true; }

private:
    std::atomic<bool> m_stopped = false;
    std::mutex m_mutex;
    std::unordered_set<void const *> m_objects;
};

} // namespace mobile_device
