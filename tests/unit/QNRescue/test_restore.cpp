// A restore from its options to its last report.
#include "QNRescue/restore_report.hpp"
#include "platform/cf_strings.hpp"
#include "tests/unit/QNRescue/notifier_devices.hpp"
#include "tests/unit/helpers/assertion_text.hpp"
#include "tests/unit/helpers/fake_clock.hpp"
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>
#include <set>
#include <thread>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;
using strings = std::vector<std::string>;

// --- Restore options

std::string text_at(CFDictionaryRef dictionary, CFStringRef key) {
    auto const value = CFDictionaryGetValue(dictionary, key);
    return is_a(value, CFStringGetTypeID()) ? MakeString(static_cast<CFStringRef>(value)) : "none";
}

QN::filesystem::path personalization_path(device_notifier_state const & notifier) {
    return QN::path_from_utf8(
        text_at(notifier.restoreOptions.get(), CFSTR("PersonalizedRestoreBundlePath")));
}

unsigned long personalization_number(device_notifier_state const & notifier) {
    return std::stoul(personalization_path(notifier).filename().string());
}

void expect_options(device_notifier_state const & notifier, std::string const & behavior,
                    std::string const & image_type, std::string const & bundle) {
    auto const defaults = adopt(AMRestoreCreateDefaultOptions(kCFAllocatorDefault));
    auto const set = [&](CFStringRef key, std::string const & text) {
        CFDictionarySetValue(defaults.get(), key, make_string(text).get());
    };
    set(CFSTR("AuthInstallRestoreBehavior"), behavior);
    set(CFSTR("BootImageType"), image_type);
    set(CFSTR("RestoreBundlePath"), bundle);
    set(CFSTR("PersonalizedRestoreBundlePath"), QN::path_to_utf8(personalization_path(notifier)));
    EXPECT_TRUE(equal(notifier.restoreOptions.get(), defaults.get()))
        << MakeDescription(notifier.restoreOptions.get());
}

TEST(RestoreOptions, ForAnUpdate) {
    notifier_run run;
    run.notifier.CreateDefaultRestoreOptions(QN::path_from_utf8("some.ipsw"), false);
    expect_options(run.notifier, "Update", "Update", "some.ipsw");
}

TEST(RestoreOptions, ForAnErase) {
    notifier_run run;
    run.notifier.CreateDefaultRestoreOptions(QN::path_from_utf8("some.ipsw"), true);
    expect_options(run.notifier, "Erase", "UserOrInternal", "some.ipsw");
}

TEST(RestoreOptions, NameTheBundleAsItWasGiven) {
    notifier_run run;
    for (std::string const path : {"caf\xc3\xa9/\xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x93\xb1.ipsw",
                                   "relative/../x", "C:\\a/b"}) {
        run.notifier.CreateDefaultRestoreOptions(QN::path_from_utf8(path), false);
        EXPECT_EQ(text_at(run.notifier.restoreOptions.get(), CFSTR("RestoreBundlePath")), path);
    }
}

TEST(RestoreOptions, PersonalizeInTheScratchFolder) {
    notifier_run run;
    run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    auto const first = personalization_path(run.notifier);
    EXPECT_EQ(first.parent_path(), run.notifier.scratchLocation / "PRB");
    EXPECT_TRUE(is_number(first.filename().string())) << first;
    EXPECT_FALSE(QN::filesystem::exists(run.notifier.scratchLocation));
}

TEST(RestoreOptions, NameTheScratchFolderInUtf8) {
    temporary_folder const folder;
    std::string const name = "gr\xc3\xb6\xc3\x9f"
                             "e \xe6\xbc\xa2\xe5\xad\x97";
    output_capture output;
    device_notifier_state notifier(output.state(), std::nullopt,
                                   folder.path() / QN::path_from_utf8(name));
    notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    auto const text =
        text_at(notifier.restoreOptions.get(), CFSTR("PersonalizedRestoreBundlePath"));
    EXPECT_NE(text.find(name), std::string::npos) << text;
    EXPECT_EQ(personalization_path(notifier).parent_path(), notifier.scratchLocation / "PRB");
}

TEST(RestoreOptions, AreNumberedFromOne) {
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a process with no earlier ones
    auto const first_number = [] {
        notifier_run run;
        run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
        return personalization_number(run.notifier);
    };
    EXPECT_EXIT(std::exit(first_number() == 1 ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(RestoreOptions, AreNumberedThroughoutTheProcess) {
    notifier_run first;
    first.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    auto const number = personalization_number(first.notifier);
    first.notifier.CreateDefaultRestoreOptions("x.ipsw", true);
    EXPECT_EQ(personalization_number(first.notifier), number + 1);
    device_notifier_state second(first.output.state(), std::nullopt, std::nullopt);
    second.CreateDefaultRestoreOptions("x.ipsw", false);
    EXPECT_EQ(personalization_number(second), number + 2);
}

TEST(RestoreOptions, AreNumberedApartByManyThreads) {
    output_capture output;
    std::mutex mutex;
    std::multiset<unsigned long> numbers;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            device_notifier_state notifier(output.state(), std::nullopt, std::nullopt);
            for (int j = 0; j < 50; ++j) {
                notifier.CreateDefaultRestoreOptions("x.ipsw", false);
                std::lock_guard const lock(mutex);
                numbers.insert(personalization_number(notifier));
            }
        });
    }
    for (auto & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(numbers.size(), 200U);
    EXPECT_EQ(*numbers.rbegin() - *numbers.begin(), 199U);
    EXPECT_EQ(std::set<unsigned long>(numbers.begin(), numbers.end()).size(), 200U);
}

TEST(RestoreOptions, ReplaceEarlierOnes) {
    auto const earlier = make_dictionary({{CFSTR("a"), CFSTR("b")}});
    notifier_run run;
    run.notifier.restoreOptions = retain(earlier.get());
    run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    EXPECT_EQ(CFGetRetainCount(earlier.get()), 1);
    EXPECT_EQ(CFGetRetainCount(run.notifier.restoreOptions.get()), 1);
}

// --- Progress reports

bool is_complete(std::future<void> const & future) {
    return future.wait_for(0s) == std::future_status::ready;
}

TEST(RestoreCallback, NeedsAContext) {
    auto const report = status(2, 0);
    for (auto const dictionary : {CFDictionaryRef{nullptr}, report.get()}) {
        expect_assertion(
            "QNRescue/RestorableDeviceHandler:LINE:restoreCallback Assertion context failed.",
            [&] { device_notifier_state::restoreCallback(nullptr, dictionary, nullptr); });
    }
}

TEST(RestoreCallback, IgnoresNothing) {
    notifier_run run;
    run.report(nullptr);
    EXPECT_EQ(lines_of_run(run), strings{"restoreCallback: Invalid argument"});
    EXPECT_EQ(run.output.out(), "");
}

TEST(RestoreCallback, RelaysAReport) {
    auto const report = status(13, 42);
    notifier_run run;
    run.report(report.get());
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "RestoreStatus");
    EXPECT_TRUE(
        equal(documents[0].value.get(), printable_report(report.get(), operation_type{13}).get()));
    EXPECT_EQ(lines_of_run(run), strings{"restoreCallback: status Restoring, operation Restoring "
                                         "image, progress 42"});
    EXPECT_EQ(CFGetRetainCount(report.get()), 1); // it is borrowed
}

TEST(RestoreCallback, PrintsItsDebugLineBeforeTheReport) {
    captured_streams streams;
    std::cerr.rdbuf(&streams.out); // one text of all, which shows the order
    auto const output = std::make_shared<output_str_state>(std::nullopt);
    output->set_debug(true);
    {
        device_notifier_state notifier(output, std::nullopt, std::nullopt);
        device_notifier_state::restoreCallback(nullptr, status(13, 42).get(), &notifier);
    }
    output->quit();
    output->loop();
    auto const text = streams.out.text();
    auto const line = text.find("restoreCallback: status Restoring");
    ASSERT_NE(line, std::string::npos) << text;
    EXPECT_LT(line, text.find("<?xml ")) << text;
}

TEST(RestoreCallback, IgnoresAnInvalidReport) {
    notifier_run run;
    auto const complete = run.notifier.restoreComplete.get_future();
    run.report(status("<key>Status</key><string>s</string>"
                      "<key>Operation</key><integer>0</integer>")
                   .get());
    EXPECT_FALSE(is_complete(complete));
    EXPECT_EQ(lines_of_run(run), strings{"restoreCallback: Ignoring invalid statusDict"});
    EXPECT_EQ(run.output.out(), "");
}

TEST(RestoreCallback, PrintsTheNumberOfAnUnknownOperation) {
    notifier_run run;
    run.report(status(150, -5).get());
    EXPECT_EQ(lines_of_run(run),
              strings{"restoreCallback: status Restoring, operation Unknown operation 150, "
                      "progress -5"});
}

TEST(RestoreCallback, CompletesTheRestore) {
    for (auto const command : {command_kind::restore, command_kind::enter_restore_mode}) {
        notifier_run run;
        run.notifier.operation = command;
        auto const complete = run.notifier.restoreComplete.get_future();
        run.report(status(0, 99).get());
        EXPECT_FALSE(is_complete(complete));
        run.report(status(0, 100).get());
        EXPECT_TRUE(is_complete(complete));
        auto const lines = lines_of_run(run);
        EXPECT_EQ(lines.back(), "restoreCallback: Notifying restore complete");
        EXPECT_EQ(lines.size(), 3U);
        EXPECT_EQ(run.output.documents().size(), 2U);
    }
}

TEST(RestoreCallback, CompletesTheEntryIntoRestoreMode) {
    notifier_run run;
    run.notifier.operation = command_kind::enter_restore_mode;
    auto const complete = run.notifier.restoreComplete.get_future();
    run.report(status(8, 100).get());
    EXPECT_FALSE(is_complete(complete));
    run.report(status(9, 31).get());
    EXPECT_TRUE(is_complete(complete));
    EXPECT_EQ(lines_of_run(run).back(), "restoreCallback: Notifying enter restore mode complete");
    EXPECT_EQ(run.output.documents().size(), 2U);
}

TEST(RestoreCallback, OnlyRelaysBootingOtherwise) {
    notifier_run run;
    run.notifier.operation = command_kind::restore;
    auto const complete = run.notifier.restoreComplete.get_future();
    run.report(status(9, 100).get());
    EXPECT_FALSE(is_complete(complete));
    EXPECT_EQ(run.output.documents().size(), 1U);
    EXPECT_EQ(lines_of_run(run).size(), 1U);
}

TEST(RestoreCallback, ToleratesASecondCompletion) {
    notifier_run run;
    auto const complete = run.notifier.restoreComplete.get_future();
    run.report(status(0, 100).get());
    EXPECT_NO_THROW(run.report(status(0, 100).get()));
    EXPECT_NO_THROW(run.report(status(13, 5).get()));
    EXPECT_TRUE(is_complete(complete));
    EXPECT_EQ(run.output.documents().size(), 3U);
    EXPECT_EQ(lines_of_run(run).size(), 5U);
}

TEST(RestoreCallback, PrintsAReportBeforeItCompletes) {
    struct row {
        command_kind command;
        int operation;
        char const * last_line;
    };
    constexpr row rows[] = {
        {command_kind::restore, 0, "restoreCallback: Notifying restore complete"},
        {command_kind::enter_restore_mode, 9,
         "restoreCallback: Notifying enter restore mode complete"},
    };
    for (auto const & [command, operation, last_line] : rows) {
        for (int i = 0; i < 100; ++i) { // a wrong order shows in many of them, not in all
            notifier_run run;
            run.notifier.operation = command;
            auto const report = status(operation, 100);
            auto complete = run.notifier.restoreComplete.get_future();
            std::thread reporting([&] { run.report(report.get()); });
            complete.get();
            run.output.finish(); // what is not queued by now is never written
            reporting.join();
            ASSERT_EQ(run.output.documents().size(), 1U);
            ASSERT_EQ(lines_of_run(run).back(), last_line);
        }
    }
}

// --- The restore

void expect_timeout_document(document const & printed, std::string const & seconds) {
    EXPECT_EQ(printed.type, "InternalError");
    EXPECT_TRUE(equal(
        printed.value.get(),
        plist("<dict><key>Domain</key><string>qnrescue</string><key>Code</key><integer>7</integer>"
              "<key>Description</key><string>Restore did not complete before timeout "
              "expired</string><key>FailureReason</key><string>Aborting, restore did not complete "
              "in " +
              seconds + " seconds</string></dict>")
            .get()));
}

struct restore_run : notifier_run {
    explicit restore_run(wait_clock & clock = steady_wait_clock())
        : notifier_run(clock) {
        notifier.operation = command_kind::restore;
        notifier.CreateDefaultRestoreOptions("x.ipsw", false);
    }
};

TEST(Restore, NeedsOptions) {
    notifier_run run;
    auto const device = device_with(restores);
    auto const earlier = run.notifier.restoreComplete.get_future();
    call_trace const trace;
    EXPECT_EQ(error_of([&] { run.notifier.operateRestore(device); }),
              (tool_error{2, "restoreOptions not set"}));
    EXPECT_EQ(run.output.out(), "");
    EXPECT_FALSE(is_complete(earlier)); // nor broken
    EXPECT_EQ(trace.calls("AM"), strings{});
}

TEST(Restore, RelaysReportsUntilItIsComplete) {
    restore_run run;
    auto const device = device_with(restores);
    call_trace const trace;
    run.notifier.operateRestore(device);
    EXPECT_EQ(trace.calls("AM"),
              strings{"AMRestorableDeviceRestore device=00000000000000D1 context=set -> void"});
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 3U);
    EXPECT_TRUE(equal(documents[2].value.get(),
                      status("<key>Status</key><string>Successful</string><key>Operation</key>"
                             "<integer>0</integer><key>Progress</key><integer>100</integer>")
                          .get()));
    EXPECT_EQ(lines_of_run(run),
              (strings{"restoreCallback: status Restoring, operation DFU download, progress 0",
                       "restoreCallback: status Restoring, operation Unknown operation 0, "
                       "progress 99",
                       "restoreCallback: status Successful, operation Unknown operation 0, "
                       "progress 100",
                       "restoreCallback: Notifying restore complete"}));
}

TEST(Restore, ThatDoesNotCompleteTimesOut) {
    fake_clock clock;
    restore_run run(clock);
    run.notifier.restoreTimeout = 2h + 1999ms;
    EXPECT_NO_THROW(run.notifier.operateRestore(device_with(recovery_device)));
    EXPECT_EQ(clock.passed(), 2h + 1999ms);
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    expect_timeout_document(documents[0], "7201");
}

TEST(Restore, WithoutATimeTimesOutAtOnce) {
    for (std::chrono::nanoseconds const timeout : {0ns, 999'999'999ns - 1s}) {
        fake_clock clock;
        restore_run run(clock);
        run.notifier.restoreTimeout = timeout;
        run.notifier.operateRestore(device_with(recovery_device));
        EXPECT_EQ(clock.passed(), 0ns);
        auto const documents = run.output.documents();
        ASSERT_EQ(documents.size(), 1U);
        expect_timeout_document(documents[0], "0");
    }
}

TEST(Restore, ThatOnlyBootsTimesOutUnlessThatIsTheAim) {
    for (auto const command : {command_kind::restore, command_kind::enter_restore_mode}) {
        fake_clock clock;
        restore_run run(clock);
        run.notifier.operation = command;
        clock.at(10min, [&] { run.report(status(9, 31).get()); });
        run.notifier.operateRestore(device_with(recovery_device));
        auto const documents = run.output.documents();
        EXPECT_EQ(documents.at(0).type, "RestoreStatus");
        if (command == command_kind::enter_restore_mode) {
            EXPECT_EQ(clock.passed(), 10min);
            EXPECT_EQ(documents.size(), 1U);
        } else {
            EXPECT_EQ(clock.passed(), 2h);
            ASSERT_EQ(documents.size(), 2U);
            expect_timeout_document(documents[1], "7200");
        }
    }
}

TEST(Restore, MayCompleteJustBeforeALongTimeout) {
    fake_clock clock;
    restore_run run(clock);
    run.notifier.restoreTimeout = 100h;
    clock.at(1h, [&] { run.report(status(0, 99).get()); });
    clock.at(100h - 1s, [&] { run.report(status(0, 100).get()); });
    run.notifier.operateRestore(device_with(recovery_device));
    EXPECT_EQ(clock.passed(), 100h - 1s);
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 2U);
    EXPECT_EQ(documents[1].type, "RestoreStatus");
}

TEST(Restore, SurvivesReportsAfterItsEnd) {
    for (int i = 0; i < 20; ++i) {
        restore_run run;
        run.notifier.operateRestore(device_with(completes_twice));
        auto const documents = run.output.documents();
        ASSERT_FALSE(documents.empty());
        EXPECT_TRUE(std::ranges::all_of(
            documents, [](document const & each) { return each.type == "RestoreStatus"; }));
    }
}

TEST(Restore, StartsWithAFreshPromise) {
    restore_run run;
    run.notifier.restoreTimeout = 0ns;
    run.report(status(0, 100).get()); // an earlier completion does not count
    run.notifier.operateRestore(device_with(recovery_device));
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 2U);
    EXPECT_EQ(documents[0].type, "RestoreStatus");
    expect_timeout_document(documents[1], "0");
}

TEST(Restore, BreaksThePromiseOfTheOneBefore) {
    restore_run run;
    auto earlier = run.notifier.restoreComplete.get_future();
    run.notifier.operateRestore(device_with(restores));
    expect_broken_promise(earlier);
}

} // namespace
