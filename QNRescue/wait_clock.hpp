#pragma once

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>

namespace qnrescue {

// The clock by which the tool waits for devices and restores. Tests use another one, on which
// hours pass at once.
class wait_clock {
public:
    using time_point = std::chrono::steady_clock::time_point;

    // Returns the time.
    virtual time_point now() const = 0;

    // Blocks the calling thread until the time has come; never returns earlier.
    virtual void sleep_until(time_point end) = 0;

    // Waits with the lock released until the condition is notified or the time has come. May return
    // earlier, like any wait on a condition.
    virtual void wait_until(std::condition_variable & condition,
                            std::unique_lock<std::mutex> & lock, time_point end) = 0;

    // Waits until the future is ready or the time has come. Returns whether it is ready.
    virtual bool wait_until(std::future<void> const & future, time_point end) = 0;

protected:
    ~wait_clock() = default;
};

// Returns the system's steady clock.
wait_clock & steady_wait_clock();

} // namespace qnrescue
