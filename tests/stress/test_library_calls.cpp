// What the notifier has done by the time the library is called, and what it passes to the library.
#include "QNRescue/live_contexts.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"
#include "tests/unit/helpers/held_up_run.hpp"
#include "tests/unit/helpers/notifier_run.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;

class LibraryCalls : public testing::Test {
protected:
    ~LibraryCalls() override { fake_device_library() = {}; }
};

TEST_F(LibraryCalls, TheWarmUpEndsItsSubscription) {
    int subscribed = 0;
    // Null where subscribing has failed.
    for (auto const handle : {reinterpret_cast<AMDeviceNotificationRef>(&subscribed),
                              AMDeviceNotificationRef{nullptr}}) {
        std::vector<AMDeviceNotificationRef> unsubscribed;
        fake_device_library().on_subscription = [&] { return handle; };
        fake_device_library().on_unsubscription = [&](AMDeviceNotificationRef subscription) {
            unsubscribed.push_back(subscription);
        };
        notifier_run const run;
        EXPECT_EQ(unsubscribed, std::vector{handle});
    }
}

TEST_F(LibraryCalls, AreAnnouncedBeforeTheyAreMade) {
    output_capture output;
    auto const announced = [&](std::string_view line) { return output.streams.err.wait_for(line); };
    fake_device_library().on_subscription = [&]() -> AMDeviceNotificationRef {
        EXPECT_TRUE(announced("device_notifier_state: initializing"));
        return nullptr;
    };
    fake_device_library().on_registration = [&](AMRestorableDeviceNotificationCallback, void *) {
        EXPECT_TRUE(announced("waitForCompletion: AMRestorableDeviceRegisterForNotifications()"));
    };
    fake_device_library().on_unregistration = [&](int client) {
        EXPECT_EQ(client, registered_client);
        EXPECT_TRUE(announced("waitForCompletion: AMRestorableDeviceUnregisterForNotifications()"));
    };
    device_notifier_state notifier(output.state(), std::nullopt, std::nullopt);
    notifier.detectTimeout = 0s;
    notifier.waitForCompletion();
}

// No notification comes here, which would lock the table as well.
TEST_F(LibraryCalls, TheListIsPrintedWithTheTableLocked) {
    held_up_run run("waitForCompletion: AMRestorableDeviceRegisterForNotifications()");
    run.notifier->detectTimeout = 0s;
    fake_device_library().on_registration = [&](AMRestorableDeviceNotificationCallback, void *) {
        run.wait_until_held_up();
    };
    auto listing = std::async(std::launch::async, [&] { run.notifier->waitForCompletion(); });
    EXPECT_TRUE(run.table_stays_locked());
    run.let_go();
    listing.wait();
}

TEST_F(LibraryCalls, TheEndWaitsForANotificationThatHoldsTheTable) {
    std::promise<void> asked;
    std::promise<void> answer;
    fake_device_library().on_question_for_state = [&] {
        asked.set_value();
        answer.get_future().wait();
    };
    auto const device = make_device(0xA);
    output_capture output;
    auto notifier =
        std::make_unique<device_notifier_state>(output.state(), std::nullopt, std::nullopt);
    void * const context = notifier.get();
    std::thread library([&] {
        device_notifier_state::deviceNotificationCallback(device.get(),
                                                          kAMRestorableDeviceConnected, context);
    });
    asked.get_future().wait();
    auto ending = std::async(std::launch::async, [&] { notifier.reset(); });
    while (live_contexts::visit(context)) { // until the end has begun
        std::this_thread::yield();
    }
    EXPECT_EQ(ending.wait_for(50ms), std::future_status::timeout);
    answer.set_value();
    library.join();
    EXPECT_EQ(ending.wait_for(30s), std::future_status::ready);
    EXPECT_EQ(CFGetRetainCount(reinterpret_cast<CFTypeRef>(device.get())), 1);
}

} // namespace
