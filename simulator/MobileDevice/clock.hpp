// The simulator's time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <optional>

namespace mobile_device {

// The system's time. Every wait, every wake-up and every thread of the simulator goes through its
// clock, so that a test can put another one in its place on which hours pass at once.
class clock {
public:
    using time_point = std::chrono::steady_clock::time_point;
    using duration = time_point::duration;

    // Returns the clock of simulators that are given no other.
    static clock & system();

    clock() = default;
    clock(clock const &) = delete;
    clock & operator=(clock const &) = delete;
    virtual ~clock() = default;

    virtual time_point now();

    // Returns the time of day, which all processes share.
    virtual std::chrono::system_clock::time_point calendar_now();

    // Returns the time to write into a log.
    std::time_t calendar_time() { return std::chrono::system_clock::to_time_t(calendar_now()); }

    // Wakes all that wait for the condition. The caller holds the condition's mutex.
    virtual void notify(std::condition_variable & changed);

    // Counts a thread of the simulator: called by the thread that starts it, and by itself at its
    // end.
    virtual void add_thread() {}
    virtual void remove_thread() {}

    // Waits until the predicate is true.
    template <typename Predicate>
    void wait(std::condition_variable & changed, std::unique_lock<std::mutex> & lock,
              Predicate predicate) {
        while (!predicate()) {
            wait_once(changed, lock, std::nullopt);
        }
    }

    // Waits until the predicate is true or the time has come; returns the predicate's last value.
    template <typename Predicate>
    bool wait_until(std::condition_variable & changed, std::unique_lock<std::mutex> & lock,
                    time_point due, Predicate predicate) {
        while (!predicate()) {
            if (now() >= due) {
                return false;
            }
            wait_once(changed, lock, due);
        }
        return true;
    }

private:
    // Waits until notify, or until the time, if there is one; may return earlier.
    virtual void wait_once(std::condition_variable & changed, std::unique_lock<std::mutex> & lock,
                           std::optional<time_point> due);
};

// Returns a number of seconds as the clock counts; what exceeds a hundred years is cut to that.
clock::duration to_duration(double seconds);

} // namespace mobile_device
