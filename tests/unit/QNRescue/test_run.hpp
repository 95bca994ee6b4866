// A notifier with an output that is captured and a scratch directory of the test's.
#pragma once

#include "QNRescue/RestorableDeviceHandler.hpp"
#include "QNRescue/error_domain.hpp"
#include "tests/unit/QNRescue/output_capture.hpp"
#include "tests/unit/QNRescue/temporary_folder.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <deque>
#include <new>
#include <ostream>
#include <string>

namespace tests {

struct test_run {
    void notify(AMRestorableDeviceRef device,
                AMRestorableDeviceNotificationType type = kAMRestorableDeviceConnected) {
        qnrescue::device_notifier_state::deviceNotificationCallback(device, type, &notifier);
    }

    void report(CFDictionaryRef status) {
        qnrescue::device_notifier_state::restoreCallback(nullptr, status, &notifier);
    }

    test_run() = default;
    ~test_run() noexcept(false) { notifier.~device_notifier_state(); }
    test_run(test_run const &) = delete;
    test_run & operator=(test_run const &) = delete;

    output_capture output;
    temporary_folder folder;
    qnrescue::device_notifier_state & notifier{
        *new (unused_storage()) qnrescue::device_notifier_state(output.state(), std::nullopt,
                                                                folder.path() / "scratch")};

private:
    // A failed command leaves its registration behind: no later notifier may have its address.
    static void * unused_storage() {
        struct alignas(qnrescue::device_notifier_state) storage {
            std::byte bytes[sizeof(qnrescue::device_notifier_state)];
        };
        static auto & all = *new std::deque<storage>;
        return all.emplace_back().bytes;
    }
};

// A tool error that was thrown.
struct tool_error {
    CFIndex code;
    std::string reason;
    bool operator==(tool_error const &) const = default;
};

inline std::ostream & operator<<(std::ostream & stream, tool_error const & error) {
    return stream << error.code << ' ' << error.reason;
}

// What the action throws; {0, ""} if it does not.
template <typename Action>
tool_error error_of(Action && action) {
    try {
        action();
        return {0, ""};
    } catch (qnrescue::error_owner const & error) {
        return {CFErrorGetCode(error.get()),
                qnrescue::MakeString(qnrescue::adopt(CFErrorCopyFailureReason(error.get())).get())};
    }
}

} // namespace tests
