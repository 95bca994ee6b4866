#include "QNRescue/wait_clock.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace std::chrono_literals;
using qnrescue::steady_wait_clock;

TEST(SteadyWaitClock, IsTheSystemsSteadyClock) {
    auto const before = std::chrono::steady_clock::now();
    auto const now = steady_wait_clock().now();
    EXPECT_GE(now, before);
    EXPECT_LE(now, std::chrono::steady_clock::now());
}

TEST(SteadyWaitClock, SleepsUntilTheEnd) {
    auto & clock = steady_wait_clock();
    for (auto const duration : {1ms, 7ms, 20ms}) {
        auto const end = clock.now() + duration;
        clock.sleep_until(end);
        EXPECT_GE(clock.now(), end);
    }
    clock.sleep_until(clock.now() - 1h);
}

TEST(SteadyWaitClock, AConditionEndsItsWait) {
    auto & clock = steady_wait_clock();
    std::mutex mutex;
    std::condition_variable condition;
    bool notified = false;
    std::unique_lock lock(mutex);
    std::thread notifying([&] {
        std::lock_guard const released_by_the_wait(mutex);
        notified = true;
        condition.notify_all();
    });
    auto const end = clock.now() + 30s;
    while (!notified && clock.now() < end) {
        clock.wait_until(condition, lock, end);
    }
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_LT(clock.now(), end);
    lock.unlock();
    notifying.join();
}

TEST(SteadyWaitClock, AConditionThatIsNotNotifiedIsWaitedForUntilTheEnd) {
    auto & clock = steady_wait_clock();
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock lock(mutex);
    auto const end = clock.now() + 20ms;
    int waits = 0;
    while (clock.now() < end) {
        clock.wait_until(condition, lock, end);
        ++waits;
    }
    EXPECT_LT(waits, 10); // few of them end early
}

TEST(SteadyWaitClock, AFutureIsWaitedForUntilItIsReady) {
    auto & clock = steady_wait_clock();
    std::promise<void> promise;
    auto const future = promise.get_future();
    auto const end = clock.now() + 20ms;
    EXPECT_FALSE(clock.wait_until(future, end));
    EXPECT_GE(clock.now(), end);
    std::thread keeping([&] { promise.set_value(); });
    EXPECT_TRUE(clock.wait_until(future, clock.now() + 30s));
    keeping.join();
    EXPECT_TRUE(clock.wait_until(future, clock.now() - 1h));
}

} // namespace
