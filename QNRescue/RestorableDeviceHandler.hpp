#pragma once

#include "QNRescue/command_kind.hpp"
#include "QNRescue/output_state.hpp"
#include "QNRescue/restore_vocabulary.hpp"
#include "QNRescue/wait_clock.hpp"
#include "platform/MobileDevice.h"
#include "platform/cf_ownership.hpp"
#include "support/filesystem.hpp"
#include "support/identifiers/ecid.hpp"

#include <fmt/format.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace qnrescue {

// Carries out one run of the tool. Holds the attached restorable devices, the command, its target
// and timeouts, and the scratch folder, which is removed with this object. The caller sets the
// public members before waitForCompletion().
class device_notifier_state {
public:
    // Chooses a scratch folder if the given one is empty or absent; does not create it.
    // Throws std::invalid_argument for a null output, QN::filesystem::filesystem_error where the
    // system has no temporary folder or no random digits.
    device_notifier_state(std::shared_ptr<output_str_state> output,
                          std::optional<QN::filesystem::path> amrLogFile,
                          std::optional<QN::filesystem::path> scratch,
                          wait_clock & clock = steady_wait_clock());
    // Waits for callbacks that are under way; later ones do nothing. Throws std::invalid_argument
    // where scratchLocation is empty, which ends the process where a shared_ptr holds the object.
    ~device_notifier_state() noexcept(false);
    device_notifier_state(device_notifier_state const &) = delete;
    device_notifier_state & operator=(device_notifier_state const &) = delete;

    // Runs the command from registration for notifications to its end. Throws error_owner, and then
    // leaves the registration in place. An error of the registration is printed too before it is
    // thrown.
    void waitForCompletion();

    // Waits for the device with this ECID and returns it, or null if detectTimeout passes first.
    std::shared_ptr<_AMRestorableDevice> waitForDevice(QN::ecid const & ecid);

    // Sets the restore options for an IPSW. Throws std::runtime_error where the library gives no
    // default options or cannot hold the paths.
    void CreateDefaultRestoreOptions(QN::filesystem::path const & restoreBundle, bool erase);

    // Restores the device and waits for the end. Prints a timeout and does not throw it; throws
    // error_owner where there are no options. Call it once for each notifier: late reports would
    // count for the next restore.
    void operateRestore(AMRestorableDeviceRef device);

    // Carries out exit_recovery or no_exit_recovery. Throws error_owner where the device refuses,
    // std::invalid_argument for a null device.
    void operateOnRecoveryDevice(AMRecoveryModeDeviceRef recoveryDevice);

    // The callbacks of the restore interface; the context is the notifier. A null context throws
    // std::invalid_argument.
    static void deviceNotificationCallback(AMRestorableDeviceRef device,
                                           AMRestorableDeviceNotificationType type, void * context);
    static void restoreCallback(AMRestorableDeviceRef device, CFDictionaryRef statusDict,
                                void * context);

    std::shared_ptr<output_str_state> outputter;
    QN::filesystem::path scratchLocation;
    cf_owner<CFDictionaryRef> restoreOptions;
    std::unordered_map<QN::ecid, std::shared_ptr<_AMRestorableDevice>> devices;
    std::mutex mutex; // guards devices and inTeardown
    std::condition_variable condition;
    bool inTeardown = false;
    command_kind operation = command_kind::list_devices;
    std::string operationName;
    std::chrono::nanoseconds detectTimeout = std::chrono::seconds(3);
    std::optional<QN::ecid> ecid;
    std::chrono::nanoseconds restoreTimeout = std::chrono::seconds(7200);
    std::promise<void> restoreComplete;

private:
    template <typename... Arguments>
    void debug(fmt::format_string<Arguments...> format, Arguments &&... arguments) {
        outputter->print_debug(fmt::format(format, std::forward<Arguments>(arguments)...));
    }

    void warmUp();
    // These four do the work of a callback, whose name begins their debug lines.
    void handleNotification(char const * callback, AMRestorableDeviceRef device,
                            AMRestorableDeviceNotificationType type);
    void connected(char const * callback, QN::ecid const & ecid, AMRestorableDeviceRef device);
    void disconnected(char const * callback, QN::ecid const & ecid);
    void handleReport(char const * callback, CFDictionaryRef statusDict);
    void listDevices();
    void operateOnDevice();
    void commandRecoveryDevice(AMRestorableDeviceRef device);
    void setComplete();

    wait_clock & clock;
};

} // namespace qnrescue
