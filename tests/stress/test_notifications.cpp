// Many threads notify at once, while others wait, list and tear down.
#include "QNRescue/RestorableDeviceHandler.hpp"
#include "platform/cf_strings.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"
#include "tests/stress/stress.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <iostream>
#include <map>
#include <memory>
#include <unordered_map>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;

constexpr int thread_count = 8;
constexpr int notification_count = 1'000'000;

struct notification {
    AMRestorableDeviceRef device;
    int type;
    std::vector<std::string> own_lines;    // that name the device
    std::vector<std::string> common_lines; // that all threads have
};

std::string line(std::string_view text) {
    return fmt::format("deviceNotificationCallback: {}", text);
}

// One of the library's threads with its devices, and the notifications that it repeats.
struct notifying_thread {
    explicit notifying_thread(int number)
        : ecid(static_cast<std::uint64_t>(number) + 1)
        , device(make_device(ecid))
        , without_ecid(make_device(0))
        , booted(make_device(ecid, kAMRestorableDeviceStateBootedOS)) {
        auto const adding =
            line(fmt::format("Adding '{:016X}' ({})", ecid, fmt::ptr(device.get())));
        auto const removing = line(fmt::format("Removing '{:016X}'", ecid));
        cycle = {
            {device.get(), 0, {adding}, {}},
            {device.get(),
             0,
             {line(
                  fmt::format("Connected AMRestorableDevice, but '{:016X}' already present", ecid)),
              adding},
             {}},
            {device.get(),
             7,
             {},
             {line("called with invalid notification type <invalid notification type 7>")}},
            {nullptr, 0, {}, {line("called with null device")}},
            {without_ecid.get(),
             0,
             {line(fmt::format("Ignoring AMRestorableDevice with invalid ECID ({} type connected)",
                               fmt::ptr(without_ecid.get())))},
             {}},
            {booted.get(), 1, {}, {line("Ignoring booted device")}},
            {device.get(), 1, {removing}, {}},
            {device.get(),
             1,
             {line(fmt::format("Disconnected AMRestorableDevice, but '{:016X}' not present", ecid)),
              removing},
             {}},
        };
    }

    void notify(int index, void * context) const {
        auto const & next = cycle[static_cast<std::size_t>(index) % cycle.size()];
        device_notifier_state::deviceNotificationCallback(
            next.device, static_cast<AMRestorableDeviceNotificationType>(next.type), context);
    }

    std::uint64_t ecid;
    cf_owner<AMRestorableDeviceRef> device;
    cf_owner<AMRestorableDeviceRef> without_ecid;
    cf_owner<AMRestorableDeviceRef> booted;
    std::vector<notification> cycle;
};

// Checks each debug line, byte by byte: every one of a thread's comes, in the thread's order.
class line_check {
public:
    explicit line_check(std::deque<notifying_thread> const & threads) {
        for (auto const & thread : threads) {
            auto & expected = expected_of_threads.emplace_back();
            for (auto const & each : thread.cycle) {
                for (auto const & text : each.own_lines) {
                    expected.lines.push_back(text);
                    owners[text] = &expected;
                }
                for (auto const & text : each.common_lines) {
                    common.emplace(text, 0);
                }
            }
            for (auto const * verb : {"Looking", "Waiting"}) {
                others.emplace(
                    fmt::format("waitForDevice: {} for device '{:016X}'", verb, thread.ecid), 0);
            }
        }
        others.emplace("device_notifier_state: initializing", 0);
    }

    void operator()(std::string_view text) {
        std::string const found(text);
        if (auto const owner = owners.find(found); owner != owners.end()) {
            owner->second->check(found, wrong);
        } else if (auto const shared = common.find(found); shared != common.end()) {
            ++shared->second;
        } else if (!others.contains(found)) {
            wrong.add(found);
        }
    }

    void expect_cycles(int of_each_thread) const {
        EXPECT_EQ(wrong.all(), std::vector<std::string>());
        for (auto const & thread : expected_of_threads) {
            EXPECT_EQ(thread.count, static_cast<std::size_t>(of_each_thread) * thread.lines.size());
        }
        for (auto const & [text, count] : common) {
            EXPECT_EQ(count, of_each_thread * thread_count) << text;
        }
    }

private:
    struct expected_lines {
        std::vector<std::string> lines; // of one cycle
        std::size_t count = 0;

        void check(std::string const & found, complaints & list) {
            if (auto const & next = lines[count++ % lines.size()]; found != next) {
                list.add(found + " instead of " + next);
            }
        }
    };

    std::deque<expected_lines> expected_of_threads;
    std::unordered_map<std::string, expected_lines *> owners;
    std::map<std::string, int> common;
    std::map<std::string, int> others;
    complaints wrong;
};

// One run after the other lists the devices into a pipe, is torn down and goes, until told to stop.
class short_runs {
public:
    std::atomic<void *> context = nullptr; // of the latest run, which may have gone

    void go_on_until(std::atomic<bool> const & ended) {
        text = text_through_pipe([&](auto const & output) {
            channel_writer const writer(*output);
            do {
                auto const notifier =
                    std::make_unique<device_notifier_state>(output, std::nullopt, std::nullopt);
                notifier->detectTimeout = 200us;
                context = notifier.get();
                notifier->waitForCompletion();
                ++count;
            } while (!ended);
        });
    }

    void expect_ordered_lists() const {
        auto const documents = parse_documents(text);
        EXPECT_EQ(documents.size(), count);
        fmt::print("{} short runs\n", count);
        for (auto const & each : documents) {
            EXPECT_EQ(each.type, "DeviceList");
            auto const list = static_cast<CFArrayRef>(each.value.get());
            std::vector<std::string> ecids;
            for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
                ecids.push_back(
                    to_utf8(static_cast<CFStringRef>(CFArrayGetValueAtIndex(list, i))).value());
            }
            EXPECT_TRUE(std::is_sorted(ecids.begin(), ecids.end()));
            EXPECT_EQ(std::adjacent_find(ecids.begin(), ecids.end()), ecids.end());
            EXPECT_LE(ecids.size(), std::size_t{thread_count});
        }
    }

private:
    std::string text;
    std::size_t count = 0;
};

TEST(Stress, Notifications) {
    std::deque<notifying_thread> library;
    for (int number = 0; number < thread_count; ++number) {
        library.emplace_back(number);
    }
    line_check check(library);
    int const cycles = std::max(1, share_of(notification_count) / thread_count /
                                       static_cast<int>(library.front().cycle.size()));
    short_runs short_ones;
    {
        entry_watcher const errors(std::cerr, "\n", std::ref(check));
        auto const output = std::make_shared<output_str_state>(std::nullopt);
        output->set_debug(true);
        channel_writer writer(*output);
        device_notifier_state notifier(output, std::nullopt, std::nullopt);
        notifier.detectTimeout = 1ms;

        std::atomic<bool> ended = false;
        std::atomic<int> wrong_devices = 0;
        thread_team waiters(thread_count, [&](int number) {
            auto const & sought = library[static_cast<std::size_t>(number)];
            while (!ended) {
                auto const device = notifier.waitForDevice(QN::ecid(sought.ecid));
                wrong_devices += device != nullptr && device.get() != sought.device.get();
                std::this_thread::sleep_for(1ms); // leaves the table to the notifications
            }
        });
        std::thread lister([&] { short_ones.go_on_until(ended); });
        thread_team notifying(thread_count, [&](int number) {
            auto const & self = library[static_cast<std::size_t>(number)];
            int const own_count = cycles * static_cast<int>(self.cycle.size());
            for (int i = 0; i < own_count; ++i) {
                self.notify(i, &notifier);
                if (void * const other = short_ones.context) {
                    self.notify(i, other);
                }
            }
        });
        notifying.join();
        ended = true;
        waiters.join();
        lister.join();
        writer.finish();
        EXPECT_EQ(errors.rest(), "");
        EXPECT_EQ(wrong_devices, 0);
        EXPECT_TRUE(notifier.devices.empty());
    }
    fmt::print("{} notifications of each of {} threads\n",
               cycles * static_cast<int>(library.front().cycle.size()), thread_count);
    check.expect_cycles(cycles);
    short_ones.expect_ordered_lists();
    for (auto const & thread : library) {
        EXPECT_EQ(CFGetRetainCount(thread.device.get()), 1);
    }
}

} // namespace
