// What the callbacks of the library's threads must withstand.
#include "tests/unit/QNRescue/notifier_devices.hpp"
#include "tests/unit/helpers/held_up_run.hpp"
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include "QNRescue/live_contexts.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;

TEST(NotifierThreads, NotificationsFromManyThreadsReachManyWaiters) {
    constexpr std::uint64_t ecids[] = {recovery_device, dfu_device, restore_os_device,
                                       stays_in_recovery};
    constexpr int rounds = 300;
    std::vector<CFIndex> references;
    for (auto const ecid : ecids) {
        references.push_back(CFGetRetainCount(device_with(ecid)));
    }
    {
        notifier_run run;
        run.notifier.detectTimeout = 1min;
        std::vector<std::thread> library;
        std::vector<std::future<bool>> waiters;
        for (auto const ecid : ecids) {
            for (int i = 0; i < 2; ++i) {
                waiters.push_back(std::async(std::launch::async, [&run, ecid] {
                    return run.notifier.waitForDevice(QN::ecid(ecid)).get() == device_with(ecid);
                }));
            }
            library.emplace_back([&run, ecid] {
                for (int i = 0; i < rounds; ++i) {
                    run.notify(device_with(ecid));
                    run.notify(device_with(ecid), kAMRestorableDeviceDisconnected);
                }
                run.notify(device_with(ecid));
            });
        }
        for (auto & thread : library) {
            thread.join();
        }
        for (auto & waiter : waiters) {
            EXPECT_TRUE(waiter.get());
        }
        EXPECT_EQ(run.notifier.devices.size(), std::size(ecids));
        EXPECT_GE(run.output.debug_lines().size(), std::size(ecids) * (2 * rounds + 1));
    }
    for (std::size_t i = 0; i < std::size(ecids); ++i) {
        EXPECT_EQ(CFGetRetainCount(device_with(ecids[i])), references[i]);
    }
}

TEST(NotifierThreads, ReportsFromManyThreadsCompleteOnce) {
    constexpr int thread_count = 4;
    constexpr int reports_of_each = 50;
    notifier_run run;
    auto const report = status(0, 100);
    auto complete = run.notifier.restoreComplete.get_future();
    std::vector<std::thread> library;
    for (int i = 0; i < thread_count; ++i) {
        library.emplace_back([&] {
            for (int j = 0; j < reports_of_each; ++j) {
                run.report(report.get());
            }
        });
    }
    EXPECT_EQ(complete.wait_for(30s), std::future_status::ready);
    for (auto & thread : library) {
        thread.join();
    }
    EXPECT_EQ(run.output.documents().size(), std::size_t{thread_count} * reports_of_each);
    EXPECT_EQ(CFGetRetainCount(report.get()), 1);
}

// --- The lock of the table

TEST(NotifierThreads, NotificationsArePrintedWithTheTableLocked) {
    struct row {
        std::uint64_t ecid;
        int type;
        bool in_teardown = false;
    };
    constexpr row rows[] = {
        {recovery_device, 0}, {recovery_device, 1},     {recovery_device, 2},
        {booted_device, 0},   {device_without_ecid, 0}, {recovery_device, 0, true},
    };
    for (auto const & [ecid, type, in_teardown] : rows) {
        auto const device = device_with(ecid);
        held_up_run run("device_notifier_state: initializing");
        run.notifier->inTeardown = in_teardown;
        run.wait_until_held_up();
        std::thread library([&run, device, type = type] {
            device_notifier_state::deviceNotificationCallback(
                device, static_cast<AMRestorableDeviceNotificationType>(type), &*run.notifier);
        });
        EXPECT_TRUE(run.table_stays_locked()) << ecid << ' ' << type << ' ' << in_teardown;
        run.let_go();
        library.join();
    }
}

TEST(NotifierThreads, WaitingIsAnnouncedWithTheTableLocked) {
    held_up_run run("waitForDevice: Looking");
    run.notifier->detectTimeout = 0s;
    std::unique_lock table(run.notifier->mutex);
    std::thread waiting([&] { run.notifier->waitForDevice(QN::ecid(recovery_device)); });
    run.wait_until_held_up();
    table.unlock();
    EXPECT_TRUE(run.table_stays_locked());
    run.let_go();
    waiting.join();
}

TEST(NotifierThreads, ANullDeviceDoesNotWaitForTheTable) {
    notifier_run run;
    std::unique_lock table(run.notifier.mutex);
    auto const library = std::async(std::launch::async, [&run] { run.notify(nullptr); });
    EXPECT_EQ(library.wait_for(10s), std::future_status::ready);
    table.unlock();
    library.wait();
    EXPECT_EQ(lines_of_run(run),
              std::vector<std::string>{"deviceNotificationCallback: called with null device"});
}

// --- The end

TEST(NotifierThreads, CallbacksAfterTheEndDoNothing) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    auto const report = status(0, 100);
    output_capture output;
    auto notifier =
        std::make_unique<device_notifier_state>(output.state(), std::nullopt, std::nullopt);
    void * const context = notifier.get();
    notifier.reset();
    for (auto const type : {kAMRestorableDeviceConnected, kAMRestorableDeviceDisconnected}) {
        device_notifier_state::deviceNotificationCallback(device, type, context);
        device_notifier_state::deviceNotificationCallback(nullptr, type, context);
    }
    device_notifier_state::restoreCallback(device, report.get(), context);
    device_notifier_state::restoreCallback(nullptr, nullptr, context);
    EXPECT_EQ(output.debug_lines(),
              std::vector<std::string>{"device_notifier_state: initializing"});
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(CFGetRetainCount(device), references);
}

TEST(NotifierThreads, TheEndWaitsForACallbackUnderWay) {
    output_capture output;
    auto notifier =
        std::make_unique<device_notifier_state>(output.state(), std::nullopt, std::nullopt);
    auto callback = std::make_optional<live_contexts::visit>(notifier.get());
    auto ending = std::async(std::launch::async, [&] { notifier.reset(); });
    EXPECT_EQ(ending.wait_for(100ms), std::future_status::timeout);
    callback.reset();
    EXPECT_EQ(ending.wait_for(30s), std::future_status::ready);
}

TEST(NotifierThreads, TheEndOfCallbacksComesBeforeThatOfTheScratchFolder) {
    temporary_folder const folder;
    auto const scratch = folder.path() / "scratch";
    QN::filesystem::create_directories(scratch);
    output_capture output;
    auto notifier = std::make_unique<device_notifier_state>(output.state(), std::nullopt, scratch);
    void * const context = notifier.get();
    auto callback = std::make_optional<live_contexts::visit>(context);
    auto ending = std::async(std::launch::async, [&] { notifier.reset(); });
    auto const deadline = std::chrono::steady_clock::now() + 30s;
    while (live_contexts::visit(context)) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(QN::filesystem::exists(scratch)); // a callback may still use it
    callback.reset();
    ending.get();
    EXPECT_FALSE(QN::filesystem::exists(scratch));
}

// Under the address and thread sanitizers a callback that touches what is gone shows.
TEST(NotifierThreads, ManyNotifiersEndUnderFire) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    auto const report = status(0, 100);
    output_capture output;
    std::atomic<void *> context = nullptr;
    std::atomic<bool> ended = false;
    std::vector<std::thread> library;
    for (int i = 0; i < 3; ++i) {
        library.emplace_back([&, i] {
            while (!ended) {
                if (void * const target = context) {
                    if (i == 0) {
                        device_notifier_state::restoreCallback(device, report.get(), target);
                    } else {
                        device_notifier_state::deviceNotificationCallback(
                            device,
                            i == 1 ? kAMRestorableDeviceConnected : kAMRestorableDeviceDisconnected,
                            target);
                    }
                }
                std::this_thread::sleep_for(20us); // the trace of the calls is to stay short
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        auto notifier =
            std::make_unique<device_notifier_state>(output.state(), std::nullopt, std::nullopt);
        notifier->detectTimeout = 0s;
        context = notifier.get();
        notifier->waitForDevice(QN::ecid(recovery_device));
        std::this_thread::yield();
        notifier.reset();
    }
    ended = true;
    for (auto & thread : library) {
        thread.join();
    }
    EXPECT_EQ(CFGetRetainCount(device), references);
}

TEST(NotifierThreads, TheLibraryMayReportAfterATimeout) {
    constexpr std::size_t restores = 5;
    temporary_folder const folder;
    auto const log = folder.path() / "log"; // the library writes its reports down
    output_capture output;
    for (std::size_t i = 0; i < restores; ++i) {
        device_notifier_state notifier(output.state(), log, std::nullopt);
        notifier.CreateDefaultRestoreOptions("x.ipsw", false);
        notifier.restoreTimeout = 0s;
        notifier.operateRestore(device_with(restores_slowly));
    }
    auto const deadline = std::chrono::steady_clock::now() + 30s;
    while (lines_of(read_file(log)).size() < restores &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_GE(lines_of(read_file(log)).size(), restores);
    for (auto const & document : output.documents()) {
        EXPECT_EQ(document.type, "InternalError"); // none of the reports
    }
    EXPECT_EQ(output.documents().size(), restores);
}

} // namespace
