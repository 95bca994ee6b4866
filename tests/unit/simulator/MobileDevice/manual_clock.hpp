// Time that passes when a test says so.
#pragma once

#include "simulator/MobileDevice/lifetime.hpp"

#include <algorithm>
#include <list>
#include <stdexcept>
#include <utility>

// While a test lets time pass, the clock jumps from one moment that a thread of the simulator waits
// for to the next one, each time after all of these threads have come to wait.
class manual_clock final : public mobile_device::clock {
public:
    time_point now() override {
        std::lock_guard const lock{mutex};
        return current;
    }

    // 1970-01-01 at the start.
    std::chrono::system_clock::time_point calendar_now() override {
        return std::chrono::system_clock::time_point{
            std::chrono::duration_cast<std::chrono::system_clock::duration>(
                now().time_since_epoch())};
    }

    void notify(std::condition_variable & condition) override {
        std::lock_guard const lock{mutex};
        wake([&](waiter const & each) { return each.condition == &condition; });
    }

    void add_thread() override {
        std::lock_guard const lock{mutex};
        ++running;
        has_acted = true;
    }

    void remove_thread() override {
        std::lock_guard const lock{mutex};
        --running;
        changed.notify_all();
    }

    // Returns once the time has passed and all that was due has been done.
    void pass(duration span) {
        auto const end = now() + span;
        do {
            settle();
        } while (jump(end));
        std::lock_guard const lock{mutex};
        current = end;
    }

    // Lets time pass until the predicate is true, or nothing is due any more.
    template <typename Predicate>
    void pass_until(Predicate predicate) {
        do {
            settle();
        } while (!predicate() && jump(time_point::max()));
    }

    // Returns once something has been done: what the caller has brought about since the last time,
    // or else what is due next, up to the end.
    void step(time_point end) {
        settle();
        {
            std::lock_guard const lock{mutex};
            if (std::exchange(has_acted, false)) {
                return;
            }
        }
        if (jump(end)) {
            settle();
        }
        std::lock_guard const lock{mutex};
        if (!std::exchange(has_acted, false)) {
            current = std::max(current, end);
        }
    }

    // For callbacks: returns once all other threads of the simulator wait.
    void wait_for_other_threads() {
        std::unique_lock lock{mutex};
        changed.wait(lock, [this] { return running == 1; });
    }

    // Returns whether a thread that is not the simulator's waits for one that is.
    bool is_awaited() {
        std::lock_guard const lock{mutex};
        return std::ranges::any_of(waiters, [](waiter const & each) { return !each.is_counted; });
    }

private:
    struct waiter {
        std::condition_variable const * condition;
        std::optional<time_point> due;
        bool is_counted;
        bool is_woken = false;
    };

    void wait_once(std::condition_variable & condition, std::unique_lock<std::mutex> & callers,
                   std::optional<time_point> due) override {
        std::unique_lock lock{mutex};
        callers.unlock();
        auto const self = waiters.insert(
            waiters.end(), {&condition, due, mobile_device::lifetime::is_own_thread()});
        running -= self->is_counted ? 1 : 0;
        changed.notify_all();
        changed.wait(lock, [&] { return self->is_woken; });
        waiters.erase(self);
        lock.unlock();
        callers.lock();
    }

    // The caller holds the mutex. A thread counts as running as soon as it is woken.
    template <typename Condition>
    void wake(Condition condition) {
        for (auto & each : waiters) {
            if (!each.is_woken && condition(each)) {
                each.is_woken = true;
                has_acted = true;
                running += each.is_counted ? 1 : 0;
            }
        }
        changed.notify_all();
    }

    void settle() {
        std::unique_lock lock{mutex};
        if (!changed.wait_for(lock, std::chrono::seconds{20}, [this] { return running == 0; })) {
            throw std::runtime_error{"a thread of the simulator has not come to wait"};
        }
    }

    // Goes on to the next moment that a thread waits for; returns false if there is none up to the
    // end.
    bool jump(time_point end) {
        std::lock_guard const lock{mutex};
        std::optional<time_point> next;
        for (auto const & each : waiters) {
            if (each.is_counted && each.due && *each.due <= end && (!next || *each.due < *next)) {
                next = each.due;
            }
        }
        if (next) {
            current = *next;
            wake([&](waiter const & each) { return each.due && *each.due <= current; });
        }
        return next.has_value();
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::list<waiter> waiters;
    int running = 0;        // threads of the simulator that do not wait
    bool has_acted = false; // since the last step
    time_point current = {};
};

// Returns the clock that the simulators of all tests use.
inline manual_clock & test_clock() {
    static manual_clock clock;
    return clock;
}
