// A session with simulated devices is recorded, played, and recorded again.
#include "recorder/functions.hpp"

#include "platform/cf_collections.hpp"
#include "platform/cf_strings.hpp"
#include "recorder/process_session.hpp"
#include "simulator/MobileDevice/simulator.hpp"
#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <regex>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

using mobile_device::adopt;
using mobile_device::cf_owner;
using property_list::integer;
using property_list::real;
using property_list::text;

namespace xml = property_list;

std::string shown(CFTypeRef object) {
    return qnrescue::is_a(object, CFStringGetTypeID())
               ? qnrescue::MakeString(static_cast<CFStringRef>(object))
               : qnrescue::MakeDescription(object);
}

// Uses all functions as a tool does, and writes down what it sees.
class small_tool {
public:
    // Waits for so many notifications.
    void listen(std::size_t count) {
        CFErrorRef error = nullptr;
        auto const id = recorded_AMRestorableDeviceRegisterForNotifications(notified, this, &error);
        if (auto const failure = adopt(error)) {
            seen.push_back(fmt::format("registration {}: {}", id, shown(failure.get())));
            return;
        }
        wait_until([&] { return notifications >= count; });
        seen.push_back(
            fmt::format("end {}", recorded_AMRestorableDeviceUnregisterForNotifications(id)));
    }

    // Restores the device that arrived last, and waits for so many reports.
    void restore(std::size_t count) {
        auto const options = adopt(recorded_AMRestoreCreateDefaultOptions(kCFAllocatorDefault));
        seen.push_back(
            fmt::format("options {}", options ? CFDictionaryGetCount(options.get()) : -1));
        recorded_AMRestorableDeviceRestore(held.get(), options.get(), reported, this);
        wait_until([&] { return reports >= count; });
    }

    void command() {
        auto const device = adopt(recorded_AMRestorableDeviceCopyRecoveryModeDevice(held.get()));
        seen.push_back(fmt::format("recovery mode {}", device != nullptr));
        if (device) {
            for (bool const boots : {true, false}) {
                seen.push_back(fmt::format(
                    "auto-boot {}", static_cast<int>(recorded_AMRecoveryModeDeviceSetAutoBoot(
                                        device.get(), boots))));
            }
            seen.push_back(fmt::format(
                "reboot {}", static_cast<int>(recorded_AMRecoveryModeDeviceReboot(device.get()))));
        }
    }

    std::vector<std::string> seen;

private:
    static void notified(AMRestorableDeviceRef device, AMRestorableDeviceNotificationType type,
                         void * context) {
        auto & self = *static_cast<small_tool *>(context);
        auto const line = fmt::format("{} {}", static_cast<int>(type), answers_of(device));
        std::lock_guard const lock{self.mutex};
        self.held = qnrescue::retain(device);
        self.seen.push_back(line);
        ++self.notifications;
        self.changed.notify_all();
    }

    static std::string answers_of(AMRestorableDeviceRef device) {
        auto const serial = adopt(recorded_AMRestorableDeviceCopySerialNumber(device));
        auto const product = adopt(recorded_AMRestorableDeviceCopyProductString(device));
        return fmt::format("{:X} {} {} {} {} {} {} {} {} {}",
                           recorded_AMRestorableDeviceGetECID(device),
                           static_cast<int>(recorded_AMRestorableDeviceGetState(device)),
                           recorded_AMRestorableDeviceGetProductID(device),
                           recorded_AMRestorableDeviceGetBoardID(device),
                           recorded_AMRestorableDeviceGetChipID(device),
                           recorded_AMRestorableDeviceGetProductType(device),
                           recorded_AMRestorableDeviceGetFusingInfo(device),
                           recorded_AMRestorableDeviceGetLocationID(device), shown(serial.get()),
                           shown(product.get()));
    }

    static void reported(AMRestorableDeviceRef, CFDictionaryRef status, void * context) {
        auto & self = *static_cast<small_tool *>(context);
        auto const data =
            adopt(status ? CFPropertyListCreateData(kCFAllocatorDefault, status,
                                                    kCFPropertyListXMLFormat_v1_0, 0, nullptr)
                         : nullptr);
        std::lock_guard const lock{self.mutex};
        self.seen.push_back(
            data ? std::string{reinterpret_cast<char const *>(CFDataGetBytePtr(data.get())),
                               static_cast<std::size_t>(CFDataGetLength(data.get()))}
                 : fmt::format("report of {}", status ? CFDictionaryGetCount(status) : -1));
        ++self.reports;
        self.changed.notify_all();
    }

    template <typename Condition>
    void wait_until(Condition condition) {
        std::unique_lock lock{mutex};
        EXPECT_TRUE(changed.wait_for(lock, 30s, condition));
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::size_t notifications = 0;
    std::size_t reports = 0;
    cf_owner<AMRestorableDeviceRef> held;
};

class RecordedFunctions : public testing::Test {
protected:
    ~RecordedFunctions() override {
        recorder::end_process_session();
        tests::set_environment(file_variable, "");
        tests::set_environment(identities_variable, "");
    }

    // Plays a scenario to a tool and records it; returns what the tool saw.
    template <typename Use>
    std::vector<std::string> record(mobile_device::scenario scenario, std::string const & file,
                                    Use use) {
        tests::set_environment(file_variable, folder.utf8(file));
        recorder::end_process_session();
        mobile_device::simulator::replace(
            std::make_unique<mobile_device::simulator>(std::move(scenario)));
        std::vector<std::string> seen;
        {
            small_tool tool;
            use(tool);
            mobile_device::simulator::replace(nullptr);
            seen = tool.seen;
        }
        recorder::end_process_session();
        return seen;
    }

    mobile_device::scenario written(std::string const & file) const {
        return mobile_device::load_scenario(folder.utf8(file));
    }

    static mobile_device::scenario parsed(std::string const & root) {
        auto const all = xml::document(root);
        return mobile_device::parse_scenario(
            {reinterpret_cast<std::uint8_t const *>(all.data()), all.size()});
    }

    // The text of a recording without its times.
    std::string timeless(std::string const & file) const {
        static std::regex const time{"(After</key>\\s*<real>)[^<]*"};
        return std::regex_replace(tests::read_file(folder / file), time, "$1");
    }

    // Records a scenario twice: itself, and its recording.
    template <typename Use>
    void expect_round_trip(std::string const & root, Use use) {
        tests::set_environment(identities_variable, "keep");
        auto const first = record(parsed(root), "first", use);
        EXPECT_FALSE(first.empty());
        EXPECT_EQ(record(written("first"), "second", use), first);
        EXPECT_EQ(timeless("first"), timeless("second"));
        EXPECT_EQ(timeless("first").find("Unplayable"), std::string::npos) << timeless("first");
    }

    static constexpr auto file_variable = "MOBILEDEVICE_RECORDER_FILE";
    static constexpr auto identities_variable = "MOBILEDEVICE_RECORDER_IDENTITIES";
    tests::temporary_folder folder;
};

std::string scenario_of(std::initializer_list<std::string> devices,
                        std::initializer_list<std::string> notifications = {}) {
    return xml::dictionary({{"TimeScale", real(0.01)},
                            {"Devices", xml::array(devices)},
                            {"Notifications", xml::array(notifications)}});
}

std::string full_device(std::string const & more = {}) {
    auto const plain = xml::dictionary({{"ECID", text("C1A2B3C4D5E6F")},
                                        {"State", integer(2)},
                                        {"ProductID", integer(4737)},
                                        {"ChipID", integer(0x8110)},
                                        {"LocationID", integer(-1)},
                                        {"SerialNumber", text("F4GSM1QN0D8X")}});
    return plain.substr(0, plain.size() - 7) + more + "</dict>";
}

TEST_F(RecordedFunctions, NotificationsAndAnswers) {
    expect_round_trip(
        scenario_of(
            {full_device("<key>DisconnectAfter</key><real>2</real>"),
             xml::dictionary({{"ECID", text("2")}, {"ConnectAfter", integer(1)}})},
            {xml::dictionary({{"After", integer(3)}, {"Type", integer(5)}}),
             xml::dictionary({{"After", integer(4)}, {"ECID", text("2")}, {"Type", integer(6)}}),
             xml::dictionary(
                 {{"After", integer(5)}, {"ECID", text("C1A2B3C4D5E6F")}, {"Type", integer(1)}})}),
        [](small_tool & tool) { tool.listen(6); });
}

TEST_F(RecordedFunctions, AnswersThatChange) {
    expect_round_trip(scenario_of({full_device(
                          "<key>Answers</key>" +
                          xml::dictionary({{"State", xml::array({integer(2), integer(9)})},
                                           {"ProductString",
                                            xml::array({xml::dictionary({{"$type", text("null")}}),
                                                        text("late")})}}) +
                          "<key>DisconnectAfter</key><integer>1</integer>")}),
                      [](small_tool & tool) { tool.listen(2); });
}

TEST_F(RecordedFunctions, RestoreWithReportsOfEveryKind) {
    auto const report = [](std::string const & status) {
        return xml::dictionary({{"After", integer(1)}, {"Status", status}});
    };
    auto const error =
        xml::dictionary({{"$type", text("error")}, {"Domain", text("d")}, {"Code", integer(4)}});
    expect_round_trip(scenario_of({full_device(
                          "<key>RestoreReports</key>" +
                          xml::array({report(xml::dictionary({{"Progress", integer(5)}})),
                                      report(xml::dictionary({{"Error", error}})),
                                      report(xml::dictionary({{"$type", text("null")}})),
                                      report(xml::dictionary({{"$type", text("dictionary")},
                                                              {"Entries", "<array/>"}}))}))}),
                      [](small_tool & tool) {
                          tool.listen(1);
                          tool.restore(4);
                      });
}

TEST_F(RecordedFunctions, ReportsAfterTheEndAndASecondRestore) {
    auto const report = [](int operation, int progress) {
        return xml::dictionary({{"After", integer(1)},
                                {"Status", xml::dictionary({{"Status", text("Restoring")},
                                                            {"Operation", integer(operation)},
                                                            {"Progress", integer(progress)}})}});
    };
    expect_round_trip(
        scenario_of({full_device("<key>RestoreReports</key>" +
                                 xml::array({report(0, 100), report(7, 3), report(0, 100)}) +
                                 "<key>LaterRestores</key>" +
                                 xml::array({xml::array({report(8, 4)}), "<array/>",
                                             xml::array({report(9, 5), report(9, 6)})}))}),
        [](small_tool & tool) {
            tool.listen(1);
            for (std::size_t const reports : {3U, 4U, 4U, 6U}) {
                tool.restore(reports);
            }
        });
}

TEST_F(RecordedFunctions, NotificationsOnSeveralThreads) {
    auto const on_thread = [](int after, int thread) {
        return xml::dictionary(
            {{"After", integer(after)}, {"Type", integer(5)}, {"Thread", integer(thread)}});
    };
    expect_round_trip(scenario_of({full_device("<key>DisconnectAfter</key><real>3</real>"
                                               "<key>DisconnectThread</key><integer>2</integer>"
                                               "<key>ConnectAfter</key><real>2</real>"
                                               "<key>ConnectThread</key><integer>1</integer>")},
                                  {on_thread(1, 0), on_thread(4, 1), on_thread(5, 2)}),
                      [](small_tool & tool) { tool.listen(5); });
    auto const scenario = written("first");
    EXPECT_EQ(scenario.devices.at(0).connect_thread, 1);
    EXPECT_EQ(scenario.devices.at(0).disconnect_thread, 2);
    EXPECT_EQ(scenario.notifications.at(1).thread, 1);
    EXPECT_EQ(scenario.notifications.at(2).thread, 2);
}

// How many callbacks came on this thread.
thread_local int callbacks_here = 0;

// Counts callbacks, and keeps the largest number that one of them gave.
struct callback_counter {
    void add(int count) {
        std::lock_guard const lock{mutex};
        most = std::max(most, count);
        ++all;
        changed.notify_all();
    }

    bool waits_for(int count) {
        std::unique_lock lock{mutex};
        return changed.wait_for(lock, 30s, [&] { return all == count; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    int most = 0;
    int all = 0;
};

TEST_F(RecordedFunctions, CallbacksComeOnTheThreadOfTheLibrary) {
    auto const report = xml::dictionary({{"Status", xml::dictionary({})}});
    auto const notification = xml::dictionary(
        {{"After", integer(1)}, {"Type", integer(5)}, {"ECID", text("C1A2B3C4D5E6F")}});
    auto const scenario = scenario_of(
        {full_device("<key>RestoreReports</key>" + xml::array({report, report, report}))},
        {notification, notification});
    record(parsed(scenario), "file", [](small_tool &) {
        static AMRestorableDeviceRef device;
        callback_counter notifications;
        callback_counter reports;
        recorded_AMRestorableDeviceRegisterForNotifications(
            [](AMRestorableDeviceRef shown, AMRestorableDeviceNotificationType, void * counter) {
                device = shown;
                static_cast<callback_counter *>(counter)->add(++callbacks_here);
            },
            &notifications, nullptr);
        EXPECT_TRUE(notifications.waits_for(3));
        EXPECT_EQ(notifications.most, 3);
        recorded_AMRestorableDeviceRestore(
            device, nullptr,
            [](AMRestorableDeviceRef, CFDictionaryRef, void * counter) {
                static_cast<callback_counter *>(counter)->add(++callbacks_here);
            },
            &reports);
        EXPECT_TRUE(reports.waits_for(3));
        EXPECT_EQ(reports.most, 3);
        mobile_device::simulator::replace(nullptr); // ends its threads before the counters
    });
}

TEST_F(RecordedFunctions, WhatTheToolSeesIsRecordedBefore) {
    auto const report = xml::dictionary({{"Status", xml::dictionary({})}});
    auto const scenario =
        scenario_of({full_device("<key>RestoreReports</key>" + xml::array({report}))});
    record(parsed(scenario), "file", [](small_tool &) {
        static AMRestorableDeviceRef device;
        callback_counter visits;
        callback_counter reports;
        recorded_AMRestorableDeviceRegisterForNotifications(
            [](AMRestorableDeviceRef shown, AMRestorableDeviceNotificationType, void * counter) {
                device = shown;
                auto const recorded = recorder::process_session()->copy().visits.size();
                static_cast<callback_counter *>(counter)->add(static_cast<int>(recorded));
            },
            &visits, nullptr);
        EXPECT_TRUE(visits.waits_for(1));
        EXPECT_EQ(visits.most, 1);
        recorded_AMRestorableDeviceRestore(
            device, nullptr,
            [](AMRestorableDeviceRef, CFDictionaryRef, void * counter) {
                auto const recorded =
                    recorder::process_session()->copy().visits.at(0).restores.at(0).size();
                static_cast<callback_counter *>(counter)->add(static_cast<int>(recorded));
            },
            &reports);
        EXPECT_TRUE(reports.waits_for(1));
        EXPECT_EQ(reports.most, 1);
        mobile_device::simulator::replace(nullptr); // ends its threads before the counters
    });
}

TEST_F(RecordedFunctions, CommandsAndTheReturnOfTheDevice) {
    expect_round_trip(
        scenario_of({full_device(
            "<key>Answers</key>" +
            xml::dictionary({{"SetAutoBootError", xml::array({integer(0), integer(10)})}}))}),
        [](small_tool & tool) {
            tool.listen(1);
            tool.command();
        });
    expect_round_trip(scenario_of({full_device("<key>RecoveryModeDevice</key><false/>")}),
                      [](small_tool & tool) {
                          tool.listen(1);
                          tool.command();
                      });
}

TEST_F(RecordedFunctions, FailuresOfTheLibrary) {
    auto const error = xml::dictionary(
        {{"Domain", text("d")}, {"Code", integer(1)}, {"FailureReason", text("why")}});
    expect_round_trip(
        xml::dictionary({{"Failures", xml::dictionary({{"RegisterForNotifications", error},
                                                       {"EnableFileLogging", integer(9)},
                                                       {"CreateDefaultOptions", "<true/>"}})}}),
        [](small_tool & tool) {
            tool.listen(1);
            tool.seen.push_back(std::to_string(recorded_AMRestoreEnableFileLogging("C:\\log")));
            tool.seen.push_back(shown(recorded_AMRestoreCreateDefaultOptions(nullptr)));
        });
}

TEST_F(RecordedFunctions, ALogPathIsRecordedWithoutWhatIsNoText) {
    auto const no_log =
        xml::dictionary({{"Failures", xml::dictionary({{"EnableFileLogging", integer(9)}})}});
    auto const log = [](small_tool &) { recorded_AMRestoreEnableFileLogging("C:\\a\xFF\xC3\xA9"); };
    record(parsed(no_log), "file", log);
    EXPECT_EQ(written("file").failures.enable_file_logging, 9);
    tests::set_environment(identities_variable, "keep");
    record(parsed(no_log), "kept", log);
    auto const content = tests::read_file(folder / "kept");
    EXPECT_NE(content.find("<string>C:\\aé</string>"), std::string::npos) << content;
}

TEST_F(RecordedFunctions, TextsThatXmlCannotHold) {
    auto const odd = xml::dictionary(
        {{"$type", text("text")}, {"Parts", xml::array({text("a"), integer(1), integer(0xDC00)})}});
    expect_round_trip(
        scenario_of({full_device(
            "<key>ProductString</key>" + odd + "<key>RestoreReports</key>" +
            xml::array({xml::dictionary({{"Status", xml::dictionary({{"Text", odd}})}})}))}),
        [](small_tool & tool) {
            tool.listen(1);
            tool.restore(1);
        });
}

TEST_F(RecordedFunctions, IdentitiesAreReplacedUnlessTheyAreKept) {
    record(parsed(scenario_of({full_device()})), "file", [](small_tool & tool) { tool.listen(1); });
    auto const content = tests::read_file(folder / "file");
    EXPECT_EQ(content.find("C1A2B3C4D5E6F"), std::string::npos);
    EXPECT_EQ(content.find("F4GSM1QN0D8X"), std::string::npos);
    EXPECT_EQ(written("file").devices.size(), 1U);
}

TEST_F(RecordedFunctions, WithoutAFileNothingIsRecorded) {
    recorder::end_process_session();
    EXPECT_EQ(recorder::process_session(), nullptr);
    mobile_device::simulator::replace(
        std::make_unique<mobile_device::simulator>(parsed(scenario_of({full_device()}))));
    small_tool tool;
    tool.listen(1);
    EXPECT_EQ(tool.seen.size(), 2U);
    mobile_device::simulator::replace(nullptr);
}

TEST_F(RecordedFunctions, TheFirstSubscriptionIsPassedOn) {
    record(parsed("<dict/>"), "file", [](small_tool &) {
        AMDeviceNotificationRef subscription = nullptr;
        EXPECT_EQ(recorded_AMDeviceNotificationSubscribe(nullptr, 0, 1, nullptr, &subscription), 0);
        EXPECT_NE(subscription, nullptr);
        EXPECT_EQ(recorded_AMDeviceNotificationUnsubscribe(subscription), 0);
    });
    auto const content = tests::read_file(folder / "file");
    EXPECT_NE(content.find("<string>AMDeviceNotificationSubscribe</string>"), std::string::npos);
    EXPECT_NE(content.find("<string>AMDeviceNotificationUnsubscribe</string>"), std::string::npos);
}

} // namespace
