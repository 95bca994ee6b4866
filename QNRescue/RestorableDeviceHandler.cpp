#include "QNRescue/RestorableDeviceHandler.hpp"

#include "QNRescue/assertion.hpp"
#include "QNRescue/device_info.hpp"
#include "QNRescue/error_domain.hpp"
#include "QNRescue/live_contexts.hpp"
#include "QNRescue/qnrescue.h"
#include "QNRescue/restore_report.hpp"
#include "QNRescue/wait_in_slices.hpp"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace qnrescue {

namespace {

constexpr auto source_unit = "QNRescue/RestorableDeviceHandler";

std::int64_t whole_seconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration_cast<std::chrono::seconds>(duration).count();
}

} // namespace

template <typename... Arguments>
void device_notifier_state::debug(fmt::format_string<Arguments...> format,
                                  Arguments &&... arguments) {
    outputter->print_debug(fmt::format(format, std::forward<Arguments>(arguments)...));
}

// --- Construction and destruction

device_notifier_state::device_notifier_state(std::shared_ptr<output_str_state> output,
                                             std::optional<QN::filesystem::path> amrLogFile,
                                             std::optional<QN::filesystem::path> scratch)
    : outputter(std::move(output)) {
    assert_that(outputter != nullptr, source_unit, "device_notifier_state", "this->outputter");
    debug("{}: initializing", "device_notifier_state");
    scratchLocation = scratch && !scratch->empty()
                          ? *std::move(scratch)
                          : QN::filesystem::temp_directory_path() /
                                QN::filesystem::unique_path("qnrescue.%%%%%%");
    warmUp();
    if (amrLogFile) {
        enableFileLogging(*amrLogFile);
    }
    live_contexts::instance().add(this);
}

// A first subscription makes the library load what it needs for devices. That is all it is for: the
// results are ignored, and the handle is handed back even where it is null.
void device_notifier_state::warmUp() {
    AMDeviceNotificationRef subscription = nullptr;
    AMDeviceNotificationSubscribe([](AMDeviceNotificationCallbackInfo *, void *) {}, 0, 1, nullptr,
                                  &subscription);
    AMDeviceNotificationUnsubscribe(subscription);
}

void device_notifier_state::enableFileLogging(QN::filesystem::path const & path) {
    constexpr auto function = "device_notifier_state";
    auto const text = QN::path_to_utf8(path);
    debug("{}: AMRestoreEnableFileLogging({})", function, text);
    if (auto const error = AMRestoreEnableFileLogging(text.c_str()); error != kAMRSuccess) {
        auto const reason = adopt(AMRLocalizedCopyStringForAMRError(error));
        debug("{}: AMRestoreEnableFileLogging failed ({}: {})", function, static_cast<int>(error),
              MakeDescription(reason.get()));
    }
}

device_notifier_state::~device_notifier_state() noexcept(false) {
    live_contexts::instance().remove(this);
    constexpr auto function = "~device_notifier_state";
    assert_that(!scratchLocation.empty(), source_unit, function, "!scratchLocation.empty()");
    boost::system::error_code error;
    QN::filesystem::remove_all(scratchLocation, error);
    if (error) {
        try {
            debug("{}: Failed to clean scratch location ({})", function, error.message());
        } catch (std::bad_alloc const &) {
            // Without memory for the line; where a shared_ptr holds the object it would be the end.
        }
    }
}

// --- The device table

void device_notifier_state::deviceNotificationCallback(AMRestorableDeviceRef device,
                                                       AMRestorableDeviceNotificationType type,
                                                       void * context) {
    assert_that(context != nullptr, source_unit, "deviceNotificationCallback", "context");
    if (live_contexts::visit const visit(context); visit) {
        static_cast<device_notifier_state *>(context)->handleNotification(device, type);
    }
}

void device_notifier_state::handleNotification(AMRestorableDeviceRef device,
                                               AMRestorableDeviceNotificationType type) {
    constexpr auto function = "deviceNotificationCallback";
    if (device == nullptr) {
        debug("{}: called with null device", function);
        return;
    }
    std::unique_lock lock(mutex);
    if (inTeardown) {
        debug("{}: Ignoring notification, inTeardown", function);
        return;
    }
    if (AMRestorableDeviceGetState(device) == kAMRestorableDeviceStateBootedOS) {
        debug("{}: Ignoring booted device", function);
        return;
    }
    auto const number = AMRestorableDeviceGetECID(device);
    if (number == 0) {
        debug("{}: Ignoring AMRestorableDevice with invalid ECID ({} type {})", function,
              fmt::ptr(device), type);
        return;
    }
    QN::ecid const from(number);
    switch (type) {
    case kAMRestorableDeviceConnected:
        connected(from, device);
        break;
    case kAMRestorableDeviceDisconnected:
        disconnected(from);
        break;
    default:
        debug("{}: called with invalid notification type {}", function, type);
        break;
    }
    lock.unlock();
    condition.notify_all();
}

void device_notifier_state::connected(QN::ecid const & from, AMRestorableDeviceRef device) {
    constexpr auto function = "deviceNotificationCallback";
    if (devices.contains(from)) {
        debug("{}: Connected AMRestorableDevice, but '{}' already present", function, from);
    }
    debug("{}: Adding '{}' ({})", function, from, fmt::ptr(device));
    devices.insert_or_assign(from, retain(device));
}

void device_notifier_state::disconnected(QN::ecid const & from) {
    constexpr auto function = "deviceNotificationCallback";
    if (!devices.contains(from)) {
        debug("{}: Disconnected AMRestorableDevice, but '{}' not present", function, from);
    }
    debug("{}: Removing '{}'", function, from);
    devices.erase(from);
}

std::shared_ptr<_AMRestorableDevice> device_notifier_state::waitForDevice(QN::ecid const & sought) {
    constexpr auto function = "waitForDevice";
    debug("{}: Looking for device '{}'", function, sought);
    std::unique_lock lock(mutex);
    if (!devices.contains(sought)) {
        debug("{}: Waiting for device '{}'", function, sought);
        wait_in_slices(detectTimeout, [&](auto slice_end) {
            return condition.wait_until(lock, slice_end, [&] { return devices.contains(sought); });
        });
    }
    auto const entry = devices.find(sought);
    return entry == devices.end() ? nullptr : entry->second;
}

// --- The command

void device_notifier_state::waitForCompletion() {
    constexpr auto function = "waitForCompletion";
    debug("{}: AMRestorableDeviceRegisterForNotifications()", function);
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
    debug("{}: AMRestorableDeviceUnregisterForNotifications()", function);
    AMRestorableDeviceUnregisterForNotifications(client);
}

void device_notifier_state::listDevices() {
    wait_in_slices(detectTimeout, [](auto slice_end) {
        while (std::chrono::steady_clock::now() < slice_end) { // a sleep may end a little early
            std::this_thread::sleep_until(slice_end);
        }
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
                    whole_seconds(detectTimeout));
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
    constexpr auto function = "operateOnRecoveryDevice";
    assert_that(recoveryDevice != nullptr, source_unit, function, "recoveryDevice != nullptr");
    if (operation == command_kind::exit_recovery) {
        setAutoBoot(recoveryDevice, true);
        debug("{}: AMRecoveryModeDeviceReboot()", function);
        if (auto const error = AMRecoveryModeDeviceReboot(recoveryDevice); error != kAMRSuccess) {
            throw_error(Error::recovery_command_failed, "Reboot command failed ({})", error);
        }
        outputter->print_value(CFSTR("CommandSuccess"), kCFBooleanTrue);
    } else if (operation == command_kind::no_exit_recovery) {
        setAutoBoot(recoveryDevice, false);
        outputter->print_value(CFSTR("CommandSuccess"), kCFBooleanTrue);
    }
}

void device_notifier_state::setAutoBoot(AMRecoveryModeDeviceRef recoveryDevice, bool autoBoot) {
    debug("{}: AMRecoveryModeDeviceSetAutoBoot({})", "operateOnRecoveryDevice", autoBoot);
    if (auto const error = AMRecoveryModeDeviceSetAutoBoot(recoveryDevice, autoBoot);
        error != kAMRSuccess) {
        throw_error(Error::recovery_command_failed, "SetAutoBoot command failed ({})", error);
    }
}

// --- The restore

void device_notifier_state::CreateDefaultRestoreOptions(QN::filesystem::path const & restoreBundle,
                                                        bool erase) {
    static std::atomic<std::uint64_t> count{0};

    auto options = adopt(AMRestoreCreateDefaultOptions(kCFAllocatorDefault));
    if (!options) {
        throw std::runtime_error("AMRestoreCreateDefaultOptions failed");
    }
    auto const set = [&](CFStringRef key, CFStringRef value) {
        CFDictionarySetValue(options.get(), key, value);
    };
    auto const set_path = [&](CFStringRef key, QN::filesystem::path const & path) {
        auto const text = make_cfstring(QN::path_to_utf8(path));
        if (!text) {
            throw std::runtime_error("CFStringCreateWithBytes failed");
        }
        set(key, text.get());
    };
    set(CFSTR("AuthInstallRestoreBehavior"), erase ? CFSTR("Erase") : CFSTR("Update"));
    set(CFSTR("BootImageType"), erase ? CFSTR("UserOrInternal") : CFSTR("Update"));
    set_path(CFSTR("PersonalizedRestoreBundlePath"),
             scratchLocation / "PRB" / std::to_string(++count));
    set_path(CFSTR("RestoreBundlePath"), restoreBundle);
    restoreOptions = std::move(options);
}

void device_notifier_state::operateRestore(AMRestorableDeviceRef device) {
    if (!restoreOptions) {
        throw_error(Error::invalid_argument, "restoreOptions not set");
    }
    restoreComplete = std::promise<void>();
    auto const complete = restoreComplete.get_future();
    AMRestorableDeviceRestore(device, restoreOptions.get(), restoreCallback, this);
    bool const in_time = wait_in_slices(restoreTimeout, [&](auto slice_end) {
        return complete.wait_until(slice_end) == std::future_status::ready;
    });
    if (!in_time) {
        auto const error = CreateDomainError(
            Error::restore_timeout, fmt::format("Aborting, restore did not complete in {} seconds",
                                                whole_seconds(restoreTimeout)));
        outputter->print_formatted_error(error.get());
    }
}

void device_notifier_state::restoreCallback(AMRestorableDeviceRef /*device*/,
                                            CFDictionaryRef statusDict, void * context) {
    assert_that(context != nullptr, source_unit, "restoreCallback", "context");
    if (live_contexts::visit const visit(context); visit) {
        static_cast<device_notifier_state *>(context)->handleReport(statusDict);
    }
}

void device_notifier_state::handleReport(CFDictionaryRef statusDict) {
    constexpr auto function = "restoreCallback";
    if (statusDict == nullptr) {
        debug("{}: Invalid argument", function);
        return;
    }
    auto const report = read_report(statusDict);
    if (!report) {
        debug("{}: Ignoring invalid statusDict", function);
        return;
    }
    debug("{}: status {}, operation {}, progress {}", function, report->status, report->operation,
          report->progress);
    if (auto const printable = printable_report(statusDict, report->operation)) {
        outputter->print_value(CFSTR("RestoreStatus"), printable.get());
    } else {
        debug("{}: Could not convert statusDict", function);
    }

    // The worker goes on as soon as the promise is set: the report is queued by then.
    if (completes_restore(*report)) {
        debug("{}: Notifying restore complete", function);
        setComplete();
    }
    if (completes_restore_mode_entry(*report, operation)) {
        debug("{}: Notifying enter restore mode complete", function);
        setComplete();
    }
}

void device_notifier_state::setComplete() {
    try {
        restoreComplete.set_value();
    } catch (std::future_error const &) {
        // A further report of the same restore's completion.
    }
}

} // namespace qnrescue
