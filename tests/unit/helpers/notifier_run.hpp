// A notifier with an output that is captured and a scratch folder of the test's.
#pragma once

#include "QNRescue/RestorableDeviceHandler.hpp"
#include "QNRescue/error_domain.hpp"
#include "tests/unit/helpers/output_capture.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <fmt/format.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <future>
#include <new>
#include <string>
#include <vector>

namespace tests {

struct notifier_run {
    void notify(AMRestorableDeviceRef device,
                AMRestorableDeviceNotificationType type = kAMRestorableDeviceConnected) {
        qnrescue::device_notifier_state::deviceNotificationCallback(device, type, &notifier);
    }

    void report(CFDictionaryRef status) {
        qnrescue::device_notifier_state::restoreCallback(nullptr, status, &notifier);
    }

    explicit notifier_run(qnrescue::wait_clock & clock = qnrescue::steady_wait_clock())
        : notifier(*new(unused_storage()) qnrescue::device_notifier_state(
              output.state(), std::nullopt, folder.path() / "scratch", clock)) {}
    ~notifier_run() noexcept(false) { notifier.~device_notifier_state(); }
    notifier_run(notifier_run const &) = delete;
    notifier_run & operator=(notifier_run const &) = delete;

    output_capture output;
    temporary_folder folder;
    qnrescue::device_notifier_state & notifier;

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

// The report of a restore.
inline cf_owner<CFDictionaryRef> status(std::string const & entries) {
    return plist_dictionary("<dict>" + entries + "</dict>");
}

inline cf_owner<CFDictionaryRef> status(int operation, int progress) {
    return status(fmt::format("<key>Status</key><string>Restoring</string>"
                              "<key>Operation</key><integer>{}</integer>"
                              "<key>Progress</key><integer>{}</integer>",
                              operation, progress));
}

// The debug lines of a run but its first, which the notifier says when it is made.
inline std::vector<std::string> lines_of_run(notifier_run & run) {
    auto lines = run.output.debug_lines();
    lines.erase(lines.begin());
    return lines;
}

inline void expect_broken_promise(std::future<void> & future) {
    try {
        future.get();
        FAIL();
    } catch (std::future_error const & error) {
        EXPECT_EQ(error.code(), std::future_errc::broken_promise);
    }
}

// What the action throws; {0, ""} if it does not.
template <typename Action>
tool_error error_of(Action && action) {
    try {
        action();
        return {0, ""};
    } catch (qnrescue::error_owner const & error) {
        return said_by(error);
    }
}

} // namespace tests
