// The restore: its options for an IPSW, its start, its reports, and the wait for its end.
#include "QNRescue/RestorableDeviceHandler.hpp"
#include "QNRescue/error_domain.hpp"
#include "QNRescue/restore_report.hpp"
#include "QNRescue/wait_in_slices.hpp"
#include "platform/cf_strings.hpp"

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace qnrescue {

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
    bool const in_time = wait_in_slices(clock, restoreTimeout, [&](auto slice_end) {
        return clock.wait_until(complete, slice_end);
    });
    if (!in_time) {
        auto const error = CreateDomainError(
            Error::restore_timeout,
            fmt::format("Aborting, restore did not complete in {} seconds",
                        std::chrono::duration_cast<std::chrono::seconds>(restoreTimeout).count()));
        outputter->print_formatted_error(error.get());
    }
}

void device_notifier_state::handleReport(char const * callback, CFDictionaryRef statusDict) {
    if (statusDict == nullptr) {
        debug("{}: Invalid argument", callback);
        return;
    }
    auto const report = read_report(statusDict);
    if (!report) {
        debug("{}: Ignoring invalid statusDict", callback);
        return;
    }
    debug("{}: status {}, operation {}, progress {}", callback, report->status, report->operation,
          report->progress);
    if (auto const printable = printable_report(statusDict, report->operation)) {
        outputter->print_value(CFSTR("RestoreStatus"), printable.get());
    } else {
        debug("{}: Could not convert statusDict", callback);
    }

    // The worker goes on as soon as the promise is set: the report is queued by then.
    if (completes_restore(*report)) {
        debug("{}: Notifying restore complete", callback);
        setComplete();
    }
    if (completes_restore_mode_entry(*report, operation)) {
        debug("{}: Notifying enter restore mode complete", callback);
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
