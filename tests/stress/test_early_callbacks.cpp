// Notifications and reports that arrive before the call that asks for them has returned.
#include "tests/fake_device_library/fake_device_library.hpp"
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/objects.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;

using report_list = std::vector<cf_owner<CFDictionaryRef>>;

// Runs a restore, in which the starting call makes all reports before it returns.
void restore(notifier_run & run, report_list const & reports) {
    fake_device_library().on_restore = [&](AMRestorableDeviceProgressCallback callback,
                                           void * context) {
        for (auto const & each : reports) {
            callback(nullptr, each.get(), context);
        }
    };
    run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    run.notifier.operateRestore(nullptr);
    fake_device_library().on_restore = nullptr;
}

std::vector<std::string> types(notifier_run & run) {
    std::vector<std::string> found;
    for (auto const & each : run.output.documents()) {
        found.push_back(each.type);
    }
    return found;
}

report_list two_steps_and_the_completion() {
    report_list reports;
    reports.push_back(status(2, 10));
    reports.push_back(status(9, 20));
    reports.push_back(status(0, 100));
    return reports;
}

using strings = std::vector<std::string>;
auto const three_reports = strings(3, "RestoreStatus");

TEST(EarlyReports, CompleteTheRestore) {
    notifier_run run;
    run.notifier.restoreTimeout = 24h;
    restore(run, two_steps_and_the_completion());
    EXPECT_EQ(types(run), three_reports);
}

TEST(EarlyReports, CompleteItAlsoWithoutTime) {
    notifier_run run;
    run.notifier.restoreTimeout = 0s;
    restore(run, two_steps_and_the_completion());
    EXPECT_EQ(types(run), three_reports);
}

TEST(EarlyReports, CompleteTheEntryIntoRestoreMode) {
    notifier_run run;
    run.notifier.operation = command_kind::enter_restore_mode;
    run.notifier.restoreTimeout = 24h;
    report_list reports;
    reports.push_back(status(9, 20));
    restore(run, reports);
    EXPECT_EQ(types(run), strings{"RestoreStatus"});
}

TEST(EarlyReports, WithoutACompletionLeaveTheTimeOut) {
    notifier_run run;
    run.notifier.restoreTimeout = 0s;
    report_list reports;
    reports.push_back(status(2, 10));
    restore(run, reports);
    EXPECT_EQ(types(run), (strings{"RestoreStatus", "InternalError"}));
}

// The call returns only when a report of another thread, the completion, has been taken.
TEST(EarlyReports, MayComeFromAnotherThread) {
    notifier_run run;
    run.notifier.restoreTimeout = 24h;
    auto const completion = status(0, 100);
    fake_device_library().on_restore = [&](AMRestorableDeviceProgressCallback callback,
                                           void * context) {
        std::thread(callback, nullptr, completion.get(), context).join();
    };
    run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    run.notifier.operateRestore(nullptr);
    fake_device_library().on_restore = nullptr;
    EXPECT_EQ(types(run), strings{"RestoreStatus"});
}

// --- Notifications

// Lets the registering call make the notifications of a device.
void attach_while_registering(AMRestorableDeviceRef device) {
    fake_device_library().on_registration =
        [device](AMRestorableDeviceNotificationCallback callback, void * context) {
            callback(device, kAMRestorableDeviceConnected, context);
        };
}

TEST(EarlyNotifications, AreListedWithoutWaiting) {
    auto const device = make_device(0xA);
    attach_while_registering(device.get());
    notifier_run run;
    run.notifier.detectTimeout = 0s;
    run.notifier.waitForCompletion();
    fake_device_library().on_registration = nullptr;
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_TRUE(equal(documents[0].value.get(),
                      plist("<array><string>000000000000000A</string></array>").get()));
}

TEST(EarlyNotifications, AreFoundWithoutWaiting) {
    auto const device = make_device(0xA);
    attach_while_registering(device.get());
    notifier_run run;
    run.notifier.detectTimeout = 0s;
    run.notifier.operation = command_kind::device_info;
    run.notifier.ecid = QN::ecid(0xA);
    run.notifier.waitForCompletion();
    fake_device_library().on_registration = nullptr;
    EXPECT_EQ(types(run), strings{"DeviceInfo"});
}

} // namespace
