// The linker leads calls of the platform here, so that something can happen at the moment of a
// call.
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include "QNRescue/device_info.hpp"
#include "simulator/MobileDevice/simulator.hpp"

#include <gtest/gtest.h>

#include <functional>

namespace {

// What happens first when one of these functions is called.
std::function<void(AMRestorableDeviceRef)> before_product_id;
std::function<void(AMRestorableDeviceRef)> before_recovery_mode_device;
std::function<void(AMRestorableDeviceRef)> before_restore;
std::function<void(AMRestorableDeviceRef)> before_product_string;
std::function<void()> before_unregistering;
CFStringRef serial_number = nullptr; // the last one

template <typename... Arguments>
void happen(std::function<void(Arguments...)> const & what, Arguments... arguments) {
    if (what) {
        what(arguments...);
    }
}

} // namespace

extern "C" {
std::uint16_t
real_product_id(AMRestorableDeviceRef device) asm("__real_AMRestorableDeviceGetProductID");
std::uint16_t product_id(AMRestorableDeviceRef device) asm("__wrap_AMRestorableDeviceGetProductID");
CFStringRef
real_serial_number(AMRestorableDeviceRef device) asm("__real_AMRestorableDeviceCopySerialNumber");
CFStringRef
copy_serial_number(AMRestorableDeviceRef device) asm("__wrap_AMRestorableDeviceCopySerialNumber");
CFStringRef
real_product_string(AMRestorableDeviceRef device) asm("__real_AMRestorableDeviceCopyProductString");
CFStringRef
product_string(AMRestorableDeviceRef device) asm("__wrap_AMRestorableDeviceCopyProductString");
AMRecoveryModeDeviceRef real_recovery_mode_device(AMRestorableDeviceRef device) asm(
    "__real_AMRestorableDeviceCopyRecoveryModeDevice");
AMRecoveryModeDeviceRef recovery_mode_device(AMRestorableDeviceRef device) asm(
    "__wrap_AMRestorableDeviceCopyRecoveryModeDevice");
void real_restore(AMRestorableDeviceRef device, CFDictionaryRef options,
                  AMRestorableDeviceProgressCallback callback,
                  void * context) asm("__real_AMRestorableDeviceRestore");
void restore(AMRestorableDeviceRef device, CFDictionaryRef options,
             AMRestorableDeviceProgressCallback callback,
             void * context) asm("__wrap_AMRestorableDeviceRestore");
int real_unregister(int client) asm("__real_AMRestorableDeviceUnregisterForNotifications");
int unregister(int client) asm("__wrap_AMRestorableDeviceUnregisterForNotifications");
}

std::uint16_t product_id(AMRestorableDeviceRef device) {
    happen(before_product_id, device);
    return real_product_id(device);
}

CFStringRef copy_serial_number(AMRestorableDeviceRef device) {
    return serial_number = real_serial_number(device);
}

CFStringRef product_string(AMRestorableDeviceRef device) {
    happen(before_product_string, device);
    return real_product_string(device);
}

AMRecoveryModeDeviceRef recovery_mode_device(AMRestorableDeviceRef device) {
    happen(before_recovery_mode_device, device);
    return real_recovery_mode_device(device);
}

void restore(AMRestorableDeviceRef device, CFDictionaryRef options,
             AMRestorableDeviceProgressCallback callback, void * context) {
    happen(before_restore, device);
    real_restore(device, options, callback, context);
}

int unregister(int client) {
    happen(before_unregistering);
    return real_unregister(client);
}

namespace {

using namespace qnrescue;
using namespace tests;

constexpr std::uint64_t ecid = 0xA1;

// It never arrives by itself.
[[maybe_unused]] bool const playing = play_scenario(fmt::format(
    "<dict><key>Devices</key><array><dict><key>ECID</key><string>00000000000000A1</string>"
    "<key>ConnectAfter</key><integer>1000000</integer>"
    "<key>SerialNumber</key><string>a serial number</string>{}</dict></array></dict>",
    completes_at_once));

qnrescue::cf_owner<AMRestorableDeviceRef> make_device() {
    auto & scripted = *mobile_device::simulator::instance().devices().at(0);
    return scripted.make_object(scripted.initial);
}

// The device is in the table when the command begins. When it is used for the first time, it has
// left, and nobody but the command holds it any more.
void expect_success_with_a_device_that_leaves(
    command_kind kind, std::function<void(AMRestorableDeviceRef)> & first_use) {
    notifier_run run;
    run.notify(make_device().get());
    run.notifier.operation = kind;
    run.notifier.ecid.emplace(ecid);
    run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    bool left = false;
    first_use = [&](AMRestorableDeviceRef device) {
        run.notify(device, kAMRestorableDeviceDisconnected);
        left = true;
    };
    EXPECT_EQ(error_of([&] { run.notifier.waitForCompletion(); }), (tool_error{0, ""}));
    first_use = nullptr;
    EXPECT_TRUE(left);
    EXPECT_TRUE(run.notifier.devices.empty());
    EXPECT_EQ(run.output.documents().size(), 1U);
}

TEST(DeviceCalls, ADeviceLivesAsLongAsItsOperation) {
    expect_success_with_a_device_that_leaves(command_kind::device_info, before_product_id);
    expect_success_with_a_device_that_leaves(command_kind::exit_recovery,
                                             before_recovery_mode_device);
    expect_success_with_a_device_that_leaves(command_kind::restore, before_restore);
}

TEST(DeviceCalls, TheSerialNumberIsReleasedBeforeTheProductStringIsAskedFor) {
    auto const device = make_device();
    auto const known = qnrescue::adopt(real_serial_number(device.get()));
    auto const references = CFGetRetainCount(known.get());
    bool asked = false;
    before_product_string = [&](AMRestorableDeviceRef) {
        ASSERT_EQ(serial_number, known.get());
        EXPECT_EQ(CFGetRetainCount(serial_number), references);
        asked = true;
    };
    auto const info = read_device_info(device.get(), QN::ecid(ecid));
    before_product_string = nullptr;
    EXPECT_TRUE(asked);
    EXPECT_EQ(info.serialNumber, std::string_view("a serial number"));
}

TEST(DeviceCalls, TeardownBeginsBeforeNotificationsEnd) {
    auto const device = make_device();
    notifier_run run;
    run.notifier.detectTimeout = std::chrono::seconds(0);
    bool begun = false;
    before_unregistering = [&] {
        std::lock_guard const lock(run.notifier.mutex);
        begun = run.notifier.inTeardown;
    };
    run.notifier.waitForCompletion();
    before_unregistering = nullptr;
    EXPECT_TRUE(begun);
}

} // namespace
