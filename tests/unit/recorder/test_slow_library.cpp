// The library blocks until a call of another thread has come back, which it does only where the
// recorder holds no lock while it passes a call on.
#include "recorder/functions.hpp"
#include "recorder/process_session.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"
#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

class SlowLibrary : public testing::Test {
public:
    SlowLibrary() {
        tests::set_environment("MOBILEDEVICE_RECORDER_FILE", folder.utf8("recording"));
        recorder::end_process_session();
        EXPECT_NE(recorder::process_session(), nullptr);
    }

    SlowLibrary(SlowLibrary const &) = delete;
    SlowLibrary & operator=(SlowLibrary const &) = delete;
    ~SlowLibrary() override {
        others.clear();
        tests::fake_device_library() = {};
        recorder::end_process_session();
        tests::set_environment("MOBILEDEVICE_RECORDER_FILE", "");
    }

    void expect_another_call_comes_back() {
        auto const done = std::make_shared<std::promise<void>>();
        auto const came_back = done->get_future();
        others.emplace_back([this, done] {
            recorded_AMRestorableDeviceGetECID(device.get());
            done->set_value();
        });
        EXPECT_EQ(came_back.wait_for(10s), std::future_status::ready);
        ++times;
    }

protected:
    tests::temporary_folder folder;
    qnrescue::cf_owner<AMRestorableDeviceRef> device = tests::make_device(1);
    std::vector<std::jthread> others; // which may be blocked until the call has returned
    int times = 0;
};

TEST_F(SlowLibrary, WhileItIsAskedForAState) {
    tests::fake_device_library().on_question_for_state = [this] {
        expect_another_call_comes_back();
    };
    recorded_AMRestorableDeviceGetState(device.get());
    EXPECT_EQ(times, 1);
}

TEST_F(SlowLibrary, WhileItSubscribes) {
    tests::fake_device_library().on_subscription = [this]() -> AMDeviceNotificationRef {
        expect_another_call_comes_back();
        return nullptr;
    };
    tests::fake_device_library().on_unsubscription = [this](AMDeviceNotificationRef) {
        expect_another_call_comes_back();
    };
    AMDeviceNotificationRef subscription = nullptr;
    recorded_AMDeviceNotificationSubscribe(nullptr, 0, 0, nullptr, &subscription);
    recorded_AMDeviceNotificationUnsubscribe(subscription);
    EXPECT_EQ(times, 2);
}

TEST_F(SlowLibrary, WhileItRegistersNotifiesAndUnregisters) {
    tests::fake_device_library().on_registration = [this](auto callback, void * context) {
        expect_another_call_comes_back();
        callback(device.get(), kAMRestorableDeviceConnected, context);
    };
    tests::fake_device_library().on_unregistration = [this](int) {
        expect_another_call_comes_back();
    };
    CFErrorRef error = nullptr;
    auto const client = recorded_AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void * self) {
            static_cast<SlowLibrary *>(self)->expect_another_call_comes_back();
        },
        this, &error);
    recorded_AMRestorableDeviceUnregisterForNotifications(client);
    EXPECT_EQ(times, 3);
}

TEST_F(SlowLibrary, WhileItRestoresAndReports) {
    tests::fake_device_library().on_restore = [this](auto callback, void * context) {
        expect_another_call_comes_back();
        callback(device.get(), nullptr, context);
    };
    recorded_AMRestorableDeviceRestore(
        device.get(), nullptr,
        [](AMRestorableDeviceRef, CFDictionaryRef, void * self) {
            static_cast<SlowLibrary *>(self)->expect_another_call_comes_back();
        },
        this);
    EXPECT_EQ(times, 2);
}

} // namespace
