// What each command does with its device, from the options to the documents.
#include "platform/cf_strings.hpp"
#include "tests/unit/QNRescue/notifier_devices.hpp"
#include "tests/unit/helpers/assertion_text.hpp"
#include "tests/unit/helpers/fake_clock.hpp"
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;
using strings = std::vector<std::string>;

// A run that is to carry out a command for a device.
struct command_run : notifier_run {
    explicit command_run(command_kind kind, std::string const & name,
                         std::optional<std::uint64_t> ecid = std::nullopt,
                         wait_clock & clock = steady_wait_clock())
        : notifier_run(clock) {
        notifier.operation = kind;
        notifier.operationName = name;
        if (ecid) {
            notifier.ecid = QN::ecid(*ecid);
        }
    }

    tool_error error() {
        return error_of([this] { notifier.waitForCompletion(); });
    }

    // The debug lines of the command itself, without those of notifications and of the waiting.
    strings lines_of_command() {
        auto lines = output.debug_lines();
        std::erase_if(lines, [](std::string const & line) {
            return !line.starts_with("waitForCompletion: ") &&
                   !line.starts_with("operateOnRecoveryDevice: ") &&
                   !line.starts_with("waitForDevice: Looking");
        });
        return lines;
    }
};

std::string const registering = "waitForCompletion: AMRestorableDeviceRegisterForNotifications()";
std::string const unregistering =
    "waitForCompletion: AMRestorableDeviceUnregisterForNotifications()";

std::string looking_for(std::uint64_t ecid) {
    return fmt::format("waitForDevice: Looking for device '{:016X}'", ecid);
}

// --- list-devices

strings listed_ecids(command_run & run) {
    auto const documents = run.output.documents();
    EXPECT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents.at(0).type, "DeviceList");
    auto const value = documents.at(0).value.get();
    EXPECT_TRUE(is_a(value, CFArrayGetTypeID()));
    auto const array = static_cast<CFArrayRef>(value);
    strings ecids;
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        ecids.push_back(MakeString(static_cast<CFStringRef>(CFArrayGetValueAtIndex(array, i))));
    }
    return ecids;
}

TEST(ListDevices, InTheOrderOfTheirEcids) {
    constexpr std::uint64_t attached[] = {in_strange_state, dfu_device, twice_there,
                                          recovery_device, restore_os_device};
    constexpr std::uint64_t not_restorable[] = {booted_device, device_without_ecid};
    fake_clock clock;
    command_run run(command_kind::list_devices, "list-devices", std::nullopt, clock);
    run.notifier.detectTimeout = 30h;
    for (auto const ecid : not_restorable) {
        clock.at(1h, [&, ecid] { run.notify(device_with(ecid)); });
    }
    for (auto const ecid : attached) { // in the last moment
        clock.at(30h - 1ns, [&, ecid] { run.notify(device_with(ecid)); });
    }
    EXPECT_EQ(run.error(), (tool_error{0, ""}));
    EXPECT_EQ(clock.passed(), 30h);
    auto const ecids = listed_ecids(run);
    EXPECT_TRUE(std::ranges::is_sorted(ecids));
    auto const count = [&](std::uint64_t ecid) {
        return std::ranges::count(ecids, fmt::format("{:016X}", ecid));
    };
    for (auto const ecid : attached) {
        EXPECT_EQ(count(ecid), 1) << ecid;
    }
    for (auto const ecid : not_restorable) {
        EXPECT_EQ(count(ecid), 0) << ecid;
    }
    EXPECT_EQ(run.lines_of_command(), (strings{registering, unregistering}));
}

TEST(ListDevices, OrdersEcidsAsUnsignedNumbers) {
    command_run run(command_kind::list_devices, "list-devices");
    run.notifier.detectTimeout = 0s;
    run.notifier.inTeardown = true; // the devices of the simulator stay out
    for (auto const ecid : {std::uint64_t{2}, std::uint64_t{1} << 63, std::uint64_t{1},
                            ~std::uint64_t{0}, std::uint64_t{0x100}}) {
        run.notifier.devices.emplace(QN::ecid(ecid), retain(device_with(recovery_device)));
    }
    run.notifier.waitForCompletion();
    EXPECT_EQ(listed_ecids(run),
              (strings{"0000000000000001", "0000000000000002", "0000000000000100",
                       "8000000000000000", "FFFFFFFFFFFFFFFF"}));
}

TEST(ListDevices, MayBeEmpty) {
    for (auto const timeout : {std::chrono::nanoseconds(0), std::chrono::nanoseconds(-1s)}) {
        fake_clock clock;
        command_run run(command_kind::list_devices, "list-devices", std::nullopt, clock);
        run.notifier.detectTimeout = timeout;
        run.notifier.inTeardown = true;
        EXPECT_EQ(run.error(), (tool_error{0, ""}));
        EXPECT_EQ(clock.passed(), 0ns);
        EXPECT_EQ(listed_ecids(run), strings{});
    }
}

// --- Devices

TEST(Command, NeedsAnEcid) {
    for (auto const kind :
         {command_kind::device_info, command_kind::exit_recovery, command_kind::no_exit_recovery,
          command_kind::restore, command_kind::enter_restore_mode}) {
        command_run run(kind, "the-name");
        run.notifier.detectTimeout = 1h;
        EXPECT_EQ(run.error(), (tool_error{3, "the-name command requires device ecid"}));
        EXPECT_FALSE(run.notifier.inTeardown);
        EXPECT_EQ(run.lines_of_command(), strings{registering});
        EXPECT_EQ(run.output.out(), "");
    }
}

TEST(Command, NeedsADeviceInTime) {
    fake_clock clock;
    command_run run(command_kind::device_info, "device-info", 0xABCDEF, clock);
    run.notifier.detectTimeout = 1h + 1999ms;
    EXPECT_EQ(
        run.error(),
        (tool_error{4, "Failed to find device with ecid 0000000000ABCDEF after 3601 seconds"}));
    EXPECT_EQ(clock.passed(), 1h + 1999ms);
    EXPECT_FALSE(run.notifier.inTeardown);
    EXPECT_EQ(run.lines_of_command(), (strings{registering, looking_for(0xABCDEF)}));
}

TEST(Command, NeverFindsADeviceWithoutEcid) {
    fake_clock clock;
    command_run run(command_kind::device_info, "device-info", 0, clock);
    clock.at(1s, [&] { run.notify(device_with(device_without_ecid)); });
    EXPECT_EQ(run.error(),
              (tool_error{4, "Failed to find device with ecid ???????????????? after 3 seconds"}));
}

TEST(Command, LeavesTheRegistrationInPlaceWhenItFails) {
    call_trace const trace;
    {
        command_run run(command_kind::device_info, "device-info", 0xABCDEF);
        run.notifier.detectTimeout = 0s;
        EXPECT_EQ(run.error().code, 4);
        EXPECT_EQ(trace.calls("AMRestorableDeviceRegisterForNotifications").size(), 1U);
    }
    EXPECT_EQ(trace.calls("AMRestorableDeviceUnregisterForNotifications").size(), 0U);
}

TEST(Command, WithoutAMeaningIsAnInternalError) {
    for (std::uint32_t const number : {6U, 77U, 4294967295U}) {
        command_run run(command_kind{number}, "strange", recovery_device);
        EXPECT_EQ(run.error(), (tool_error{2, "Internal error, missing operation"}));
    }
}

TEST(Command, WaitsForADeviceThatComesLate) {
    command_run run(command_kind::device_info, "device-info", comes_late);
    run.notifier.detectTimeout = 30s;
    EXPECT_EQ(run.error(), (tool_error{0, ""}));
    EXPECT_EQ(run.output.documents().size(), 1U);
}

// --- device-info

TEST(DeviceInfoCommand, PrintsTheProperties) {
    command_run run(command_kind::device_info, "device-info", recovery_device);
    run.notifier.detectTimeout = 30s;
    auto const references = CFGetRetainCount(device_with(recovery_device));
    EXPECT_EQ(run.error(), (tool_error{0, ""}));
    EXPECT_TRUE(run.notifier.inTeardown);
    run.notifier.devices.clear();
    EXPECT_EQ(CFGetRetainCount(device_with(recovery_device)), references);
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "DeviceInfo");
    EXPECT_TRUE(equal(documents[0].value.get(),
                      plist("<dict><key>ECID</key><string>00000000000000A1</string>"
                            "<key>ProductID</key><integer>-32767</integer>"
                            "<key>BoardID</key><integer>-1</integer>"
                            "<key>ChipID</key><integer>32800</integer>"
                            "<key>ProductType</key><integer>-2147483648</integer>"
                            "<key>FusingInfo</key><integer>3</integer>"
                            "<key>LocationID</key><integer>336592896</integer>"
                            "<key>SerialNumber</key><string>C39serial</string>"
                            "<key>ProductString</key><string>T\xc3\xa9l\xc3\xa9phone "
                            "\xe6\x97\xa5\xe6\x9c\xac &amp; more</string></dict>")
                          .get()));
    EXPECT_EQ(run.lines_of_command(),
              (strings{registering, looking_for(recovery_device), unregistering}));
}

TEST(DeviceInfoCommand, TakesADeviceInAnyState) {
    for (auto const ecid : {dfu_device, restore_os_device, in_strange_state}) {
        command_run run(command_kind::device_info, "device-info", ecid);
        run.notifier.detectTimeout = 30s;
        EXPECT_EQ(run.error(), (tool_error{0, ""}));
        auto const documents = run.output.documents();
        ASSERT_EQ(documents.size(), 1U);
        EXPECT_EQ(CFDictionaryGetCount(static_cast<CFDictionaryRef>(documents[0].value.get())), 7);
    }
}

// --- exit-recovery and no-exit-recovery

command_run recovery_run(command_kind kind, std::uint64_t ecid) {
    return command_run(
        kind, kind == command_kind::exit_recovery ? "exit-recovery" : "no-exit-recovery", ecid);
}

void expect_success_document(command_run & run) {
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "CommandSuccess");
    EXPECT_TRUE(equal(documents[0].value.get(), kCFBooleanTrue));
}

CFIndex recovery_device_references(std::uint64_t ecid) {
    auto const recovery = adopt(AMRestorableDeviceCopyRecoveryModeDevice(device_with(ecid)));
    return CFGetRetainCount(recovery.get());
}

TEST(ExitRecovery, SetsAutoBootAndReboots) {
    auto const references = recovery_device_references(exits_recovery);
    auto run = recovery_run(command_kind::exit_recovery, exits_recovery);
    run.notifier.detectTimeout = 30s;
    call_trace const trace;
    EXPECT_EQ(run.error(), (tool_error{0, ""}));
    expect_success_document(run);
    EXPECT_EQ(trace.calls("AMRecoveryMode"),
              (strings{"AMRecoveryModeDeviceSetAutoBoot device=00000000000000B4 autoBoot=true -> 0",
                       "AMRecoveryModeDeviceReboot device=00000000000000B4 -> 0"}));
    EXPECT_EQ(run.lines_of_command(),
              (strings{registering, looking_for(exits_recovery),
                       "operateOnRecoveryDevice: AMRecoveryModeDeviceSetAutoBoot(true)",
                       "operateOnRecoveryDevice: AMRecoveryModeDeviceReboot()", unregistering}));
    EXPECT_EQ(recovery_device_references(exits_recovery), references);
}

TEST(NoExitRecovery, SetsAutoBootAndNeverReboots) {
    auto const references = recovery_device_references(stays_in_recovery);
    auto run = recovery_run(command_kind::no_exit_recovery, stays_in_recovery);
    run.notifier.detectTimeout = 30s;
    call_trace const trace;
    EXPECT_EQ(run.error(), (tool_error{0, ""}));
    expect_success_document(run);
    EXPECT_EQ(
        trace.calls("AMRecoveryMode"),
        strings{"AMRecoveryModeDeviceSetAutoBoot device=00000000000000B5 autoBoot=false -> 0"});
    EXPECT_EQ(run.lines_of_command(),
              (strings{registering, looking_for(stays_in_recovery),
                       "operateOnRecoveryDevice: AMRecoveryModeDeviceSetAutoBoot(false)",
                       unregistering}));
    EXPECT_EQ(recovery_device_references(stays_in_recovery), references);
}

tool_error recovery_error(command_kind kind, std::uint64_t ecid) {
    auto run = recovery_run(kind, ecid);
    run.notifier.detectTimeout = 30s;
    auto error = run.error();
    EXPECT_FALSE(run.notifier.inTeardown);
    EXPECT_EQ(run.output.out(), "");
    return error;
}

TEST(RecoveryCommand, NeedsTheRecoveryState) {
    EXPECT_EQ(recovery_error(command_kind::exit_recovery, dfu_device),
              (tool_error{5, "Device in state DFU not valid for exit-recovery"}));
    EXPECT_EQ(recovery_error(command_kind::exit_recovery, restore_os_device),
              (tool_error{5, "Device in state RestoreOS not valid for exit-recovery"}));
    EXPECT_EQ(recovery_error(command_kind::no_exit_recovery, dfu_device),
              (tool_error{5, "Device in state DFU not valid for no-exit-recovery"}));
    EXPECT_EQ(
        recovery_error(command_kind::no_exit_recovery, in_strange_state),
        (tool_error{5, "Device in state <invalid device state 7> not valid for no-exit-recovery"}));
}

TEST(RecoveryCommand, NeedsARecoveryModeDevice) {
    for (auto const kind : {command_kind::exit_recovery, command_kind::no_exit_recovery}) {
        EXPECT_EQ(recovery_error(kind, without_recovery_mode),
                  (tool_error{5, "Recovery device not available for this Restorable device"}));
    }
}

TEST(RecoveryCommand, FailsWhereAutoBootCannotBeSet) {
    auto const references = recovery_device_references(refuses_auto_boot);
    call_trace const trace;
    for (auto const kind : {command_kind::exit_recovery, command_kind::no_exit_recovery}) {
        EXPECT_EQ(recovery_error(kind, refuses_auto_boot),
                  (tool_error{6, "SetAutoBoot command failed (Bad argument)"}));
    }
    EXPECT_EQ(trace.calls("AMRecoveryModeDeviceReboot"), strings{});
    EXPECT_EQ(recovery_device_references(refuses_auto_boot), references);
}

TEST(RecoveryCommand, FailsWhereTheDeviceDoesNotReboot) {
    auto const references = recovery_device_references(refuses_reboot);
    EXPECT_EQ(recovery_error(command_kind::exit_recovery, refuses_reboot),
              (tool_error{6, "Reboot command failed (Unknown error 65)"}));
    EXPECT_EQ(recovery_device_references(refuses_reboot), references);
}

TEST(RecoveryCommand, NeedsADevice) {
    notifier_run run;
    expect_assertion("QNRescue/RestorableDeviceHandler:LINE:operateOnRecoveryDevice "
                     "Assertion recoveryDevice != nullptr failed.",
                     [&] { run.notifier.operateOnRecoveryDevice(nullptr); });
}

// --- restore

TEST(RestoreCommand, EndsInTeardown) {
    command_run run(command_kind::restore, "restore", restores);
    run.notifier.detectTimeout = 30s;
    run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    call_trace const trace;
    EXPECT_EQ(run.error(), (tool_error{0, ""}));
    EXPECT_TRUE(run.notifier.inTeardown);
    EXPECT_EQ(trace.calls("AMRestorableDeviceRegister").size(), 1U);
    EXPECT_EQ(trace.calls("AMRestorableDeviceUnregister").size(), 1U);
    EXPECT_EQ(run.output.documents().size(), 3U);
    EXPECT_EQ(run.lines_of_command(), (strings{registering, looking_for(restores), unregistering}));
}

TEST(RestoreCommand, TimesOutIntoTeardown) {
    command_run run(command_kind::restore, "restore", recovery_device);
    run.notifier.detectTimeout = 30s;
    run.notifier.restoreTimeout = 0s;
    run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    EXPECT_EQ(run.error(), (tool_error{0, ""}));
    EXPECT_TRUE(run.notifier.inTeardown);
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "InternalError");
    EXPECT_EQ(run.lines_of_command().back(), unregistering);
}

TEST(RestoreCommand, TakesADeviceInAnyState) {
    for (auto const ecid : {dfu_device, restore_os_device, in_strange_state}) {
        command_run run(command_kind::enter_restore_mode, "restore", ecid);
        run.notifier.detectTimeout = 30s;
        run.notifier.restoreTimeout = 0s;
        run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
        EXPECT_EQ(run.error(), (tool_error{0, ""}));
    }
}

TEST(RestoreCommand, NeedsOptions) {
    command_run run(command_kind::restore, "restore-plist", restores);
    run.notifier.detectTimeout = 30s;
    EXPECT_EQ(run.error(), (tool_error{2, "restoreOptions not set"}));
    EXPECT_FALSE(run.notifier.inTeardown);
}

} // namespace
