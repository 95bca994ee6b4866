// What whole processes leave behind: exit statuses, and the trace's last line.
#include "platform/MobileDevice.h"
#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <atomic>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

#if defined(_WIN32)
#include <windows.h>
#endif

using namespace property_list;
using namespace std::chrono_literals;

namespace {

class ProcessEnd : public testing::Test {
protected:
    ProcessEnd() {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
        tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", folder.utf8("trace.txt"));
    }
    ~ProcessEnd() override {
        tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", "");
        tests::set_environment("MOBILEDEVICE_SIMULATOR_SCENARIO", "");
    }

    void use(std::string const & bytes) const {
        tests::set_environment("MOBILEDEVICE_SIMULATOR_SCENARIO",
                               folder.write("scenario.plist", bytes));
    }
    std::string last_line() const {
        auto const lines = tests::read_lines(folder / "trace.txt");
        return lines.empty() ? "" : lines.back();
    }

    tests::temporary_folder folder{"MOBILEDEVICE_TEST_FOLDER"};
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

// Holds objects nearly all the time.
void copy_amid_a_report(AMRestorableDeviceRef device, CFDictionaryRef, void *) {
    auto const serial_number = AMRestorableDeviceCopySerialNumber(device);
    auto const options = AMRestoreCreateDefaultOptions(kCFAllocatorDefault);
    ++reports;
    CFRelease(options);
    CFRelease(serial_number);
}

void hold_a_copy(AMRestorableDeviceRef device, CFDictionaryRef, void *) {
    auto const serial_number = AMRestorableDeviceCopySerialNumber(device);
    ++reports;
    std::this_thread::sleep_for(50ms);
    CFRelease(serial_number);
}

void never_return(AMRestorableDeviceRef, CFDictionaryRef, void *) {
    ++reports;
    for (;;) {
        std::this_thread::sleep_for(1h);
    }
}

#if defined(_WIN32)
void end_own_thread(AMRestorableDeviceRef, CFDictionaryRef, void *) {
    ++reports;
    TerminateThread(GetCurrentThread(), 0);
}
#endif

void exit_in_a_report(AMRestorableDeviceRef, CFDictionaryRef, void *) {
    std::exit(4);
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

// Returns while the restore that it started goes on.
void restore_until(int count, AMRestorableDeviceProgressCallback callback,
                   CFDictionaryRef options = nullptr) {
    register_for(keep_device);
    wait_for(notifications, 1);
    AMRestorableDeviceRestore(static_cast<AMRestorableDeviceRef>(const_cast<void *>(kept)), options,
                              callback, nullptr);
    wait_for(reports, count);
    CFRelease(kept);
}

[[noreturn]] void exit_while_the_device_is_away(std::string const & bundle) {
    auto const path =
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(bundle.data()),
                                static_cast<CFIndex>(bundle.size()), kCFStringEncodingUTF8, false);
    auto const options = AMRestoreCreateDefaultOptions(kCFAllocatorDefault);
    CFDictionarySetValue(options, CFSTR("RestoreBundlePath"), path);
    restore_until(8, count_report, options); // the eighth is the last before it leaves
    CFRelease(options);
    CFRelease(path);
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
                "scenario.plist: Devices\\[1\\].State: must be Unknown, DFU, Recovery, RestoreOS, "
                "BootedOS or an integer");
    EXPECT_EQ(tests::read_file(folder / "trace.txt"), "live-objects 0\n");
}

TEST_F(ProcessEnd, AScenarioThatCannotBeReadEndsTheProcess) {
    tests::set_environment("MOBILEDEVICE_SIMULATOR_SCENARIO", folder.utf8("missing.plist"));
    EXPECT_EXIT(call_once(), testing::ExitedWithCode(70), "missing.plist: cannot be read");
}

TEST_F(ProcessEnd, FunctionsAtTheExitMayCallDespiteAFaultyScenario) {
    use(document(array({})));
    EXPECT_EXIT(
        {
            std::atexit(call_once);
            call_once();
        },
        testing::ExitedWithCode(70), "scenario.plist: root: must be a dictionary");
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
    EXPECT_EXIT(
        {
            restore_until(100, count_report);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, WaitsForCallbacksThatHoldObjects) {
    use(busy_scenario());
    EXPECT_EXIT(
        {
            restore_until(1, hold_a_copy);
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, ComesSafelyAmidCopies) {
    use(busy_scenario());
    EXPECT_EXIT(
        {
            restore_until(20, copy_amid_a_report);
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, DoesNotWaitForEver) {
    use(busy_scenario());
    EXPECT_EXIT(
        {
            restore_until(1, never_return);
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
    EXPECT_TRUE(last_line().starts_with("live-objects "));
}

TEST_F(ProcessEnd, ComesSafelyWhileADeviceIsAwayForItsRestore) {
    use(document(dictionary(
        {{"TimeScale", real(0.05)}, {"Devices", array({dictionary({{"ECID", text("1")}})})}})));
    folder.write("BuildManifest.plist", "manifest");
    EXPECT_EXIT(exit_while_the_device_is_away(folder.utf8("")), testing::ExitedWithCode(0), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, MayComeFromAReport) {
    use(busy_scenario());
    EXPECT_EXIT(restore_until(1, exit_in_a_report), testing::ExitedWithCode(4), "");
    EXPECT_EQ(last_line(), "live-objects 2"); // the device that is held, and what it holds
}

#if defined(_WIN32)
TEST_F(ProcessEnd, DoesNotWaitForEverForAThreadThatWasKilled) {
    use(busy_scenario());
    EXPECT_EXIT(
        {
            restore_until(1, end_own_thread);
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}

TEST_F(ProcessEnd, ComesSafelyWithoutTheRunTimeLibrary) {
    use(busy_scenario());
    EXPECT_EXIT(
        {
            restore_until(100, count_report);
            ExitProcess(3);
        },
        testing::ExitedWithCode(3), "");
    EXPECT_EQ(last_line(), "live-objects 0");
}
#endif

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
        tests::read_lines(folder / "trace.txt"),
        (std::vector<std::string>{"AMRestorableDeviceRegisterForNotifications context=null -> 1",
                                  "live-objects 0"}));
}
