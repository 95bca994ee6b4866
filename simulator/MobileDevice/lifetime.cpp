#include "simulator/MobileDevice/lifetime.hpp"

#include <algorithm>

namespace mobile_device {

bool lifetime::pause_until(clock::time_point due) {
    std::unique_lock lock{mutex};
    return !shared_clock.wait_until(changed, lock, due, [this] { return ended; });
}

bool lifetime::has_ended() {
    std::lock_guard const lock{mutex};
    return ended;
}

bool lifetime::end(clock::duration limit) {
    std::unique_lock lock{mutex};
    ended = true;
    shared_clock.notify(changed);
    std::size_t const left_out = is_own_thread() ? 1 : 0;
    auto const all_done =
        shared_clock.wait_until(changed, lock, shared_clock.now() + limit, [this, left_out] {
            return threads.size() - done.size() == left_out;
        });
    auto const ending = done;
    lock.unlock();
    join(ending);
    return all_done;
}

void lifetime::join(std::span<std::thread::id const> ids) {
    for (auto & thread : threads) {
        if (thread.joinable() && std::ranges::find(ids, thread.get_id()) != ids.end()) {
            thread.join();
        }
    }
}

bool & lifetime::own_thread() {
    thread_local bool own = false;
    return own;
}

void lifetime::leave() {
    std::lock_guard const lock{mutex};
    done.push_back(std::this_thread::get_id());
    shared_clock.notify(changed);
    shared_clock.remove_thread();
}

} // namespace mobile_device
