// How the simulator's threads pause and end together.
#pragma once

#include "simulator/MobileDevice/clock.hpp"
#include "simulator/MobileDevice/text.hpp"

#include <condition_variable>
#include <mutex>
#include <span>
#include <system_error>
#include <thread>
#include <vector>

#include <fmt/format.h>

namespace mobile_device {

// What all threads of a simulator share: they pause and call back only until it ends.
class lifetime {
public:
    explicit lifetime(clock & used = clock::system())
        : shared_clock{used} {}

    // Returns the clock that all threads use.
    clock & time() { return shared_clock; }

    // Pauses the calling thread; returns false where the end came first.
    bool pause_until(clock::time_point due);

    // Starts a thread that the end waits for; none is started after the end. Where the system
    // cannot start one, writes that to standard error and leaves the work undone.
    template <typename Body>
    std::thread::id start_thread(Body body) {
        std::lock_guard const lock{mutex};
        if (ended) {
            return {};
        }
        shared_clock.add_thread();
        try {
            threads.emplace_back([this, body] {
                own_thread() = true;
                body();
                leave();
            });
        } catch (std::system_error const & error) {
            shared_clock.remove_thread();
            write_error_line(fmt::format("a thread cannot be started: {}", error.what()));
            return {};
        }
        return threads.back().get_id();
    }

    bool has_ended();

    // Lets no callback begin from now on, and waits until the threads are done, but no longer than
    // the limit. A callback may call this; its thread is not waited for. Returns whether all are
    // done.
    bool end(clock::duration limit);

    // Returns whether the calling thread is one of a simulator's.
    static bool is_own_thread() { return own_thread(); }

private:
    static bool & own_thread();
    void leave();
    void join(std::span<std::thread::id const> ids);

    clock & shared_clock;
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;
    std::vector<std::thread> threads;
    std::vector<std::thread::id> done;
};

} // namespace mobile_device
