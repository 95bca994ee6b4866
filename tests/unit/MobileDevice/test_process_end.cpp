// What whole processes leave behind: exit statuses, and the trace's last line.
#include "platform/MobileDevice.h"
#include "tests/unit/MobileDevice/property_list_text.hpp"
#include "tests/unit/MobileDevice/temporary_folder.hpp"

#include <atomic>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

using namespace property_list;
using namespace std::chrono_literals;

namespace {

class ProcessEnd : public testing::Test {
protected:
    ProcessEnd() {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
        set_environment("MOBILEDEVICE_SIMULATOR_TRACE", m_folder.utf8("trace.txt"));
    }
    ~ProcessEnd() override {
        set_environment("MOBILEDEVICE_SIMULATOR_TRACE", "");
        set_environment("MOBILEDEVICE_SIMULATOR_SCENARIO", "");
    }

    void use(std::string const & bytes) const {
        set_environment("MOBILEDEVICE_SIMULATOR_SCENARIO", m_folder.write("szenario.plist", bytes));
    }
    std::string last_line() const {
        auto const lines = read_lines(m_folder / "trace.txt");
        return lines.empty() ? "" : lines.back();
    }

    temporary_folder m_folder;
};

std::atomic<int> notifications = 0;
std::atomic<int> reports = 0;
CFTypeRef volatile kept = nullptr; // what a careless user never releases

void count_notification(AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {
    ++notifications;
}

void count_report(AMRestorableDeviceRef, CFDictionaryRef, void *) {
    ++reports;
}

void keep_device(AMRestorableDeviceRef device, AMRestorableDeviceNotificationType, void *) {
    if (!kept) {
        kept = CFRetain(device);
    }
    ++notifications;
}

void wait_for(std::atomic<int> const & counter, int count) {
    while (counter < count) {
        std::this_thread::sleep_for(1ms);
    }
}

int register_for(AMRestorableDeviceNotificationCallback callback) {
    return AMRestorableDeviceRegisterForNotifications(callback, nullptr, nullptr);
}

std::string busy_scenario() {
    auto const report = dictionary(
        {{"Status", dictionary({{"Operation", integer(13)}})}, {"Repeat", integer(1000000000)}});
    return document(
        dictionary({{"Devices", array({dictionary({{"ECID", text("1")},
                                                   {"SerialNumber", text("a serial number")},
                                                   {"RestoreReports", array({report})}})})}}));
}

[[noreturn]] void restore_until_exit() {
    register_for(keep_device);
    wait_for(notifications, 1);
    AMRestorableDeviceRestore(static_cast<AMRestorableDeviceRef>(const_cast<void *>(kept)), nullptr,
                              count_report, nullptr);
    wait_for(reports, 100);
    CFRelease(kept);
    std::exit(0);
}

[[noreturn]] void work_tidily() {
    auto const id = register_for(keep_device);
    wait_for(notifications, 4);
    AMRestorableDeviceUnregisterForNotifications(id);
    auto const device = static_cast<AMRestorableDeviceRef>(const_cast<void *>(kept));
    CFRelease(AMRestorableDeviceCopySerialNumber(device));
    CFRelease(AMRestorableDeviceCopyRecoveryModeDevice(device));
    auto const options = AMRestoreCreateDefaultOptions(kCFAllocatorDefault);
    AMRestorableDeviceRestore(device, options, count_report, nullptr);
    wait_for(reports, 1);
    CFRelease(options);
    CFRelease(device);
    std::exit(0);
}

[[noreturn]] void leak_three_objects() {
    register_for(keep_device);
    wait_for(notifications, 4);
    static CFTypeRef volatile options = AMRestoreCreateDefaultOptions(kCFAllocatorDefault);
    static CFTypeRef volatile recovery = AMRestorableDeviceCopyRecoveryModeDevice(
        static_cast<AMRestorableDeviceRef>(const_cast<void *>(kept)));
    std::exit(options && recovery ? 0 : 1);
}

[[noreturn]] void exit_in_a_notification() {
    register_for(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) { std::exit(3); });
    for (;;) {
        std::this_thread::sleep_for(1h);
    }
}

void call_once() {
    AMRestorableDeviceGetState(nullptr);
}

} // namespace

TEST_F(ProcessEnd, AFaultyScenarioEndsTheProcess) {
    use(document(dictionary(
        {{"Devices", array({dictionary({{"ECID", text("1")}}),
                            dictionary({{"ECID", text("2")}, {"State", text("?")}})})}})));
    EXPECT_EXIT(call_once(), testing::ExitedWithCode(70),
                "szenario.plist: Devices\\[1\\].State: must be Unknown, DFU, Recovery, RestoreOS, "
                "BootedOS or an integer");
    EXPECT_EQ(read_text(m_folder / "trace.txt"), "live-objects 0\n");
}

TEST_F(ProcessEnd, AScenarioThatCannotBeReadEndsTheProcess) {
    set_environment("MOBILEDEVICE_SIMULATOR_SCENARIO", m_folder.utf8("missing.plist"));
    EXPECT_EXIT(call_once(), testing::ExitedWithCode(70), "missing.plist: cannot be read");
}

TEST_F(ProcessEnd, ATidyUserLeavesNothing) {
    EXPECT_EXIT(work_tidily(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, WhatAUserLeaksIsCounted) {
    EXPECT_EXIT(leak_three_objects(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(last_line(), "live-objects 3");
}

TEST_F(ProcessEnd, ComesSafelyAmidReports) {
    use(busy_scenario());
    EXPECT_EXIT(restore_until_exit(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, MayComeFromANotification) {
    EXPECT_EXIT(exit_in_a_notification(), testing::ExitedWithCode(3), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, NothingFollowsTheLastLine) {
    EXPECT_EXIT(
        {
            register_for(count_notification);
            wait_for(notifications, 4);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(
        read_lines(m_folder / "trace.txt"),
        (std::vector<std::string>{"AMRestorableDeviceRegisterForNotifications context=null -> 1",
                                  "live-objects 0"}));
}
