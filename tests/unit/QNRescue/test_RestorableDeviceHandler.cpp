#include "tests/unit/QNRescue/notifier_devices.hpp"
#include "tests/unit/helpers/assertion_text.hpp"
#include "tests/unit/helpers/fake_clock.hpp"
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include "QNRescue/live_contexts.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <iterator>
#include <optional>
#include <set>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;
using strings = std::vector<std::string>;

// The message of an assertion of the notifier.
std::string broken(std::string const & function, std::string const & text) {
    return "QNRescue/RestorableDeviceHandler:LINE:" + function + " Assertion " + text + " failed.";
}

// --- Construction

TEST(Notifier, NeedsAnOutput) {
    expect_assertion(broken("device_notifier_state", "this->outputter"),
                     [] { device_notifier_state(nullptr, std::nullopt, std::nullopt); });
}

TEST(Notifier, StartsWithItsDefaults) {
    notifier_run run;
    auto const & notifier = run.notifier;
    EXPECT_EQ(notifier.outputter, run.output.state());
    EXPECT_FALSE(notifier.restoreOptions);
    EXPECT_TRUE(notifier.devices.empty());
    EXPECT_EQ(notifier.devices.bucket_count(), decltype(notifier.devices)().bucket_count());
    EXPECT_EQ(notifier.devices.max_load_factor(), 1.0F);
    EXPECT_FALSE(notifier.inTeardown);
    EXPECT_EQ(notifier.operation, command_kind::list_devices);
    EXPECT_EQ(notifier.operationName, "");
    EXPECT_EQ(std::chrono::nanoseconds(notifier.detectTimeout).count(), 3'000'000'000);
    EXPECT_FALSE(notifier.ecid);
    EXPECT_EQ(std::chrono::nanoseconds(notifier.restoreTimeout).count(), 7'200'000'000'000);
    EXPECT_EQ(run.output.debug_lines(), strings{"device_notifier_state: initializing"});
}

// They are destroyed in the reverse order: the promise first, the output last.
TEST(Notifier, DeclaresItsMembersInThisOrder) {
    notifier_run const run;
    auto const & notifier = run.notifier;
    void const * const members[] = {&notifier.outputter,      &notifier.scratchLocation,
                                    &notifier.restoreOptions, &notifier.devices,
                                    &notifier.mutex,          &notifier.condition,
                                    &notifier.inTeardown,     &notifier.operation,
                                    &notifier.operationName,  &notifier.detectTimeout,
                                    &notifier.ecid,           &notifier.restoreTimeout,
                                    &notifier.restoreComplete};
    EXPECT_TRUE(std::ranges::is_sorted(members, std::less<>()));
}

TEST(Notifier, WarmsTheLibraryUp) {
    call_trace const trace;
    notifier_run const run;
    EXPECT_EQ(trace.calls("AM"),
              (strings{"AMDeviceNotificationSubscribe minimumInterfaceSpeed=0 connectionType=1 "
                       "context=null -> 0",
                       "AMDeviceNotificationUnsubscribe -> 0"}));
}

TEST(Notifier, MakesAScratchPathOfItsOwn) {
    output_capture output;
    std::set<std::string> names;
    for (int i = 0; i < 100; ++i) {
        for (auto const & none :
             {std::optional<QN::filesystem::path>(), std::make_optional<QN::filesystem::path>()}) {
            device_notifier_state const notifier(output.state(), std::nullopt, none);
            auto const & path = notifier.scratchLocation;
            EXPECT_EQ(path.parent_path(), QN::filesystem::temp_directory_path());
            EXPECT_FALSE(QN::filesystem::exists(path));
            names.insert(path.filename().string());
        }
    }
    EXPECT_GT(names.size(), 100U); // hardly any is chosen twice
    std::set<char> digits[6];
    for (auto const & name : names) {
        ASSERT_TRUE(name.starts_with("qnrescue.")) << name;
        ASSERT_EQ(name.size(), std::string("qnrescue.xxxxxx").size()) << name;
        EXPECT_EQ(name.find_first_not_of("0123456789abcdef", 9), std::string::npos) << name;
        for (std::size_t i = 0; i < std::size(digits); ++i) {
            digits[i].insert(name[9 + i]);
        }
    }
    for (auto const & seen : digits) {
        EXPECT_GT(seen.size(), 8U); // each is drawn
    }
}

TEST(Notifier, UsesAnExplicitScratchPath) {
    notifier_run const run;
    EXPECT_EQ(run.notifier.scratchLocation, run.folder.path() / "scratch");
    EXPECT_FALSE(QN::filesystem::exists(run.notifier.scratchLocation));
}

TEST(Notifier, EnablesFileLogging) {
    temporary_folder const folder;
    auto const log = folder.path() / QN::path_from_utf8("log \xc3\xa9\xe6\x97\xa5.txt");
    auto const text = QN::path_to_utf8(log);
    call_trace const trace;
    output_capture output;
    device_notifier_state const notifier(output.state(), log, std::nullopt);
    EXPECT_EQ(output.debug_lines(),
              (strings{"device_notifier_state: initializing",
                       "device_notifier_state: AMRestoreEnableFileLogging(" + text + ")"}));
    auto const calls = trace.calls("AM");
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_TRUE(calls[2].starts_with("AMRestoreEnableFileLogging ")) << calls[2];
    EXPECT_TRUE(calls[2].ends_with(" -> 0")) << calls[2];
    EXPECT_TRUE(QN::filesystem::exists(log));
}

TEST(Notifier, GoesOnWithoutALogThatCannotBeOpened) {
    temporary_folder const folder;
    output_capture output;
    device_notifier_state const notifier(output.state(), folder.path() / "no folder" / "log",
                                         std::nullopt);
    auto const lines = output.debug_lines();
    ASSERT_EQ(lines.size(), 3U);
    // 12 is what the simulator returns, and this is its text.
    EXPECT_TRUE(
        lines[2].starts_with("device_notifier_state: AMRestoreEnableFileLogging failed (12: "))
        << lines[2];
    EXPECT_NE(lines[2].find("Unable to open file"), std::string::npos) << lines[2];
    EXPECT_EQ(lines[2].back(), ')');
}

TEST(Notifier, TakesAnEmptyPathOfALogForOne) {
    call_trace const trace;
    output_capture output;
    device_notifier_state const notifier(output.state(), QN::filesystem::path(), std::nullopt);
    EXPECT_EQ(trace.calls("AMRestoreEnableFileLogging").size(), 1U);
    EXPECT_EQ(output.debug_lines().at(1), "device_notifier_state: AMRestoreEnableFileLogging()");
}

// --- Destruction

TEST(Notifier, RemovesItsScratchFolder) {
    temporary_folder const folder;
    output_capture output;
    auto const scratch = folder.path() / "scratch";
    {
        device_notifier_state const notifier(output.state(), std::nullopt, scratch);
        QN::filesystem::create_directories(scratch / "PRB" / "1");
        write_file(scratch / "PRB" / "1" / "file", "bytes");
    }
    EXPECT_FALSE(QN::filesystem::exists(scratch));
    EXPECT_TRUE(QN::filesystem::exists(folder.path()));
    EXPECT_EQ(output.debug_lines().size(), 1U);
}

// Windows keeps a folder that the other thread has deleted until that thread closes it, so that a
// try may fail. A walk that gives up where something has vanished fails in many.
TEST(Notifier, RemovesItsScratchFolderWhileSomethingInItVanishes) {
    constexpr int tries = 50;
    int failed = 0;
    temporary_folder const folder;
    auto const scratch = folder.path() / "scratch";
    for (int i = 0; i < tries; ++i) {
        output_capture output;
        auto notifier =
            std::make_optional<device_notifier_state>(output.state(), std::nullopt, scratch);
        for (int j = 0; j < 20; ++j) {
            QN::filesystem::create_directories(scratch / std::to_string(j) / "inner");
        }
        std::atomic<bool> ready = false;
        std::thread other([&] {
            ready = true;
            boost::system::error_code ignored;
            QN::filesystem::remove_all(scratch / std::to_string(i % 20), ignored);
        });
        while (!ready) {
            std::this_thread::yield();
        }
        notifier.reset();
        other.join();
        auto const lines = output.debug_lines();
        failed += lines.size() > 1;
        EXPECT_EQ(QN::filesystem::exists(scratch), lines.size() > 1);
    }
    EXPECT_LE(failed, tries / 5);
}

TEST(Notifier, RemovesAScratchFolderWithLongPaths) {
    temporary_folder const folder;
    auto const scratch = folder.path() / "scratch";
    QN::filesystem::path deep = scratch;
#ifdef _WIN32
    deep = L"\\\\?\\" + deep.native(); // makes paths above 259 characters possible
#endif
    for (int i = 0; i < 5; ++i) {
        deep /= std::string(100, static_cast<char>('a' + i));
    }
    QN::filesystem::create_directories(deep);
    write_file(deep / "file", "bytes");
    ASSERT_TRUE(QN::filesystem::exists(deep / "file"));
    output_capture output;
    static_cast<void>(device_notifier_state(output.state(), std::nullopt, scratch));
    EXPECT_FALSE(QN::filesystem::exists(scratch));
    EXPECT_EQ(output.debug_lines(), strings{"device_notifier_state: initializing"});
}

#ifndef _WIN32

// A folder with a file that must stay, and links to both wherever a restore may put files.
struct planted_links {
    planted_links() {
        QN::filesystem::create_directories(outside);
        write_file(outside / "kept", "bytes");
        QN::filesystem::create_directories(scratch / "PRB" / "1");
        for (auto const & place : {scratch, scratch / "PRB", scratch / "PRB" / "1"}) {
            QN::filesystem::create_directory_symlink(outside, place / "folder");
            QN::filesystem::create_symlink(outside / "kept", place / "file");
            QN::filesystem::create_symlink(outside / "none", place / "dangling");
            QN::filesystem::create_directory_symlink(scratch, place / "loop");
        }
    }

    temporary_folder folder;
    QN::filesystem::path scratch = folder.path() / "scratch";
    QN::filesystem::path outside = folder.path() / "outside";
};

TEST(Notifier, RemovesLinksInItsScratchFolderAndNotWhatTheyLeadTo) {
    planted_links const links;
    output_capture output;
    static_cast<void>(device_notifier_state(output.state(), std::nullopt, links.scratch));
    EXPECT_FALSE(QN::filesystem::exists(links.scratch));
    EXPECT_EQ(read_file(links.outside / "kept"), "bytes");
    EXPECT_EQ(output.debug_lines(), strings{"device_notifier_state: initializing"});
}

TEST(Notifier, RemovesALinkInPlaceOfItsScratchFolder) {
    planted_links const links;
    auto const link = links.folder.path() / "link";
    QN::filesystem::create_directory_symlink(links.outside, link);
    output_capture output;
    static_cast<void>(device_notifier_state(output.state(), std::nullopt, link));
    EXPECT_FALSE(QN::filesystem::is_symlink(link));
    EXPECT_EQ(read_file(links.outside / "kept"), "bytes");
}

#endif

TEST(Notifier, AScratchFolderThatNeverWasIsNoFailure) {
    output_capture output;
    static_cast<void>(device_notifier_state(output.state(), std::nullopt, std::nullopt));
    EXPECT_EQ(output.debug_lines(), strings{"device_notifier_state: initializing"});
}

// A path that cannot be removed as long as the object lives.
class stubborn_path {
public:
#ifdef _WIN32
    stubborn_path() {
        QN::filesystem::create_directories(path());
        held = CreateFileW((path() / "held").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0,
                           nullptr);
    }
    ~stubborn_path() { CloseHandle(held); }
    QN::filesystem::path path() const { return folder.path() / "scratch"; }

private:
    temporary_folder folder;
    HANDLE held;
#else
    QN::filesystem::path path() const { return folder.path() / std::string(1000, 'x'); }

private:
    temporary_folder folder;
#endif
};

TEST(Notifier, ReportsAScratchFolderThatStays) {
    stubborn_path const stubborn;
    output_capture output;
    static_cast<void>(device_notifier_state(output.state(), std::nullopt, stubborn.path()));
    boost::system::error_code reason;
    QN::filesystem::remove_all(stubborn.path(), reason);
    ASSERT_EQ(reason.category(), boost::system::system_category());
    ASSERT_TRUE(reason);
    EXPECT_EQ(output.debug_lines(),
              (strings{"device_notifier_state: initializing",
                       "~device_notifier_state: Failed to clean scratch location (" +
                           reason.message() + ")"}));
}

TEST(Notifier, InsistsOnAScratchPathToTheEnd) {
    output_capture output;
    expect_assertion(broken("~device_notifier_state", "!scratchLocation.empty()"), [&] {
        device_notifier_state notifier(output.state(), std::nullopt, std::nullopt);
        notifier.scratchLocation.clear();
    });
}

TEST(Notifier, ReleasesWhatItHolds) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    auto const options = make_dictionary({{CFSTR("a"), CFSTR("b")}});
    std::weak_ptr<output_str_state> output;
    {
        notifier_run run;
        output = run.output.state();
        run.notify(device);
        run.notifier.restoreOptions = retain(options.get());
        EXPECT_EQ(CFGetRetainCount(device), references + 1);
        EXPECT_EQ(CFGetRetainCount(options.get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(device), references);
    EXPECT_EQ(CFGetRetainCount(options.get()), 1);
    EXPECT_TRUE(output.expired());
}

TEST(Notifier, BreaksAPromiseThatWasNotKept) {
    std::future<void> complete;
    {
        notifier_run run;
        complete = run.notifier.restoreComplete.get_future();
    }
    expect_broken_promise(complete);
}

// --- Notifications

TEST(Notification, NeedsAContext) {
    expect_assertion(broken("deviceNotificationCallback", "context"), [] {
        device_notifier_state::deviceNotificationCallback(device_with(recovery_device),
                                                          kAMRestorableDeviceConnected, nullptr);
    });
    expect_assertion(broken("deviceNotificationCallback", "context"), [] {
        device_notifier_state::deviceNotificationCallback(nullptr, kAMRestorableDeviceConnected,
                                                          nullptr);
    });
}

std::string line(std::string const & text) {
    return "deviceNotificationCallback: " + text;
}

std::string adding(std::string const & ecid, AMRestorableDeviceRef device) {
    return line(fmt::format("Adding '{}' ({})", ecid, fmt::ptr(device)));
}

TEST(Notification, OfADeviceThatConnects) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    notifier_run run;
    run.notify(device);
    ASSERT_EQ(run.notifier.devices.size(), 1U);
    EXPECT_EQ(run.notifier.devices.at(QN::ecid(recovery_device)).get(), device);
    EXPECT_EQ(CFGetRetainCount(device), references + 1);
    EXPECT_EQ(lines_of_run(run), strings{adding("00000000000000A1", device)});
}

TEST(Notification, OfDevicesInEveryStateButBooted) {
    notifier_run run;
    for (auto const ecid : {dfu_device, restore_os_device, in_strange_state, recovery_device}) {
        run.notify(device_with(ecid));
        EXPECT_TRUE(run.notifier.devices.contains(QN::ecid(ecid)));
    }
    EXPECT_EQ(run.notifier.devices.size(), 4U);
}

TEST(Notification, OfADeviceThatDisconnects) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    notifier_run run;
    run.notify(device);
    run.notify(device, kAMRestorableDeviceDisconnected);
    EXPECT_TRUE(run.notifier.devices.empty());
    EXPECT_EQ(CFGetRetainCount(device), references);
    EXPECT_EQ(lines_of_run(run),
              (strings{adding("00000000000000A1", device), line("Removing '00000000000000A1'")}));
}

TEST(Notification, OfAnUnknownDeviceThatDisconnects) {
    notifier_run run;
    run.notify(device_with(dfu_device));
    run.notify(device_with(recovery_device), kAMRestorableDeviceDisconnected);
    EXPECT_EQ(run.notifier.devices.size(), 1U);
    EXPECT_EQ(lines_of_run(run),
              (strings{adding("00000000000000A2", device_with(dfu_device)),
                       line("Disconnected AMRestorableDevice, but '00000000000000A1' not present"),
                       line("Removing '00000000000000A1'")}));
}

TEST(Notification, OfASecondDeviceWithTheSameEcidReplacesTheFirst) {
    auto const & devices = devices_with(twice_there);
    ASSERT_EQ(devices.size(), 2U);
    auto const first = devices[0];
    auto const second = devices[1];
    ASSERT_NE(first, second);
    auto const first_references = CFGetRetainCount(first);
    auto const second_references = CFGetRetainCount(second);
    notifier_run run;
    run.notify(first);
    run.notify(second);
    ASSERT_EQ(run.notifier.devices.size(), 1U);
    EXPECT_EQ(run.notifier.devices.at(QN::ecid(twice_there)).get(), second);
    EXPECT_EQ(CFGetRetainCount(first), first_references);
    EXPECT_EQ(CFGetRetainCount(second), second_references + 1);
    EXPECT_EQ(lines_of_run(run),
              (strings{adding("00000000000000C1", first),
                       line("Connected AMRestorableDevice, but '00000000000000C1' already present"),
                       adding("00000000000000C1", second)}));
}

TEST(Notification, OfTheSameDeviceAgainHoldsItOnce) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    notifier_run run;
    run.notify(device);
    run.notify(device);
    run.notify(device);
    EXPECT_EQ(CFGetRetainCount(device), references + 1);
}

TEST(Notification, OfNoDevice) {
    notifier_run run;
    run.notify(nullptr);
    run.notify(nullptr, kAMRestorableDeviceDisconnected);
    EXPECT_EQ(lines_of_run(run), strings(2, line("called with null device")));
}

TEST(Notification, OfABootedDevice) {
    notifier_run run;
    run.notify(device_with(booted_device));
    EXPECT_TRUE(run.notifier.devices.empty());
    // Nor does it leave, however it came in.
    run.notifier.devices.emplace(QN::ecid(booted_device), retain(device_with(booted_device)));
    run.notify(device_with(booted_device), kAMRestorableDeviceDisconnected);
    EXPECT_EQ(run.notifier.devices.size(), 1U);
    run.notify(device_with(booted_device), static_cast<AMRestorableDeviceNotificationType>(9));
    EXPECT_EQ(lines_of_run(run), strings(3, line("Ignoring booted device")));
}

TEST(Notification, OfADeviceWithoutEcid) {
    auto const device = device_with(device_without_ecid);
    notifier_run run;
    run.notify(device);
    run.notify(device, kAMRestorableDeviceDisconnected);
    run.notify(device, static_cast<AMRestorableDeviceNotificationType>(2));
    EXPECT_TRUE(run.notifier.devices.empty());
    auto const ignoring = [&](std::string_view type) {
        return line(fmt::format("Ignoring AMRestorableDevice with invalid ECID ({} type {})",
                                fmt::ptr(device), type));
    };
    EXPECT_EQ(lines_of_run(run), (strings{ignoring("connected"), ignoring("disconnected"),
                                          ignoring("<invalid notification type 2>")}));
}

TEST(Notification, OfAnUnknownType) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    notifier_run run;
    run.notify(device, static_cast<AMRestorableDeviceNotificationType>(2));
    EXPECT_TRUE(run.notifier.devices.empty());
    run.notify(device);
    run.notify(device, static_cast<AMRestorableDeviceNotificationType>(-1));
    EXPECT_EQ(run.notifier.devices.size(), 1U);
    EXPECT_EQ(CFGetRetainCount(device), references + 1);
    EXPECT_EQ(
        lines_of_run(run),
        (strings{line("called with invalid notification type <invalid notification type 2>"),
                 adding("00000000000000A1", device),
                 line("called with invalid notification type <invalid notification type -1>")}));
}

TEST(Notification, IsIgnoredInTeardown) {
    auto const device = device_with(recovery_device);
    auto const references = CFGetRetainCount(device);
    notifier_run run;
    run.notify(device);
    run.notifier.inTeardown = true;
    run.notify(device, kAMRestorableDeviceDisconnected);
    run.notify(device_with(dfu_device));
    // This comes before the device is looked at, but after it is looked for.
    run.notify(device_with(booted_device));
    run.notify(nullptr);
    EXPECT_EQ(run.notifier.devices.size(), 1U);
    EXPECT_EQ(CFGetRetainCount(device), references + 1);
    auto const ignoring = line("Ignoring notification, inTeardown");
    EXPECT_EQ(lines_of_run(run), (strings{adding("00000000000000A1", device), ignoring, ignoring,
                                          ignoring, line("called with null device")}));
}

TEST(Notification, AsksTheDeviceForItsStateAndEcidAlone) {
    notifier_run run;
    device_with(recovery_device);
    call_trace const trace;
    run.notify(device_with(recovery_device));
    EXPECT_EQ(trace.calls(""), (strings{"AMRestorableDeviceGetState device=00000000000000A1 -> 2",
                                        "AMRestorableDeviceGetECID device=00000000000000A1 -> "
                                        "00000000000000A1"}));
}

// Whether the notification wakes somebody who waits on the notifier's condition so long.
bool wakes(notifier_run & run, AMRestorableDeviceRef device, int type,
           std::chrono::milliseconds patience) {
    std::promise<void> locked;
    auto woken = std::async(std::launch::async, [&] {
        std::unique_lock lock(run.notifier.mutex);
        locked.set_value();
        return run.notifier.condition.wait_for(lock, patience) == std::cv_status::no_timeout;
    });
    locked.get_future().get();
    { std::lock_guard const given_up_by_waiting(run.notifier.mutex); }
    run.notify(device, static_cast<AMRestorableDeviceNotificationType>(type));
    return woken.get();
}

TEST(Notification, WakesWhoWaits) {
    for (int const type : {0, 1, 2, -1}) {
        notifier_run run;
        EXPECT_TRUE(wakes(run, device_with(recovery_device), type, 30s)) << type;
    }
}

TEST(Notification, ThatIsIgnoredWakesNobody) {
    struct row {
        AMRestorableDeviceRef device;
        bool in_teardown;
    };
    row const rows[] = {
        {nullptr, false},
        {device_with(recovery_device), true},
        {device_with(booted_device), false},
        {device_with(device_without_ecid), false},
    };
    for (auto const & [device, in_teardown] : rows) {
        notifier_run run;
        run.notifier.inTeardown = in_teardown;
        // A wait may end for no reason, but hardly several of them.
        constexpr int attempts = 3;
        int woken = 0;
        for (int type = 0; type < attempts; ++type) {
            woken += wakes(run, device, type, 10ms);
        }
        EXPECT_LT(woken, attempts) << lines_of_run(run).at(0);
    }
}

// --- Waiting for a device

TEST(WaitForDevice, ReturnsAPresentDeviceAtOnce) {
    auto const device = device_with(recovery_device);
    notifier_run run;
    run.notify(device);
    run.notifier.detectTimeout = 1h;
    auto const references = CFGetRetainCount(device);
    auto found = run.notifier.waitForDevice(QN::ecid(recovery_device));
    EXPECT_EQ(found.get(), device);
    EXPECT_EQ(CFGetRetainCount(device), references); // it shares the table's reference
    run.notify(device, kAMRestorableDeviceDisconnected);
    EXPECT_EQ(CFGetRetainCount(device), references);
    found.reset();
    EXPECT_EQ(CFGetRetainCount(device), references - 1);
    auto const lines = lines_of_run(run);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[1], "waitForDevice: Looking for device '00000000000000A1'");
}

TEST(WaitForDevice, GivesUpAfterTheTimeout) {
    fake_clock clock;
    notifier_run run(clock);
    run.notify(device_with(dfu_device));
    run.notifier.detectTimeout = 26h + 1ns;
    EXPECT_FALSE(run.notifier.waitForDevice(QN::ecid(recovery_device)));
    EXPECT_EQ(clock.passed(), 26h + 1ns);
    EXPECT_FALSE(run.notifier.devices.contains(QN::ecid(recovery_device)));
    auto const lines = lines_of_run(run);
    EXPECT_EQ(strings(lines.begin() + 1, lines.end()),
              (strings{"waitForDevice: Looking for device '00000000000000A1'",
                       "waitForDevice: Waiting for device '00000000000000A1'"}));
}

TEST(WaitForDevice, DoesNotWaitWithoutATime) {
    for (std::chrono::nanoseconds const timeout : {0ns, std::chrono::nanoseconds(-1h)}) {
        fake_clock clock;
        notifier_run run(clock);
        run.notifier.detectTimeout = timeout;
        EXPECT_FALSE(run.notifier.waitForDevice(QN::ecid(recovery_device)));
        EXPECT_EQ(clock.passed(), 0ns);
    }
}

TEST(WaitForDevice, EndsWithTheDeviceAndNotWithAnother) {
    for (std::chrono::nanoseconds const timeout :
         {std::chrono::nanoseconds(1h), std::chrono::nanoseconds(100h)}) {
        fake_clock clock;
        notifier_run run(clock);
        run.notifier.detectTimeout = timeout;
        clock.at(1s, [&] { run.notify(device_with(dfu_device)); });
        clock.at(2s, [&] { run.notify(device_with(dfu_device), kAMRestorableDeviceDisconnected); });
        clock.at(timeout - 1s, [&] { run.notify(device_with(recovery_device)); });
        auto const found = run.notifier.waitForDevice(QN::ecid(recovery_device));
        EXPECT_EQ(found.get(), device_with(recovery_device));
        EXPECT_EQ(clock.passed(), timeout - 1s);
    }
}

TEST(WaitForDevice, AllWhoWaitAreWokenByTheDevice) {
    notifier_run run;
    run.notifier.detectTimeout = 20s;
    std::vector<std::future<std::shared_ptr<_AMRestorableDevice>>> waiters;
    for (int i = 0; i < 4; ++i) {
        auto const name = fmt::format("waiter {}", i);
        run.output.state()->print_debug(name);
        waiters.push_back(std::async(std::launch::async, [&] {
            return run.notifier.waitForDevice(QN::ecid(recovery_device));
        }));
        ASSERT_TRUE(run.output.streams.err.wait_for(
            name + "\nwaitForDevice: Looking for device '00000000000000A1'"
                   "\nwaitForDevice: Waiting for device '00000000000000A1'"));
    }
    auto const deadline = std::chrono::steady_clock::now() + 10s;
    run.notify(device_with(recovery_device));
    for (auto & waiter : waiters) {
        EXPECT_EQ(waiter.wait_until(deadline), std::future_status::ready);
        EXPECT_EQ(waiter.get().get(), device_with(recovery_device));
    }
}

TEST(WaitForDevice, PrintsAnEcidOfZeroAsQuestionMarks) {
    notifier_run run;
    run.notifier.detectTimeout = 0ns;
    EXPECT_FALSE(run.notifier.waitForDevice(QN::ecid(0)));
    EXPECT_EQ(lines_of_run(run).at(0),
              "waitForDevice: Looking for device '" + std::string(16, '?') + "'");
}

} // namespace
