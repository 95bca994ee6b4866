// A clock on which hours pass at once.
#pragma once

#include "QNRescue/wait_clock.hpp"

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <utility>

namespace tests {

// Moves only where somebody waits: to the next scheduled action, which it then calls on the waiting
// thread, or to the end of the wait. For one thread.
class fake_clock final : public qnrescue::wait_clock {
public:
    time_point now() const override { return current; }

    // Returns how much time has passed since the clock was made.
    std::chrono::nanoseconds passed() const { return current - start; }

    // Makes the action happen once so much time has passed since the clock was made.
    void at(std::chrono::nanoseconds time, std::function<void()> action) {
        actions.emplace(start + time, std::move(action));
    }

    // Lets time pass without a wait.
    void delay(std::chrono::nanoseconds time) { current += time; }

    void sleep_until(time_point end) override {
        while (current < end) {
            pass_until(end);
        }
    }

    void wait_until(std::condition_variable & /*condition*/, std::unique_lock<std::mutex> & lock,
                    time_point end) override {
        lock.unlock();
        pass_until(end);
        lock.lock();
    }

    bool wait_until(std::future<void> const & future, time_point end) override {
        auto const is_ready = [&] {
            return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        };
        while (!is_ready() && current < end) {
            pass_until(end);
        }
        return is_ready();
    }

private:
    void pass_until(time_point end) {
        if (actions.empty() || actions.begin()->first > end) {
            current = std::max(current, end);
            return;
        }
        auto const next = actions.extract(actions.begin());
        current = std::max(current, next.key());
        next.mapped()();
    }

    time_point const start{std::chrono::hours(1234)};
    time_point current = start;
    std::multimap<time_point, std::function<void()>> actions;
};

} // namespace tests
