#include "QNRescue/RestorableDeviceHandler.hpp"

#include "QNRescue/assertion.hpp"
#include "QNRescue/device_info.hpp"
#include "QNRescue/error_domain.hpp"
#include "QNRescue/live_contexts.hpp"
#include "QNRescue/qnrescue.h"
#include "QNRescue/scratch_folder.hpp"
#include "QNRescue/wait_in_slices.hpp"
#include "platform/cf_strings.hpp"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>
#include <vector>

namespace qnrescue {

namespace {

constexpr auto this_unit = "QNRescue/RestorableDeviceHandler";

} // namespace

// --- Construction and destruction

device_notifier_state::device_notifier_state(std::shared_ptr<output_str_state> output,
                                             std::optional<QN::filesystem::path> amrLogFile,
                                             std::optional<QN::filesystem::path> scratch,
                                             wait_clock & time)
    : outputter(std::move(output))
    , clock(time) {
    assert_that(outputter != nullptr, this_unit, __func__, "this->outputter");
    debug("{}: initializing", __func__);
    scratchLocation = scratch && !scratch->empty() ? *std::move(scratch) : new_scratch_location();
    warmUp();
    if (amrLogFile) {
        auto const path = QN::path_to_utf8(*amrLogFile);
        debug("{}: AMRestoreEnableFileLogging({})", __func__, path);
        if (auto const error = AMRestoreEnableFileLogging(path.c_str()); error != kAMRSuccess) {
            auto const reason = adopt(AMRLocalizedCopyStringForAMRError(error));
            debug("{}: AMRestoreEnableFileLogging failed ({}: {})", __func__,
                  static_cast<int>(error), MakeDescription(reason.get()));
        }
    }
    live_contexts::instance().add(this);
}

// A first subscription makes the library load what it needs for devices. Nothing else is wanted
// from it: results are ignored, and the handle is unsubscribed even where it is null.
void device_notifier_state::warmUp() {
    AMDeviceNotificationRef subscription = nullptr;
    AMDeviceNotificationSubscribe([](AMDeviceNotificationCallbackInfo *, void *) {}, 0, 1, nullptr,
                                  &subscription);
    AMDeviceNotificationUnsubscribe(subscription);
}

device_notifier_state::~device_notifier_state() noexcept(false) {
    live_contexts::instance().remove(this);
    assert_that(!scratchLocation.empty(), this_unit, __func__, "!scratchLocation.empty()");
    if (auto const error = remove_scratch_folder(scratchLocation)) {
        try {
            debug("{}: Failed to clean scratch location ({})", __func__, error.message());
        } catch (std::bad_alloc const &) {
            // No memory for the line. Thrown on, it would end the process where a shared_ptr
            // destroys the object.
        }
    }
}

// --- The library's callbacks

void device_notifier_state::deviceNotificationCallback(AMRestorableDeviceRef device,
                                                       AMRestorableDeviceNotificationType type,
                                                       void * context) {
    assert_that(context != nullptr, this_unit, __func__, "context");
    if (live_contexts::visit const visit(context); visit) {
        static_cast<device_notifier_state *>(context)->handleNotification(__func__, device, type);
    }
}

void device_notifier_state::restoreCallback(AMRestorableDeviceRef /*device*/,
                                            CFDictionaryRef statusDict, void * context) {
    assert_that(context != nullptr, this_unit, __func__, "context");
    if (live_contexts::visit const visit(context); visit) {
        static_cast<device_notifier_state *>(context)->handleReport(__func__, statusDict);
    }
}

// --- The command

void device_notifier_state::waitForCompletion() {
    debug("{}: AMRestorableDeviceRegisterForNotifications()", __func__);
    CFErrorRef failure = nullptr;
    auto const client =
        AMRestorableDeviceRegisterForNotifications(deviceNotificationCallback, this, &failure);
    if (auto error = adopt(failure)) {
        outputter->print_formatted_error(error.get());
        throw error_owner(error.release());
    }
    if (operation == command_kind::list_devices) {
        listDevices();
    } else {
        operateOnDevice();
    }
    {
        std::lock_guard const lock(mutex);
        inTeardown = true;
    }
    debug("{}: AMRestorableDeviceUnregisterForNotifications()", __func__);
    AMRestorableDeviceUnregisterForNotifications(client);
}

void device_notifier_state::listDevices() {
    wait_in_slices(clock, detectTimeout, [this](auto slice_end) {
        clock.sleep_until(slice_end);
        return false;
    });
    std::lock_guard const lock(mutex);
    std::vector<QN::ecid> ecids;
    ecids.reserve(devices.size());
    for (auto const & [attached, device] : devices) {
        ecids.push_back(attached);
    }
    std::sort(ecids.begin(), ecids.end());
    outputter->print_value(CFSTR("DeviceList"), make_cftype(ecids).get());
}

void device_notifier_state::operateOnDevice() {
    if (!ecid) {
        throw_error(Error::bad_command, "{} command requires device ecid", operationName);
    }
    auto const device = waitForDevice(*ecid);
    if (!device) {
        throw_error(Error::bad_ecid, "Failed to find device with ecid {} after {} seconds", *ecid,
                    std::chrono::duration_cast<std::chrono::seconds>(detectTimeout).count());
    }
    switch (operation) {
    case command_kind::restore:
    case command_kind::enter_restore_mode:
        operateRestore(device.get());
        break;
    case command_kind::device_info:
        outputter->print_value(CFSTR("DeviceInfo"),
                               make_cftype(read_device_info(device.get(), *ecid)).get());
        break;
    case command_kind::exit_recovery:
    case command_kind::no_exit_recovery:
        commandRecoveryDevice(device.get());
        break;
    default:
        throw_error(Error::invalid_argument, "Internal error, missing operation");
    }
}

void device_notifier_state::commandRecoveryDevice(AMRestorableDeviceRef device) {
    auto const state = AMRestorableDeviceGetState(device);
    if (state != kAMRestorableDeviceStateRecovery) {
        throw_error(Error::bad_state, "Device in state {} not valid for {}", state, operationName);
    }
    auto const recoveryDevice = adopt(AMRestorableDeviceCopyRecoveryModeDevice(device));
    if (!recoveryDevice) {
        throw_error(Error::bad_state, "Recovery device not available for this Restorable device");
    }
    operateOnRecoveryDevice(recoveryDevice.get());
}

void device_notifier_state::operateOnRecoveryDevice(AMRecoveryModeDeviceRef recoveryDevice) {
    assert_that(recoveryDevice != nullptr, this_unit, __func__, "recoveryDevice != nullptr");
    bool const exits = operation == command_kind::exit_recovery;
    if (!exits && operation != command_kind::no_exit_recovery) {
        return;
    }
    debug("{}: AMRecoveryModeDeviceSetAutoBoot({})", __func__, exits);
    if (auto const error = AMRecoveryModeDeviceSetAutoBoot(recoveryDevice, exits);
        error != kAMRSuccess) {
        throw_error(Error::recovery_command_failed, "SetAutoBoot command failed ({})", error);
    }
    if (exits) {
        debug("{}: AMRecoveryModeDeviceReboot()", __func__);
        if (auto const error = AMRecoveryModeDeviceReboot(recoveryDevice); error != kAMRSuccess) {
            throw_error(Error::recovery_command_failed, "Reboot command failed ({})", error);
        }
    }
    outputter->print_value(CFSTR("CommandSuccess"), kCFBooleanTrue);
}

} // namespace qnrescue
