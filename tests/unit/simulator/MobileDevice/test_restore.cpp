// Scripted restores, the default restore, its options and its log.
#include "platform/cf_collections.hpp"
#include "platform/cf_strings.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/simulator/MobileDevice/fixture.hpp"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <atomic>
#include <thread>

#include <fmt/chrono.h>

using namespace mobile_device;
using namespace property_list;
using namespace std::chrono_literals;

namespace {

class Restore : public SimulatedPlatform {
protected:
    // Options that name a bundle.
    static cf_owner<CFMutableDictionaryRef> options_for(std::string const & bundle) {
        auto options = make_mutable_dictionary();
        CFDictionarySetValue(options.get(), CFSTR("RestoreBundlePath"),
                             make_cfstring(bundle).get());
        return options;
    }

    // A folder that can be restored from.
    std::string bundle() const {
        folder.write("BuildManifest.plist", "manifest");
        return folder.utf8("");
    }

    tests::temporary_folder folder;
};

std::string plain_device(std::string const & scale) {
    return dictionary(
        {{"TimeScale", scale}, {"Devices", array({dictionary({{"ECID", text("1")}})})}});
}

std::string scripted_device(std::string const & scale, std::initializer_list<std::string> reports) {
    return dictionary(
        {{"TimeScale", scale},
         {"Devices",
          array({dictionary({{"ECID", text("1")}, {"RestoreReports", array(reports)}})})}});
}

std::int64_t number_of(report_recorder::status const & status, char const * key) {
    return report_recorder::number_of(status, key);
}

std::string text_of(report_recorder::status const & status, char const * key) {
    return report_recorder::text_of(status, key);
}

std::string step(int operation) {
    return dictionary({{"Status", text("Restoring")}, {"Operation", integer(operation)}});
}

} // namespace

TEST_F(Restore, ScriptedReportsComeInOrder) {
    play(scripted_device(integer(0),
                         {dictionary({{"Status", step(3)}}),
                          dictionary({{"After", integer(100)}, {"Status", step(4)}}),
                          dictionary({{"Repeat", integer(3)}, {"Status", step(5)}}),
                          dictionary({{"Repeat", integer(0)}, {"Status", step(6)}}),
                          dictionary({{"Status", dictionary({{"$type", text("null")}})}}),
                          dictionary({{"Status", step(7)}})}));
    report_recorder recorder;
    recorder.restore(device(0));
    auto const received = recorder.wait_for(7);
    ASSERT_EQ(received.size(), 7U);
    std::int64_t const operations[] = {3, 4, 5, 5, 5};
    for (std::size_t index = 0; index < 5; ++index) {
        EXPECT_EQ(number_of(received[index], "Operation"), operations[index]);
    }
    EXPECT_FALSE(received[5]);
    EXPECT_EQ(number_of(received[6], "Operation"), 7);
}

TEST_F(Restore, PausesAreScaledAndRepeated) {
    play(scripted_device(
        real(0.1),
        {dictionary({{"After", integer(1)}, {"Repeat", integer(3)}, {"Status", step(3)}})}));
    report_recorder recorder;
    auto const start = test_clock().now();
    recorder.restore(device(0));
    EXPECT_EQ(recorder.wait_for(3).size(), 3U);
    EXPECT_EQ(recorder.times(), (std::vector{start + 100ms, start + 200ms, start + 300ms}));
}

TEST_F(Restore, LaterOnesHaveTheirReports) {
    auto const numbered = [](std::int64_t number) {
        return dictionary({{"Status", dictionary({{"Operation", integer(number)}})}});
    };
    play(dictionary(
        {{"Devices", array({dictionary({{"ECID", text("1")},
                                        {"RestoreReports", array({numbered(1)})},
                                        {"LaterRestores", array({array({numbered(2), numbered(3)}),
                                                                 array({numbered(4)})})}})})}}));
    report_recorder recorder;
    std::vector<std::int64_t> operations;
    for (std::size_t const count : {1U, 3U, 4U, 5U}) {
        recorder.restore(device(0));
        recorder.wait_for(count);
    }
    for (auto const & each : recorder.received()) {
        operations.push_back(number_of(each, "Operation"));
    }
    EXPECT_EQ(operations, (std::vector<std::int64_t>{1, 2, 3, 4, 4}));
}

TEST_F(Restore, AnEmptyScriptReportsNothing) {
    play(scripted_device(integer(0), {}));
    report_recorder recorder;
    recorder.restore(device(0));
    EXPECT_TRUE(recorder.wait(1h).empty());
}

TEST_F(Restore, TheCallbackGetsDeviceAndContextOnAnotherThread) {
    play(scripted_device(integer(0), {dictionary({{"Status", step(3)}})}));
    struct observed {
        AMRestorableDeviceRef device = nullptr;
        std::thread::id thread;
        std::atomic<bool> done = false;
    } seen;
    AMRestorableDeviceRestore(
        device(0), nullptr,
        [](AMRestorableDeviceRef object, CFDictionaryRef, void * context) {
            auto & into = *static_cast<observed *>(context);
            into.device = object;
            into.thread = std::this_thread::get_id();
            into.done = true;
        },
        &seen);
    test_clock().pass_until([&] { return seen.done.load(); });
    EXPECT_EQ(seen.device, device(0));
    EXPECT_NE(seen.thread, std::this_thread::get_id());
}

TEST_F(Restore, ANullDeviceOrCallbackDoesNoHarm) {
    play(scripted_device(integer(0), {dictionary({{"Status", step(3)}})}));
    report_recorder recorder;
    recorder.restore(nullptr);
    AMRestorableDeviceRestore(device(0), nullptr, nullptr, nullptr);
    EXPECT_TRUE(recorder.wait(1h).empty());
}

TEST_F(Restore, HoldsItsDeviceToItsEnd) {
    auto & scripted = *play(scripted_device(integer(0), {dictionary({{"Status", step(3)}}),
                                                         dictionary({{"Status", step(4)}})}))
                           .devices()
                           .at(0);
    struct observed {
        std::atomic<CFIndex> references[2] = {};
        std::atomic<int> count = 0;
    } seen;
    auto object = scripted.make_object(scripted.initial);
    AMRestorableDeviceRestore(
        object.get(), nullptr,
        [](AMRestorableDeviceRef device, CFDictionaryRef, void * context) {
            auto & into = *static_cast<observed *>(context);
            into.references[into.count] = CFGetRetainCount(device);
            ++into.count;
        },
        &seen);
    test_clock().pass_until([&] { return seen.count == 2; });
    simulator::instance().end(std::chrono::hours{1});
    EXPECT_EQ(seen.references[0], 2); // this test's and the restore's
    EXPECT_EQ(seen.references[1], 2);
    EXPECT_EQ(CFGetRetainCount(object.get()), 1);
}

TEST_F(Restore, TheDefaultOneGoesThroughItsSteps) {
    play(plain_device(integer(0)));
    notification_recorder notifications;
    auto const object = notifications.wait_for(1).at(0).object;
    report_recorder recorder;
    recorder.restore(object.get(), options_for(bundle()).get());
    auto const reports = recorder.wait_for_status("Successful");

    EXPECT_GE(reports.size(), 18U);
    EXPECT_LE(reports.size(), 26U);
    std::size_t boots = 0;
    for (std::size_t index = 0; index + 1 < reports.size(); ++index) {
        EXPECT_EQ(text_of(reports[index], "Status"), "Restoring");
        EXPECT_NE(number_of(reports[index], "Operation"), 0);
        EXPECT_LT(number_of(reports[index], "Progress"), number_of(reports[index + 1], "Progress"));
        boots += number_of(reports[index], "Operation") == 9 ? 1U : 0U;
    }
    EXPECT_EQ(boots, 1U);
    EXPECT_EQ(number_of(reports.back(), "Operation"), 0);
    EXPECT_EQ(number_of(reports.back(), "Progress"), 100);

    std::vector<notification> const expected = {
        {{}, 1, 2, 0}, {{}, 1, 2, 1}, {{}, 1, 3, 0}, {{}, 1, 3, 1}, {{}, 1, 4, 0}};
    EXPECT_EQ(notifications.wait_for(5), expected);
    EXPECT_EQ(recorder.wait(1h).size(), reports.size());
}

TEST_F(Restore, TheDefaultOneReportsBootingBeforeTheDeviceLeaves) {
    play(plain_device(integer(1)));
    notification_recorder notifications;
    auto const object = notifications.wait_for(1).at(0).object;
    report_recorder recorder;
    recorder.restore(object.get(), options_for(bundle()).get());
    auto const reports = recorder.wait_for_status("Successful");
    auto const booting = std::ranges::find_if(
        reports, [](auto const & report) { return number_of(report, "Operation") == 9; });
    ASSERT_NE(booting, reports.end());
    ASSERT_GE(notifications.wait_for(5).size(), 5U);
    auto const reported = recorder.times().at(static_cast<std::size_t>(booting - reports.begin()));
    EXPECT_EQ(notifications.times().at(1) - reported, 250ms);
    EXPECT_EQ(notifications.times().at(3) - recorder.times().back(), 250ms);
}

TEST_F(Restore, TheDefaultOneGoesOnOnceTheDeviceIsBack) {
    play(plain_device(integer(0)));
    struct observed {
        std::mutex mutex;
        std::vector<std::int64_t>
            events; // the operation of a report; minus the state of an arrival
    } seen;
    auto const id = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef object, AMRestorableDeviceNotificationType type, void * context) {
            test_clock().wait_for_other_threads(); // so that a report could overtake
            auto & into = *static_cast<observed *>(context);
            std::lock_guard const lock{into.mutex};
            if (type == kAMRestorableDeviceConnected) {
                into.events.push_back(-AMRestorableDeviceGetState(object));
            }
        },
        &seen, nullptr);
    test_clock().pass(0s);
    AMRestorableDeviceRestore(
        device(0), options_for(bundle()).get(),
        [](AMRestorableDeviceRef, CFDictionaryRef status, void * context) {
            auto & into = *static_cast<observed *>(context);
            std::lock_guard const lock{into.mutex};
            into.events.push_back(number_of(retain(status), "Operation"));
        },
        &seen);
    test_clock().pass(1h);
    AMRestorableDeviceUnregisterForNotifications(id);
    auto const & events = seen.events;
    auto const booting = std::ranges::find(events, 9);
    ASSERT_GE(events.end() - booting, 2);
    EXPECT_EQ(booting[1], -kAMRestorableDeviceStateRestoreOS);
    ASSERT_GE(events.size(), 2U);
    EXPECT_EQ(events[events.size() - 2], 0);
    EXPECT_EQ(events.back(), -kAMRestorableDeviceStateBootedOS);
}

TEST_F(Restore, TheDefaultOneEndsWhileTheDeviceIsAway) {
    play(plain_device(real(0.05)));
    report_recorder recorder;
    recorder.restore(device(0), options_for(bundle()).get());
    auto const booting = recorder.wait_for(8); // three steps before the bundle's, the fifth boots
    ASSERT_EQ(booting.size(), 8U);
    EXPECT_EQ(number_of(booting.back(), "Operation"), 9);
    EXPECT_TRUE(simulator::instance().end(20s));
    EXPECT_EQ(recorder.received().size(), 8U);
}

TEST_F(Restore, TheDefaultOneGoesOnWhereNobodyIsNotified) {
    play(plain_device(integer(0)));
    report_recorder recorder;
    recorder.restore(device(0), options_for(bundle()).get());
    recorder.wait_for(8);
    EXPECT_NE(AMRestorableDeviceUnregisterForNotifications(0), 0);
    EXPECT_EQ(text_of(recorder.wait_for_status("Successful").back(), "Status"), "Successful");
}

TEST_F(Restore, TheDefaultOneTakesAboutAQuarterOfASecondForAStep) {
    play(plain_device(integer(1)));
    report_recorder recorder;
    recorder.restore(device(0), options_for(bundle()).get());
    recorder.wait_for_status("Successful");
    auto const times = recorder.times();
    std::size_t longer = 0;
    for (std::size_t index = 1; index < times.size(); ++index) {
        auto const pause = times[index] - times[index - 1];
        EXPECT_GE(pause, 250ms);
        longer += pause > 250ms ? 1U : 0U;
    }
    EXPECT_EQ(longer, 1U); // while the device is away
}

TEST_F(Restore, TheDefaultOneFailsWithoutAUsableBundle) {
    auto const no_archive = folder.write("file.ipsw", "no archive");
    QN::filesystem::create_directory(folder / "empty");
    struct {
        cf_owner<CFMutableDictionaryRef> options;
        int error;
    } const cases[] = {
        {{}, 1},
        {make_mutable_dictionary(), 1},
        {options_for(folder.utf8("missing.ipsw")), 17},
        {options_for(no_archive), 11},
        {options_for(folder.utf8("empty")), 11},
    };
    for (auto const & [options, code] : cases) {
        play(plain_device(integer(0)));
        notification_recorder notifications;
        notifications.wait_for(1);
        report_recorder recorder;
        recorder.restore(device(0), options.get());
        auto const reports = recorder.wait_for_status("Failed");
        ASSERT_GE(reports.size(), 3U);
        ASSERT_LE(reports.size(), 8U);
        EXPECT_NE(number_of(reports.back(), "Operation"), 0);
        EXPECT_EQ(number_of(reports.back(), "Operation"),
                  number_of(reports[reports.size() - 2], "Operation"));
        EXPECT_GT(number_of(reports.back(), "Progress"), 0);
        auto const error = static_cast<CFErrorRef>(
            const_cast<void *>(CFDictionaryGetValue(reports.back().get(), CFSTR("Error"))));
        ASSERT_NE(error, nullptr);
        ASSERT_EQ(CFGetTypeID(error), CFErrorGetTypeID());
        EXPECT_EQ(qnrescue::to_utf8(CFErrorGetDomain(error)), "AMRestoreErrorDomain");
        EXPECT_EQ(CFErrorGetCode(error), code);
        EXPECT_EQ(recorder.wait(1h).size(), reports.size());
        EXPECT_EQ(notifications.received().size(), 1U);
    }
}

TEST_F(Restore, DefaultOptionsAreThePlatforms) {
    play("<dict/>");
    auto const options = adopt(AMRestoreCreateDefaultOptions(kCFAllocatorDefault));
    ASSERT_TRUE(options);
    auto const zero = make_number(0);
    struct {
        CFStringRef key;
        CFTypeRef value;
    } const expected[] = {
        {CFSTR("AutoBootDelay"), zero.get()},
        {CFSTR("BootImageType"), CFSTR("User")},
        {CFSTR("CreateFilesystemPartitions"), kCFBooleanTrue},
        {CFSTR("DFUFileType"), CFSTR("RELEASE")},
        {CFSTR("FlashNOR"), kCFBooleanTrue},
        {CFSTR("KernelCacheType"), CFSTR("Release")},
        {CFSTR("NORImageType"), CFSTR("production")},
        {CFSTR("RestoreBootArgs"), CFSTR("rd=md0 nand-enable-reformat=1 -progress")},
        {CFSTR("SystemImageType"), CFSTR("User")},
        {CFSTR("UpdateBaseband"), kCFBooleanTrue},
    };
    EXPECT_EQ(CFDictionaryGetCount(options.get()), 10);
    for (auto const & [key, value] : expected) {
        auto const found = CFDictionaryGetValue(options.get(), key);
        ASSERT_NE(found, nullptr) << *qnrescue::to_utf8(key);
        EXPECT_TRUE(CFEqual(found, value)) << *qnrescue::to_utf8(key);
    }
    CFDictionarySetValue(options.get(), CFSTR("X"), kCFBooleanTrue); // it is mutable
    EXPECT_EQ(CFGetRetainCount(options.get()), 1);
}

TEST_F(Restore, DefaultOptionsMayBeScripted) {
    play(dictionary({{"DefaultOptions", dictionary({{"AutoBootDelay", integer(5)}})}}));
    for (int call = 0; call < 2; ++call) {
        auto const options = adopt(AMRestoreCreateDefaultOptions(kCFAllocatorDefault));
        ASSERT_NE(options, nullptr);
        EXPECT_EQ(CFDictionaryGetCount(options.get()), 1);
        auto const delay = CFDictionaryGetValue(options.get(), CFSTR("AutoBootDelay"));
        EXPECT_TRUE(CFEqual(delay, make_number(5).get()));
        CFDictionarySetValue(options.get(), CFSTR("Changed"), kCFBooleanTrue); // the caller's own
    }
}

TEST_F(Restore, DefaultOptionsFailAsScripted) {
    play(dictionary({{"Failures", dictionary({{"CreateDefaultOptions", boolean(true)}})}}));
    EXPECT_EQ(AMRestoreCreateDefaultOptions(kCFAllocatorDefault), nullptr);
}

TEST_F(Restore, ALogFileIsOpenedAtOnceAndAppendedTo) {
    play(scripted_device(integer(0),
                         {dictionary({{"Status", step(13)}, {"Repeat", integer(2)}}),
                          dictionary({{"Status", dictionary({{"$type", text("null")}})}})}));
    auto const fresh = folder.utf8("new 記録.log");
    EXPECT_EQ(AMRestoreEnableFileLogging(fresh.c_str()), kAMRSuccess);
    ASSERT_TRUE(QN::filesystem::exists(folder / "new 記録.log"));
    EXPECT_EQ(tests::read_file(folder / "new 記録.log"), "");

    auto const used = folder.write("used.log", "command line\n");
    EXPECT_EQ(AMRestoreEnableFileLogging(used.c_str()), kAMRSuccess);
    EXPECT_EQ(tests::read_file(folder / "used.log"), "command line\n");

    report_recorder recorder;
    recorder.restore(device(0));
    recorder.wait_for(3);
    auto const lines = tests::read_lines(folder / "used.log");
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "command line");
    auto const time = fmt::format("{:%FT%TZ} ", fmt::gmtime(test_clock().calendar_time()));
    EXPECT_TRUE(lines[1].starts_with(time)) << lines[1];
    auto const end_of_step =
        " device=0000000000000001 status=\"Restoring\" operation=13 progress=null";
    EXPECT_TRUE(lines[1].ends_with(end_of_step)) << lines[1];
    EXPECT_TRUE(lines[2].ends_with(end_of_step)) << lines[2];
    EXPECT_TRUE(lines[3].ends_with(" status=null operation=null progress=null")) << lines[3];
    EXPECT_EQ(tests::read_file(folder / "new 記録.log"), "");
}

TEST_F(Restore, ALogFileThatCannotBeOpenedIsAnError) {
    play("<dict/>");
    EXPECT_EQ(static_cast<int>(AMRestoreEnableFileLogging(folder.utf8("no/such/folder").c_str())),
              12);
    EXPECT_EQ(static_cast<int>(AMRestoreEnableFileLogging(folder.utf8("").c_str())), 12);
    auto const no_utf8 = folder.utf8("no/such/folder/") + "\xFF";
    EXPECT_EQ(static_cast<int>(AMRestoreEnableFileLogging(no_utf8.c_str())), 12);
    EXPECT_NE(AMRestoreEnableFileLogging(nullptr), kAMRSuccess);
}

TEST_F(Restore, LoggingFailsAsScripted) {
    play(dictionary({{"Failures", dictionary({{"EnableFileLogging", integer(16)}})}}));
    EXPECT_EQ(static_cast<int>(AMRestoreEnableFileLogging(folder.utf8("x.log").c_str())), 16);
    EXPECT_FALSE(QN::filesystem::exists(folder / "x.log"));
}
