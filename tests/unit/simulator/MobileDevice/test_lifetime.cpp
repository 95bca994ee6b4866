// Threads that cannot begin, and threads that do not end.
#include "simulator/MobileDevice/lifetime.hpp"

#include <atomic>

#include <gtest/gtest.h>

using mobile_device::lifetime;
using namespace std::chrono_literals;

namespace {

std::system_error no_more_threads() {
    return std::system_error{std::make_error_code(std::errc::resource_unavailable_try_again)};
}

// Fails where a thread is made of it, as the system does when it has no thread to give.
struct unstartable {
    unstartable() = default;
    unstartable(unstartable const &) { throw no_more_threads(); }
    void operator()() const {}
};

} // namespace

TEST(Lifetime, AThreadThatCannotBeStartedIsReportedAndNotWaitedFor) {
    lifetime shared;
    testing::internal::CaptureStderr();
    auto const id = shared.start_thread(unstartable{});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string{"a thread cannot be started: "} + no_more_threads().what() + "\n");
    EXPECT_EQ(id, std::thread::id{});
    EXPECT_TRUE(shared.end(0s));
}

TEST(Lifetime, TheEndWaitsNoLongerThanItsLimit) {
    lifetime shared;
    std::atomic<bool> may_end = false;
    shared.start_thread([&] {
        while (!may_end) {
            std::this_thread::yield();
        }
    });
    EXPECT_FALSE(shared.end(1ms));
    may_end = true;
    EXPECT_TRUE(shared.end(20s));
}

TEST(Lifetime, NoThreadIsStartedAfterTheEnd) {
    lifetime shared;
    EXPECT_TRUE(shared.end(0s));
    EXPECT_EQ(shared.start_thread([] { FAIL() << "started"; }), std::thread::id{});
}
