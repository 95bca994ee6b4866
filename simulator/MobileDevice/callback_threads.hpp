// Threads on which a caller has others called back.
#pragma once

#include "simulator/MobileDevice/lifetime.hpp"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>

namespace mobile_device {

class callback_threads {
public:
    explicit callback_threads(lifetime & threads)
        : shared{threads} {}
    callback_threads(callback_threads const &) = delete;
    callback_threads & operator=(callback_threads const &) = delete;

    // Does the work on the thread of this number, and waits until it is done or stop is called.
    // Where the system cannot start a thread, does it on the caller's.
    void run(int number, std::function<void()> work);

    // Ends each thread once it does nothing.
    void stop();

private:
    void serve(std::function<void()> & task);

    lifetime & shared;
    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, std::function<void()>> tasks; // of the threads, by number; empty: none
    bool stopping = false;
};

} // namespace mobile_device
