// How the simulator's threads pause and end together.
#pragma once

#include "simulator/MobileDevice/text.hpp"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <span>
#include <system_error>
#include <thread>
#include <vector>

#include <fmt/format.h>

namespace mobile_device {

using clock = std::chrono::steady_clock;

// A number of seconds as the clock counts; what exceeds a hundred years is cut to that.
clock::duration to_duration(double seconds);

// Waits in spans that no platform's time-out type can overflow. Answers the predicate's last
// value.
template <typename Predicate>
bool wait_until(std::condition_variable & condition, std::unique_lock<std::mutex> & lock,
                clock::time_point due, Predicate predicate) {
    constexpr clock::duration longest = std::chrono::hours{1};
    while (!predicate()) {
        auto const left = due - clock::now();
        if (left <= clock::duration::zero()) {
            return false;
        }
        condition.wait_for(lock, left < longest ? left : longest);
    }
    return true;
}

// What all threads of a simulator share: they pause and call back only until it ends.
class lifetime {
public:
    // False where the end came first.
    bool pause_until(clock::time_point due);

    // A thread that the end waits for; none is started after the end. Where the system has none to
    // give, standard error says so, and what the thread was to do is not done.
    template <typename Body>
    std::thread::id start_thread(Body body) {
        std::lock_guard const lock{m_mutex};
        if (m_ended) {
            return {};
        }
        try {
            m_threads.emplace_back([this, body] {
                is_own_thread() = true;
                body();
                leave();
            });
        } catch (std::system_error const & error) {
            write_error_line(fmt::format("a thread cannot be started: {}", error.what()));
            return {};
        }
        return m_threads.back().get_id();
    }

    bool has_ended();

    // Lets no callback begin from now on, and waits until the threads are done, but no longer than
    // the limit. A callback may call this; its thread is not waited for. Answers whether all are
    // done.
    bool end(clock::duration limit);

private:
    static bool & is_own_thread();
    void leave();
    void join(std::span<std::thread::id const> threads);

    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_ended = false;
    std::vector<std::thread> m_threads;
    std::vector<std::thread::id> m_done;
};

} // namespace mobile_device
