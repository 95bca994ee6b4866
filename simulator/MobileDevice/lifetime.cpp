#include "simulator/MobileDevice/lifetime.hpp"

#include <algorithm>

namespace mobile_device {
clock::duration to_duration(double seconds) {
    constexpr double longest = 100.0 * 365 * 24 * 60 * 60;
    return std::chrono::duration_cast<clock::duration>(
        std::chrono::duration<double>{std::min(seconds, longest)});
}

bool lifetime::pause_until(clock::time_point due) {
    std::unique_lock lock{m_mutex};
    return !wait_until(m_condition, lock, due, [this] { return m_ended; });
}

bool lifetime::has_ended() {
    std::lock_guard const lock{m_mutex};
    return m_ended;
}

bool lifetime::end(clock::duration limit) {
    std::unique_lock lock{m_mutex};
    m_ended = true;
    m_condition.notify_all();
    std::size_t const left_out = is_own_thread() ? 1 : 0;
    bool const done = wait_until(m_condition, lock, clock::now() + limit, [this, left_out] {
        return m_threads.size() - m_done.size() == left_out;
    });
    auto const ending = m_done;
    lock.unlock();
    join(ending);
    return done;
}

void lifetime::join(std::span<std::thread::id const> threads) {
    for (auto & thread : m_threads) {
        if (thread.joinable() && std::ranges::find(threads, thread.get_id()) != threads.end()) {
            thread.join();
        }
    }
}

bool & lifetime::is_own_thread() {
    thread_local bool own = false;
    return own;
}

void lifetime::leave() {
    std::lock_guard const lock{m_mutex};
    m_done.push_back(std::this_thread::get_id());
    m_condition.notify_all();
}

} // namespace mobile_device
