// What was recorded becomes a scenario that the simulator reads.
#include "recorder/make_scenario.hpp"

#include "platform/cf_strings.hpp"
#include "simulator/MobileDevice/scenario.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

using recorder::make_boolean;
using recorder::make_integer;
using recorder::make_null;
using recorder::make_string;

std::string text_of_scenario(recorder::recording const & recorded, bool keeps = true) {
    return recorder::write_property_list(recorder::make_scenario(recorded, keeps));
}

mobile_device::scenario played(recorder::recording const & recorded, bool keeps = true) {
    auto const text = text_of_scenario(recorded, keeps);
    return mobile_device::parse_scenario(
        {reinterpret_cast<std::uint8_t const *>(text.data()), text.size()});
}

recorder::visit visit_of(std::uint64_t ecid, recorder::clock::duration connected) {
    recorder::visit result;
    result.ecid = ecid;
    result.connected = connected;
    return result;
}

recorder::value number(std::int64_t content) {
    return make_integer(content);
}

std::shared_ptr<recorder::value const> status(std::string const & text) {
    return std::make_shared<recorder::value const>(
        recorder::value{recorder::dictionary{{"Status", make_string(text)}}});
}

std::string text_of(CFStringRef string) {
    return qnrescue::MakeString(string);
}

TEST(MakeScenario, DevicesHaveTheirTimesAndAnswers) {
    auto visit = visit_of(0xABC, 1500ms);
    visit.disconnected = 2s;
    visit.answers["State"] = {number(1), number(1)};
    visit.answers["ChipID"] = {number(0x8110)};
    visit.answers["SerialNumber"] = {make_string("SN")};
    visit.answers["ProductString"] = {make_null()};
    visit.answers["RecoveryModeDevice"] = {make_boolean(false)};
    auto const scenario = played({.visits = {visit}});
    ASSERT_EQ(scenario.devices.size(), 1U);
    auto const & device = scenario.devices[0];
    EXPECT_EQ(device.ecid, 0xABCU);
    EXPECT_EQ(device.state, 1);
    EXPECT_EQ(device.chip_id, 0x8110U);
    EXPECT_EQ(text_of(device.serial_number.get()), "SN");
    EXPECT_EQ(device.product_string, nullptr);
    EXPECT_DOUBLE_EQ(device.connect_after, 1.5);
    EXPECT_EQ(device.disconnect_after, 2.0);
    EXPECT_FALSE(device.recovery_mode_device);
    EXPECT_TRUE(device.connects);
    EXPECT_TRUE(device.returns);
    EXPECT_EQ(device.restore_reports, std::nullopt);
    EXPECT_TRUE(device.answers.empty());
}

TEST(MakeScenario, AnswersThatChangeAreASequence) {
    auto visit = visit_of(1, 0s);
    visit.answers["State"] = {number(2), number(3), number(3), number(3)};
    visit.answers["SerialNumber"] = {make_null(), make_string("SN")};
    auto const device = played({.visits = {visit}}).devices.at(0);
    ASSERT_EQ(device.answers.at("State").size(), 2U);
    EXPECT_EQ(device.answers.at("State")[1].bits, 3U);
    EXPECT_EQ(device.answers.at("SerialNumber")[0].text, nullptr);
    EXPECT_EQ(text_of(device.answers.at("SerialNumber")[1].text.get()), "SN");
}

TEST(MakeScenario, WhatOneVisitWasAskedHoldsForTheOthersOfTheDevice) {
    auto asked = visit_of(1, 0s);
    asked.answers["State"] = {number(2)};
    asked.answers["ChipID"] = {number(7)};
    asked.answers["RebootError"] = {number(10)};
    asked.restores = {{{1s, status("Restoring")}}};
    auto same_state = visit_of(1, 1s);
    same_state.answers["State"] = {number(2)};
    auto other_state = visit_of(1, 2s);
    other_state.answers["State"] = {number(3)};
    auto const devices =
        played({.visits = {same_state, asked, other_state, visit_of(2, 3s)}}).devices;
    EXPECT_EQ(devices.at(0).chip_id, 7U);
    EXPECT_EQ(devices.at(0).reboot_error, 10);
    EXPECT_FALSE(devices.at(0).returns);
    EXPECT_EQ(devices.at(0).restore_reports.value().size(), 1U);
    EXPECT_EQ(devices.at(2).chip_id, 7U);
    EXPECT_EQ(devices.at(2).reboot_error, 0);
    EXPECT_EQ(devices.at(2).restore_reports, std::nullopt);
    EXPECT_EQ(devices.at(3).chip_id, 0U);
}

TEST(MakeScenario, DevicesThatNobodyAskedHaveNumbersOfTheirOwn) {
    recorder::visit unknown;
    unknown.connected = 0s;
    auto const devices =
        played({.visits = {visit_of(0xF000000000000001, 0s), unknown, unknown}}).devices;
    EXPECT_EQ(devices.at(1).ecid, 0xF000000000000002U);
    EXPECT_EQ(devices.at(2).ecid, 0xF000000000000003U);
}

TEST(MakeScenario, NotificationsNameTheirVisit) {
    recorder::visit never_arrived;
    never_arrived.ecid = 5;
    auto const scenario = played({.visits = {visit_of(5, 0s), never_arrived},
                                  .notifications = {{1s, 1, 7}, {2s, std::nullopt, -1}}});
    EXPECT_FALSE(scenario.devices.at(1).connects);
    ASSERT_EQ(scenario.notifications.size(), 2U);
    EXPECT_EQ(scenario.notifications[0].device, 1U);
    EXPECT_EQ(scenario.notifications[0].type, 7);
    EXPECT_DOUBLE_EQ(scenario.notifications[0].after, 1);
    EXPECT_EQ(scenario.notifications[1].device, std::nullopt);
}

TEST(MakeScenario, ReportsAndFailures) {
    auto visit = visit_of(1, 0s);
    visit.restores = {
        {{500ms, status("Restoring")}, {0s, std::make_shared<recorder::value const>(make_null())}}};
    recorder::recording recorded{.visits = {visit, visit_of(2, 0s)}};
    recorded.visits[1].restores.emplace_back();
    recorded.registration_error = {{"Domain", make_string("d")}, {"Code", number(4)}};
    recorded.logging_results = {12};
    recorded.default_options = {std::nullopt};
    recorded.unplayable = {"It is lost."};
    auto const scenario = played(recorded);
    auto const & reports = scenario.devices.at(0).restore_reports.value();
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_DOUBLE_EQ(reports[0].after, 0.5);
    EXPECT_EQ(CFDictionaryGetCount(reports[0].status.get()), 1);
    EXPECT_EQ(reports[1].status, nullptr);
    EXPECT_EQ(scenario.devices.at(1).restore_reports.value().size(), 0U);
    ASSERT_NE(scenario.failures.register_for_notifications, nullptr);
    EXPECT_EQ(CFErrorGetCode(scenario.failures.register_for_notifications.get()), 4);
    EXPECT_EQ(scenario.failures.enable_file_logging, 12);
    EXPECT_TRUE(scenario.failures.create_default_options);
    EXPECT_NE(text_of_scenario(recorded).find("<string>It is lost.</string>"), std::string::npos);
}

TEST(MakeScenario, SaysHowManySentencesAreLeftOut) {
    recorder::recording recorded{.unplayable = {"It is lost."}};
    EXPECT_EQ(text_of_scenario(recorded).find("more."), std::string::npos);
    recorded.unplayable_left_out = 7;
    EXPECT_NE(text_of_scenario(recorded).find("<string>There were 7 more.</string>"),
              std::string::npos);
}

TEST(MakeScenario, LaterRestoresAndThreads) {
    auto visit = visit_of(1, 0s);
    visit.restores = {{{1s, status("one")}}, {}, {{2s, status("three")}, {3s, status("four")}}};
    visit.connect_thread = 1;
    visit.disconnect_thread = 2;
    auto const scenario =
        played({.visits = {visit, visit_of(2, 0s)}, .notifications = {{1s, 0, 7, 3}}});
    auto const & device = scenario.devices.at(0);
    EXPECT_EQ(device.restore_reports.value().size(), 1U);
    ASSERT_EQ(device.later_restores.size(), 2U);
    EXPECT_EQ(device.later_restores[0].size(), 0U);
    EXPECT_DOUBLE_EQ(device.later_restores[1].at(1).after, 3);
    EXPECT_EQ(device.connect_thread, 1);
    EXPECT_EQ(device.disconnect_thread, 2);
    EXPECT_EQ(scenario.notifications.at(0).thread, 3);
    EXPECT_EQ(scenario.devices.at(1).connect_thread, 0);
}

TEST(MakeScenario, DefaultOptionsAreThoseOfTheLibrary) {
    recorder::recording recorded;
    recorded.default_options.emplace_back(
        recorder::value{recorder::dictionary{{"AutoBootDelay", number(5)}}});
    auto const scenario = played(recorded);
    EXPECT_FALSE(scenario.failures.create_default_options);
    ASSERT_NE(scenario.default_options, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(scenario.default_options.get()), 1);
}

// A device with all that identifies it, wherever that may be.
recorder::recording identified() {
    auto visit = visit_of(0x000C1A2B3C4D5E6F, 0s);
    visit.answers["SerialNumber"] = {make_string("F4GSM1QN0D8X")};
    visit.answers["ProductString"] = {make_string("iBoot 4711 000C1A2B3C4D5E6F")};
    visit.restores = {{{0s, status("000C1A2B3C4D5E6F and F4GSM1QN0D8X: C:\\joe\\a b.ipsw")}}};
    recorder::recording result{.visits = {visit}};
    result.calls = {
        {0s, "AMRestorableDeviceRestore", 0U,
         recorder::value{
             recorder::dictionary{{"RestoreBundlePath", make_string("C:\\joe\\a b.ipsw")}}},
         std::nullopt},
        {0s, "AMRestorableDeviceCopySerialNumber", 0U, std::nullopt, make_string("F4GSM1QN0D8X")}};
    result.default_options.emplace_back(
        recorder::value{recorder::dictionary{{"Log", make_string("/home/joe/x")}}});
    result.registration_error = {{"Domain", make_string("d")},
                                 {"Code", number(1)},
                                 {"Description", make_string("F4GSM1QN0D8X is bad")}};
    result.unplayable = {"F4GSM1QN0D8X was lost."};
    return result;
}

TEST(MakeScenario, IdentitiesAreReplacedEverywhere) {
    auto const text = text_of_scenario(identified(), false);
    for (auto const identity : {"C1A2B3C4D5E6F", "F4GSM1QN0D8X", "4711", "joe", "a b"}) {
        EXPECT_EQ(text.find(identity), std::string::npos) << identity << " in " << text;
    }
    EXPECT_NE(text.find("<string>replaced</string>"), std::string::npos);
    EXPECT_EQ(text, text_of_scenario(identified(), false));
    auto const device = played(identified(), false).devices.at(0);
    auto const shown = text_of(static_cast<CFStringRef>(
        CFDictionaryGetValue(device.restore_reports.value().at(0).status.get(), CFSTR("Status"))));
    EXPECT_TRUE(shown.starts_with(
        fmt::format("{:016X} and {}: C:\\", device.ecid, text_of(device.serial_number.get()))))
        << shown;
}

TEST(MakeScenario, EcidsThatAreNumbersOrKeysAreReplaced) {
    auto recorded = identified();
    recorded.calls[0].argument = recorder::value{
        recorder::dictionary{{"ECID", number(0x000C1A2B3C4D5E6F)}, {"Other", number(4711)}}};
    recorded.default_options = {recorder::value{
        recorder::dictionary{{"000c1a2b3c4d5e6f", recorder::value{recorder::array{}}}}}};
    auto const text = text_of_scenario(recorded, false);
    EXPECT_EQ(text.find("3406472718147183"), std::string::npos) << text;
    EXPECT_EQ(text.find("c1a2b3c4d5e6f"), std::string::npos) << text;
    EXPECT_NE(text.find("<integer>4711</integer>"), std::string::npos) << text;
    EXPECT_NE(text_of_scenario(recorded, true).find("<integer>3406472718147183"),
              std::string::npos);
}

TEST(MakeScenario, RelativePathsAreReplaced) {
    auto recorded = identified();
    recorded.visits[0].restores = {{{0s, status("cannot write joe.log, nor Restoring")}}};
    recorded.calls = {{0s, "AMRestoreEnableFileLogging", {}, make_string("joe.log"), {}},
                      {0s,
                       "AMRestorableDeviceRestore",
                       {},
                       recorder::value{recorder::dictionary{
                           {"RestoreBundlePath", make_string("joe/b.ipsw")},
                           {"PersonalizedRestoreBundlePath", make_string("Restoring")}}},
                       {}}};
    recorded.default_options.clear();
    auto const text = text_of_scenario(recorded, false);
    EXPECT_EQ(text.find("joe"), std::string::npos) << text;
    EXPECT_NE(text.find(".log, nor Restoring"), std::string::npos) << text;
}

TEST(MakeScenario, IdentitiesAreKeptWhereThatIsWanted) {
    auto const text = text_of_scenario(identified(), true);
    for (auto const identity : {"000C1A2B3C4D5E6F", "F4GSM1QN0D8X", "4711", "C:\\joe\\a b.ipsw"}) {
        EXPECT_NE(text.find(identity), std::string::npos) << identity;
    }
}

} // namespace
