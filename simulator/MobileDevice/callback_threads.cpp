#include "simulator/MobileDevice/callback_threads.hpp"

#include <utility>

namespace mobile_device {

void callback_threads::run(int number, std::function<void()> work) {
    std::unique_lock lock{mutex};
    auto const [found, is_new] = tasks.try_emplace(number);
    auto & task = found->second;
    if (is_new && shared.start_thread([this, &task] { serve(task); }) == std::thread::id{}) {
        tasks.erase(found);
        lock.unlock();
        work();
        return;
    }
    task = std::move(work);
    shared.time().notify(changed);
    shared.time().wait(changed, lock, [&] { return stopping || !task; });
}

void callback_threads::stop() {
    std::lock_guard const lock{mutex};
    stopping = true;
    shared.time().notify(changed);
}

void callback_threads::serve(std::function<void()> & task) {
    std::unique_lock lock{mutex};
    while (!stopping) {
        if (task) {
            lock.unlock();
            task();
            lock.lock();
            task = {};
            shared.time().notify(changed);
        }
        shared.time().wait(changed, lock, [&] { return stopping || task; });
    }
}

} // namespace mobile_device
