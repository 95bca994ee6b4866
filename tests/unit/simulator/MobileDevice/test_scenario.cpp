// What a scenario may say, and how its faults are named.
#include "platform/MobileDevice.h"
#include "platform/cf_strings.hpp"
#include "simulator/MobileDevice/scenario.hpp"
#include "simulator/MobileDevice/values.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

using namespace mobile_device;
using namespace property_list;

namespace {

scenario parse(std::string const & bytes) {
    return parse_scenario({reinterpret_cast<std::uint8_t const *>(bytes.data()), bytes.size()});
}

scenario parse_root(std::string const & root) {
    return parse(document(root));
}

std::string with_fault(std::initializer_list<std::pair<std::string_view, std::string>> entries) {
    return dictionary({{"Faults", array({dictionary(entries)})}});
}

// A scenario with one device of these entries.
std::string with_device(std::initializer_list<std::pair<std::string_view, std::string>> entries) {
    return dictionary({{"Devices", array({dictionary(entries)})}});
}

std::string with_ecid(std::string const & ecid) {
    return with_device({{"ECID", ecid}});
}

// A scenario whose one device reports one such status.
std::string with_status(std::string const & status) {
    return with_device(
        {{"ECID", text("1")}, {"RestoreReports", array({dictionary({{"Status", status}})})}});
}

// A scenario whose one device has these answers to one key.
std::string with_answers(std::string_view key, std::string const & answers) {
    return with_device({{"ECID", text("1")}, {"Answers", dictionary({{key, answers}})}});
}

std::vector<std::int64_t> numbers_of(device_description const & device) {
    return {device.product_id,   device.board_id,    device.chip_id,
            device.product_type, device.fusing_info, device.location_id};
}

template <typename Read>
std::string fault_thrown_by(Read read) {
    try {
        read();
    } catch (scenario_fault const & fault) {
        return fault.what();
    }
    return "no fault";
}

std::string fault_of(std::string const & bytes) {
    return fault_thrown_by([&] { parse(bytes); });
}

// A number of 128 bits, which only the binary form of property lists can hold.
cf_owner<CFPropertyListRef> wide_integer(std::int64_t high, std::uint64_t low) {
    std::string bytes = "bplist00\x14";
    for (auto const half : {static_cast<std::uint64_t>(high), low}) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(half >> shift & 0xFF);
        }
    }
    auto const table = static_cast<char>(bytes.size());
    bytes += '\x08'; // the number's place
    bytes += std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + '\x01' +
             std::string(15, '\0') + table;
    auto const data =
        adopt(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(bytes.data()),
                           static_cast<CFIndex>(bytes.size())));
    CFPropertyListFormat format = 0;
    return adopt(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                              kCFPropertyListImmutable, &format, nullptr));
}

} // namespace

TEST(Scenario, EveryKeyOfTheRootIsOptional) {
    auto const empty = parse_root("<dict/>");
    EXPECT_TRUE(empty.devices.empty());
    EXPECT_TRUE(empty.notifications.empty());
    EXPECT_FALSE(empty.failures.register_for_notifications);
    EXPECT_EQ(empty.failures.enable_file_logging, 0);
    EXPECT_FALSE(empty.failures.create_default_options);
    EXPECT_EQ(empty.time_scale, 1);
}

TEST(Scenario, ADeviceHasDefaults) {
    auto const device = parse_root(with_ecid(text("1"))).devices.at(0);
    EXPECT_EQ(device.ecid, 1U);
    EXPECT_EQ(device.state, kAMRestorableDeviceStateRecovery);
    EXPECT_EQ(numbers_of(device), (std::vector<std::int64_t>{0, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(device.serial_number);
    EXPECT_FALSE(device.product_string);
    EXPECT_EQ(device.connect_after, 0);
    EXPECT_FALSE(device.disconnect_after);
    EXPECT_EQ(device.after_interruption, 10);
    EXPECT_TRUE(device.recovery_mode_device);
    EXPECT_EQ(device.set_auto_boot_error, 0);
    EXPECT_EQ(device.reboot_error, 0);
    EXPECT_FALSE(device.restore_reports);
}

TEST(Scenario, ADeviceHasWhatItIsGiven) {
    auto const device = parse_root(with_device({{"ECID", text("00aBcDeF12345678")},
                                                {"State", text("DFU")},
                                                {"ProductID", integer(0x1227)},
                                                {"BoardID", integer(1)},
                                                {"ChipID", integer(2)},
                                                {"ProductType", integer(3)},
                                                {"FusingInfo", integer(4)},
                                                {"LocationID", integer(5)},
                                                {"SerialNumber", text("F4G")},
                                                {"ProductString", text("Gerät")},
                                                {"ConnectAfter", real(0.5)},
                                                {"DisconnectAfter", integer(2)},
                                                {"RecoveryModeDevice", boolean(true)},
                                                {"SetAutoBootError", integer(-1)},
                                                {"RebootError", integer(9)},
                                                {"RestoreReports", array({})}}))
                            .devices.at(0);
    EXPECT_EQ(device.ecid, 0x00ABCDEF12345678U);
    EXPECT_EQ(device.state, kAMRestorableDeviceStateDFU);
    EXPECT_EQ(numbers_of(device), (std::vector<std::int64_t>{0x1227, 1, 2, 3, 4, 5}));
    EXPECT_EQ(qnrescue::to_utf8(device.serial_number.get()), "F4G");
    EXPECT_EQ(qnrescue::to_utf8(device.product_string.get()), "Gerät");
    EXPECT_EQ(device.connect_after, 0.5);
    EXPECT_EQ(device.disconnect_after, 2);
    EXPECT_TRUE(device.recovery_mode_device);
    EXPECT_EQ(device.set_auto_boot_error, -1);
    EXPECT_EQ(device.reboot_error, 9);
    ASSERT_TRUE(device.restore_reports);
    EXPECT_TRUE(device.restore_reports->empty());
}

TEST(Scenario, AnEcidIsHexadecimalOrAnInteger) {
    EXPECT_EQ(parse_root(with_ecid(text("0"))).devices[0].ecid, 0U);
    EXPECT_EQ(parse_root(with_ecid(text("FFFFFFFFFFFFFFFF"))).devices[0].ecid, ~std::uint64_t{0});
    EXPECT_EQ(parse_root(with_ecid(integer(10))).devices[0].ecid, 10U);
    EXPECT_EQ(parse_root(with_ecid("<integer>18446744073709551615</integer>")).devices[0].ecid,
              ~std::uint64_t{0});
    EXPECT_EQ(parse_root(with_ecid("<integer>9223372036854775808</integer>")).devices[0].ecid,
              std::uint64_t{1} << 63);
}

TEST(Scenario, AStateIsANameOrAnyInteger) {
    struct {
        std::string written;
        int state;
    } const cases[] = {{text("Unknown"), 0},
                       {text("DFU"), 1},
                       {text("Recovery"), 2},
                       {text("RestoreOS"), 3},
                       {text("BootedOS"), 4},
                       {integer(7), 7},
                       {integer(-3), -3},
                       {integer(INT32_MAX), INT32_MAX},
                       {integer(INT32_MIN), INT32_MIN}};
    for (auto const & [written, state] : cases) {
        auto const device =
            parse_root(with_device({{"ECID", text("1")}, {"State", written}})).devices[0];
        EXPECT_EQ(device.state, state);
        EXPECT_EQ(device.recovery_mode_device, state == 2);
    }
}

TEST(Scenario, NumbersAreCutToTheWidthOfTheirGetter) {
    auto const device =
        parse_root(with_device({{"ECID", text("1")},
                                {"ProductID", integer(0x12345)},
                                {"BoardID", integer(0x123456789)},
                                {"ChipID", integer(-1)},
                                {"LocationID", "<integer>18446744073709551614</integer>"}}))
            .devices[0];
    EXPECT_EQ(device.product_id, 0x2345);
    EXPECT_EQ(device.board_id, 0x23456789U);
    EXPECT_EQ(device.chip_id, 0xFFFFFFFFU);
    EXPECT_EQ(device.location_id, 0xFFFFFFFEU);
}

TEST(Scenario, IntegersOf64BitsAreRead) {
    constexpr auto sign_bit = std::uint64_t{1} << 63;
    for (auto const bits : {std::uint64_t{0}, sign_bit - 1, sign_bit, ~std::uint64_t{0}}) {
        auto const number = wide_integer(0, bits);
        EXPECT_EQ((node{number.get(), "N"}.bits()), bits);
        EXPECT_EQ((node{number.get(), "N"}.unsigned_integer()), bits);
    }
    for (auto const bits : {sign_bit, sign_bit + 1, ~std::uint64_t{0}}) {
        auto const number = wide_integer(-1, bits);
        EXPECT_EQ((node{number.get(), "N"}.bits()), bits);
        EXPECT_EQ((node{number.get(), "N"}.integer<std::int64_t>()),
                  static_cast<std::int64_t>(bits));
    }
}

TEST(Scenario, WiderIntegersAreFaults) {
    constexpr auto largest = ~std::uint64_t{0};
    struct {
        std::int64_t high;
        std::uint64_t low;
    } const cases[] = {
        {1, 0},
        {1, 1},
        {1, largest >> 1},
        {1, largest},
        {2, largest - 1000},
        {INT64_MAX, largest},
        {-1, 0},
        {-1, largest >> 1}, // -2^63 - 1
        {-2, 0},
        {-2, largest},
        {INT64_MIN, 0},
    };
    for (auto const & [high, low] : cases) {
        auto const number = wide_integer(high, low);
        node const wide{number.get(), "N"};
        auto const fault = "N: must fit 64 bits";
        EXPECT_EQ(fault_thrown_by([&] { wide.bits(); }), fault) << high << " " << low;
        EXPECT_EQ(fault_thrown_by([&] { wide.unsigned_integer(); }), fault) << high << " " << low;
        EXPECT_EQ(fault_thrown_by([&] { wide.integer<int>(); }), fault) << high << " " << low;
    }
}

TEST(Scenario, ANulIsPartOfAText) {
    auto const with_nul = text(std::string{"DFU\0", 4});
    EXPECT_EQ(
        fault_of(document(with_device({{"ECID", text("1")}, {"State", with_nul}}))),
        "Devices[0].State: must be Unknown, DFU, Recovery, RestoreOS, BootedOS or an integer");
    EXPECT_EQ(fault_of(document(with_ecid(text(std::string{"1\0", 2})))),
              "Devices[0].ECID: must be 1 to 16 hexadecimal digits");
    EXPECT_EQ(fault_of(document(dictionary({{std::string_view{"Devices\0", 8}, array({})}}))),
              "Devices\\x00: unknown key");
    auto const device =
        parse_root(with_device({{"ECID", text("1")}, {"SerialNumber", with_nul}})).devices.at(0);
    EXPECT_EQ(whole_text(device.serial_number.get()), (std::string{"DFU\0", 4}));
}

TEST(Scenario, ATextOfADeviceMayHaveParts) {
    auto const parts =
        dictionary({{"$type", text("text")}, {"Parts", array({text("SN"), integer(2)})}});
    auto const device =
        parse_root(with_device({{"ECID", text("1")},
                                {"SerialNumber", parts},
                                {"Answers", dictionary({{"ProductString", array({parts})}})}}))
            .devices.at(0);
    EXPECT_EQ(whole_text(device.serial_number.get()), "SN\x02");
    EXPECT_EQ(whole_text(device.answers.at("ProductString").at(0).text.get()), "SN\x02");
}

TEST(Scenario, ADelayIsARealOrAnInteger) {
    EXPECT_EQ(parse_root(dictionary({{"TimeScale", integer(2)}})).time_scale, 2);
    EXPECT_EQ(parse_root(dictionary({{"TimeScale", real(0.25)}})).time_scale, 0.25);
    EXPECT_EQ(parse_root(dictionary({{"TimeScale", integer(0)}})).time_scale, 0);
}

TEST(Scenario, NotificationsNameTheirDevices) {
    auto const notifications =
        parse_root(
            dictionary({{"Devices", array({dictionary({{"ECID", text("A")}}),
                                           dictionary({{"ECID", text("B")}})})},
                        {"Notifications",
                         array({dictionary({{"ECID", integer(11)}, {"Type", integer(5)}}),
                                dictionary({{"After", real(1.5)}, {"Type", integer(-2)}})})}}))
            .notifications;
    ASSERT_EQ(notifications.size(), 2U);
    EXPECT_EQ(notifications[0].device, 1U);
    EXPECT_EQ(notifications[0].type, 5);
    EXPECT_EQ(notifications[0].after, 0);
    EXPECT_FALSE(notifications[1].device);
    EXPECT_EQ(notifications[1].type, -2);
    EXPECT_EQ(notifications[1].after, 1.5);
}

TEST(Scenario, FailuresAreRead) {
    auto const failures =
        parse_root(
            dictionary({{"Failures", dictionary({{"RegisterForNotifications",
                                                  dictionary({{"Domain", text("d")},
                                                              {"Code", integer(INT64_MIN)},
                                                              {"Description", text("what")},
                                                              {"FailureReason", text("why")}})},
                                                 {"EnableFileLogging", integer(16)},
                                                 {"CreateDefaultOptions", boolean(true)}})}}))
            .failures;
    auto const error = failures.register_for_notifications.get();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(qnrescue::to_utf8(CFErrorGetDomain(error)), "d");
    EXPECT_EQ(CFErrorGetCode(error), INT64_MIN);
    auto const description = adopt(CFErrorCopyDescription(error));
    auto const reason = adopt(CFErrorCopyFailureReason(error));
    EXPECT_EQ(qnrescue::to_utf8(description.get()), "what");
    EXPECT_EQ(qnrescue::to_utf8(reason.get()), "why");
    EXPECT_EQ(failures.enable_file_logging, 16);
    EXPECT_TRUE(failures.create_default_options);
}

TEST(Scenario, CallsThatFailAreRead) {
    auto const faults =
        parse_root(
            dictionary({{"Faults", array({dictionary({{"Function", text("CFRelease")},
                                                      {"Call", integer(3)},
                                                      {"Result", integer(-9223372036854775807)}}),
                                          dictionary({{"Function", text("any name")}})})}}))
            .faults;
    ASSERT_EQ(faults.size(), 2U);
    EXPECT_EQ(faults[0].function, "CFRelease");
    EXPECT_EQ(faults[0].call, 3);
    EXPECT_EQ(faults[0].result, -9223372036854775807);
    EXPECT_EQ(faults[1].function, "any name");
    EXPECT_FALSE(faults[1].call);
    EXPECT_FALSE(faults[1].result);
}

TEST(Scenario, ReportsHaveDefaults) {
    auto const reports = parse_root(with_status("<dict/>")).devices[0].restore_reports.value();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].after, 0);
    EXPECT_EQ(reports[0].repeat, 1);
    ASSERT_TRUE(reports[0].status);
    EXPECT_EQ(CFDictionaryGetCount(reports[0].status.get()), 0);
}

TEST(Scenario, TheBuiltInOneHasADeviceInEachState) {
    auto const built_in = built_in_scenario();
    ASSERT_EQ(built_in.devices.size(), 4U);
    int const states[] = {2, 1, 3, 4};
    std::set<std::uint64_t> ecids;
    for (std::size_t index = 0; index < 4; ++index) {
        auto const & device = built_in.devices[index];
        EXPECT_EQ(device.state, states[index]);
        EXPECT_EQ(device.connect_after, 0);
        EXPECT_FALSE(device.restore_reports);
        EXPECT_NE(device.product_id, 0);
        EXPECT_NE(device.chip_id, 0U);
        ecids.insert(device.ecid);
    }
    EXPECT_EQ(ecids.size(), 4U);
    EXPECT_FALSE(ecids.contains(0));
    EXPECT_EQ(built_in.time_scale, 1);
}

TEST(Scenario, TheExamplesAreUnderstood) {
    struct {
        char const * name;
        std::size_t devices;
    } const examples[] = {{"eight-devices", 8},    {"restore-hangs", 1}, {"late-arrival", 1},
                          {"disconnecting", 1},    {"station", 8},       {"restore-fails", 1},
                          {"recovery-refused", 3}, {"library-fails", 0}};
    for (auto const & [name, devices] : examples) {
        auto const example = load_scenario(std::string{EXAMPLE_SCENARIOS "/"} + name + ".plist");
        EXPECT_EQ(example.devices.size(), devices) << name;
    }
}

TEST(Scenario, AFileWithAnyLettersInItsPathIsRead) {
    tests::temporary_folder const folder;
    auto const path = folder.write("szenario 設定.plist", document(with_ecid(text("1"))));
    EXPECT_EQ(load_scenario(path).devices.size(), 1U);
    EXPECT_THROW(load_scenario(folder.utf8("missing.plist")), scenario_fault);
    EXPECT_THROW(load_scenario(folder.utf8("")), scenario_fault);
}

TEST(Scenario, ABinaryFileIsRead) {
    // The dictionary with the key TimeScale and the integer 3.
    std::string const bytes{"bplist00"
                            "\xD1\x01\x02"
                            "\x59TimeScale"
                            "\x10\x03"
                            "\x08\x0B\x15"
                            "\0\0\0\0\0\0\x01\x01"
                            "\0\0\0\0\0\0\0\x03"
                            "\0\0\0\0\0\0\0\0"
                            "\0\0\0\0\0\0\0\x17",
                            8 + 3 + 10 + 2 + 3 + 32};
    EXPECT_EQ(parse(bytes).time_scale, 3);
}

TEST(Scenario, OtherFilesAreFaults) {
    constexpr auto fault = "is not a property list in XML or binary form";
    EXPECT_EQ(fault_of(""), fault);
    EXPECT_EQ(fault_of("   \n"), fault);
    EXPECT_EQ(fault_of("{ TimeScale = 1; }"), fault);
    EXPECT_EQ(fault_of("hello"), fault);
    EXPECT_EQ(fault_of("<plist><dict><key>Devices</key></dict></plist>"), fault);
}

namespace {

struct fault_case {
    std::string root;
    std::string fault;
};

std::string failing_registration(std::string const & error) {
    return dictionary({{"Failures", dictionary({{"RegisterForNotifications", error}})}});
}

std::string with_device_entry(std::string_view key, std::string const & value) {
    return with_device({{"ECID", text("1")}, {key, value}});
}

std::string with_notification(std::string const & notification) {
    return dictionary({{"Devices", array({dictionary({{"ECID", text("1")}})})},
                       {"Notifications", array({notification})}});
}

std::string with_report(std::string const & report) {
    return with_device_entry("RestoreReports",
                             array({"<dict><key>Status</key><dict/></dict>", report}));
}

} // namespace

TEST(Scenario, FaultsAreNamedByTheirKeyPath) {
    constexpr auto a_32_bit_integer = "must be from -2147483648 to 2147483647";
    fault_case const cases[] = {
        {array({}), "root: must be a dictionary"},
        {text("x"), "root: must be a dictionary"},
        {dictionary({{"Device", array({})}}), "Device: unknown key"},
        {dictionary({{"devices", array({})}}), "devices: unknown key"},
        {dictionary({{"Devices", "<dict/>"}}), "Devices: must be an array"},
        {dictionary({{"TimeScale", text("1")}}), "TimeScale: must be a number"},
        {dictionary({{"TimeScale", boolean(true)}}), "TimeScale: must be a number"},
        {dictionary({{"TimeScale", real(-0.5)}}), "TimeScale: must be finite and not negative"},
        {dictionary({{"TimeScale", "<real>nan</real>"}}),
         "TimeScale: must be finite and not negative"},
        {dictionary({{"Devices", array({text("x")})}}), "Devices[0]: must be a dictionary"},
        {with_device({}), "Devices[0]: the key ECID is missing"},
        {dictionary({{"Devices",
                      array({dictionary({{"ECID", text("1")}}), dictionary({{"ECID", text("1")}}),
                             dictionary({{"ECID", text("1")}, {"State", text("Asleep")}})})}}),
         "Devices[2].State: must be Unknown, DFU, Recovery, RestoreOS, BootedOS or an integer"},
        {with_device_entry("Colour", text("red")), "Devices[0].Colour: unknown key"},
        {with_device_entry("State", real(2)),
         "Devices[0].State: must be a state's name or an integer"},
        {with_device_entry("State", integer(INT64_C(2147483648))),
         std::string{"Devices[0].State: "} + a_32_bit_integer},
        {with_device_entry("State", integer(INT64_C(-2147483649))),
         std::string{"Devices[0].State: "} + a_32_bit_integer},
        {with_device_entry("State", "<integer>18446744073709551615</integer>"),
         std::string{"Devices[0].State: "} + a_32_bit_integer},
        {with_ecid(text("")), "Devices[0].ECID: must be 1 to 16 hexadecimal digits"},
        {with_ecid(text("12345678901234567")),
         "Devices[0].ECID: must be 1 to 16 hexadecimal digits"},
        {with_ecid(text("00000000000000001")),
         "Devices[0].ECID: must be 1 to 16 hexadecimal digits"},
        {with_ecid(text("0x12")), "Devices[0].ECID: must be 1 to 16 hexadecimal digits"},
        {with_ecid(text(" 12")), "Devices[0].ECID: must be 1 to 16 hexadecimal digits"},
        {with_ecid(text("-1")), "Devices[0].ECID: must be 1 to 16 hexadecimal digits"},
        {with_ecid(integer(-1)), "Devices[0].ECID: must not be negative"},
        {with_ecid(real(1)),
         "Devices[0].ECID: must be a string of hexadecimal digits or an integer"},
        {with_device_entry("ProductID", text("1")), "Devices[0].ProductID: must be an integer"},
        {with_device_entry("LocationID", real(1)), "Devices[0].LocationID: must be an integer"},
        {with_device_entry("SerialNumber", integer(1)),
         "Devices[0].SerialNumber: must be a string"},
        {with_device_entry("ProductString", boolean(true)),
         "Devices[0].ProductString: must be a string"},
        {with_device_entry("ConnectAfter", integer(-1)),
         "Devices[0].ConnectAfter: must be finite and not negative"},
        {with_device_entry("DisconnectAfter", text("never")),
         "Devices[0].DisconnectAfter: must be a number"},
        {with_device_entry("DisconnectAfter", "<real>inf</real>"),
         "Devices[0].DisconnectAfter: must be finite and not negative"},
        {with_device_entry("RecoveryModeDevice", integer(1)),
         "Devices[0].RecoveryModeDevice: must be a boolean"},
        {with_device_entry("SetAutoBootError", integer(INT64_C(-2147483649))),
         std::string{"Devices[0].SetAutoBootError: "} + a_32_bit_integer},
        {with_device_entry("RebootError", "<integer>18446744073709551615</integer>"),
         std::string{"Devices[0].RebootError: "} + a_32_bit_integer},
        {with_device_entry("RestoreReports", "<dict/>"),
         "Devices[0].RestoreReports: must be an array"},
        {with_device_entry("LaterRestores", array({"<dict/>"})),
         "Devices[0].LaterRestores[0]: must be an array"},
        {with_device_entry("ConnectThread", integer(100)),
         "Devices[0].ConnectThread: must be a number from 0 to 99"},
        {with_device_entry("DisconnectThread", integer(-1)),
         "Devices[0].DisconnectThread: must be a number from 0 to 99"},
        {with_report(dictionary({})), "Devices[0].RestoreReports[1]: the key Status is missing"},
        {with_report(dictionary({{"Status", text("x")}})),
         "Devices[0].RestoreReports[1].Status: must be a dictionary"},
        {with_report(dictionary({{"Status", "<dict/>"}, {"Repeat", integer(-1)}})),
         "Devices[0].RestoreReports[1].Repeat: must not be negative"},
        {with_report(dictionary({{"Status", "<dict/>"}, {"Repeat", real(1)}})),
         "Devices[0].RestoreReports[1].Repeat: must be an integer"},
        {with_report(dictionary({{"Status", "<dict/>"}, {"After", text("1")}})),
         "Devices[0].RestoreReports[1].After: must be a number"},
        {with_report(dictionary({{"Status", "<dict/>"}, {"Pause", integer(1)}})),
         "Devices[0].RestoreReports[1].Pause: unknown key"},
        {with_notification("<dict/>"), "Notifications[0]: the key Type is missing"},
        {with_notification(dictionary({{"Device", integer(1)}, {"Type", integer(0)}})),
         "Notifications[0].Device: names no device of the scenario"},
        {with_notification(
             dictionary({{"Device", integer(0)}, {"ECID", text("1")}, {"Type", integer(0)}})),
         "Notifications[0].Device: must not be there with ECID"},
        {with_device({{"ECID", text("1")}, {"Connects", integer(1)}}),
         "Devices[0].Connects: must be a boolean"},
        {with_device({{"ECID", text("1")}, {"Returns", integer(1)}}),
         "Devices[0].Returns: must be a boolean"},
        {with_answers("ECID", array({integer(1)})), "Devices[0].Answers.ECID: unknown key"},
        {with_answers("ChipID", "<array/>"), "Devices[0].Answers.ChipID: must not be empty"},
        {with_answers("ChipID", integer(1)), "Devices[0].Answers.ChipID: must be an array"},
        {with_answers("SerialNumber", array({integer(1)})),
         "Devices[0].Answers.SerialNumber[0]: must be a string"},
        {with_answers("SerialNumber", array({dictionary({{"$type", text("set")}})})),
         "Devices[0].Answers.SerialNumber[0].$type: can only be text or null here"},
        {with_answers("RecoveryModeDevice", array({boolean(true), integer(1)})),
         "Devices[0].Answers.RecoveryModeDevice[1]: must be a boolean"},
        {with_answers("RebootError", array({integer(1LL << 40)})),
         "Devices[0].Answers.RebootError[0]: must be from -2147483648 to 2147483647"},
        {dictionary({{"DefaultOptions", text("x")}}), "DefaultOptions: must be a dictionary"},
        {dictionary({{"Recording", text("x")}}), "Recording: must be a dictionary"},
        {dictionary({{"Unplayable", array({integer(1)})}}), "Unplayable[0]: must be a string"},
        {with_notification(dictionary({{"ECID", text("2")}, {"Type", integer(0)}})),
         "Notifications[0].ECID: names no device of the scenario"},
        {with_notification(dictionary({{"Type", text("connected")}})),
         "Notifications[0].Type: must be an integer"},
        {with_notification(dictionary({{"Type", integer(INT64_C(4294967296))}})),
         std::string{"Notifications[0].Type: "} + a_32_bit_integer},
        {dictionary({{"Failures", array({})}}), "Failures: must be a dictionary"},
        {dictionary({{"Faults", dictionary({})}}), "Faults: must be an array"},
        {with_fault({}), "Faults[0]: the key Function is missing"},
        {with_fault({{"Function", integer(1)}}), "Faults[0].Function: must be a string"},
        {with_fault({{"Function", text("f")}, {"Call", integer(0)}}),
         "Faults[0].Call: must be 1 or more"},
        {with_fault({{"Function", text("f")}, {"Result", text("1")}}),
         "Faults[0].Result: must be an integer"},
        {with_fault({{"Function", text("f")}, {"Error", integer(1)}}),
         "Faults[0].Error: unknown key"},
        {dictionary({{"Failures", dictionary({{"Restore", integer(1)}})}}),
         "Failures.Restore: unknown key"},
        {dictionary({{"Failures", dictionary({{"EnableFileLogging", text("1")}})}}),
         "Failures.EnableFileLogging: must be an integer"},
        {dictionary({{"Failures", dictionary({{"CreateDefaultOptions", integer(1)}})}}),
         "Failures.CreateDefaultOptions: must be a boolean"},
        {failing_registration(dictionary({{"Domain", text("d")}})),
         "Failures.RegisterForNotifications: the key Code is missing"},
        {failing_registration(dictionary({{"Code", integer(1)}})),
         "Failures.RegisterForNotifications: the key Domain is missing"},
        {failing_registration(dictionary({{"Domain", integer(1)}, {"Code", integer(1)}})),
         "Failures.RegisterForNotifications.Domain: must be a string"},
        {failing_registration(dictionary(
             {{"Domain", text("d")}, {"Code", "<integer>9223372036854775808</integer>"}})),
         "Failures.RegisterForNotifications.Code: must be from -9223372036854775808 to "
         "9223372036854775807"},
        {failing_registration(
             dictionary({{"Domain", text("d")}, {"Code", integer(1)}, {"UserInfo", text("i")}})),
         "Failures.RegisterForNotifications.UserInfo: must be a dictionary"},
        {failing_registration(dictionary({{"Domain", text("d")},
                                          {"Code", integer(1)},
                                          {"UserInfo", dictionary({{"$type", text("null")}})}})),
         "Failures.RegisterForNotifications.UserInfo: must be a dictionary"},
        {failing_registration(
             dictionary({{"Domain", text("d")}, {"Code", integer(1)}, {"Reason", text("r")}})),
         "Failures.RegisterForNotifications.Reason: unknown key"},
    };
    for (auto const & [root, fault] : cases) {
        EXPECT_EQ(fault_of(document(root)), fault);
    }
}

TEST(Scenario, FaultsInsideAStatusAreNamedByTheirKeyPath) {
    std::string const status = "Devices[0].RestoreReports[0].Status";
    fault_case const cases[] = {
        {dictionary({{"$type", text("error")}}),
         ".$type: a whole status can only be dictionary or null"},
        {dictionary({{"$type", text("set")}}),
         ".$type: a whole status can only be dictionary or null"},
        {dictionary({{"$type", text("text")}}),
         ".$type: a whole status can only be dictionary or null"},
        {dictionary({{"X", dictionary({{"$type", text("text")}})}}),
         ".X: the key Parts is missing"},
        {dictionary({{"X", dictionary({{"$type", text("text")},
                                       {"Parts", array({text("a"), integer(0x10000)})}})}}),
         ".X.Parts[1]: must be a UTF-16 unit"},
        {dictionary({{"X", dictionary({{"$type", text("text")}, {"Parts", array({real(1)})}})}}),
         ".X.Parts[0]: must be an integer"},
        {dictionary({{"$type", text("bag")}}),
         ".$type: must be error, set, dictionary, text or null"},
        {dictionary({{"$type", integer(1)}}), ".$type: must be a string"},
        {dictionary({{"$type", text("dictionary")}}), ": the key Entries is missing"},
        {dictionary({{"$type", text("null")}, {"Value", integer(1)}}), ".Value: unknown key"},
        {dictionary({{"X", dictionary({{"$type", text("bag")}})}}),
         ".X.$type: must be error, set, dictionary, text or null"},
        {dictionary({{"X", dictionary({{"$type", text("error")}, {"Domain", text("d")}})}}),
         ".X: the key Code is missing"},
        {dictionary(
             {{"X", dictionary(
                        {{"$type", text("error")}, {"Domain", text("d")}, {"Code", text("1")}})}}),
         ".X.Code: must be an integer"},
        {dictionary({{"X", dictionary({{"$type", text("set")}})}}),
         ".X: the key Values is missing"},
        {dictionary({{"X", dictionary({{"$type", text("set")}, {"Values", text("1")}})}}),
         ".X.Values: must be an array"},
        {dictionary({{"X", dictionary({{"$type", text("set")},
                                       {"Values", array({integer(1),
                                                         dictionary({{"$type", text("y")}})})}})}}),
         ".X.Values[1].$type: must be error, set, dictionary, text or null"},
        {dictionary({{"X", array({dictionary(
                               {{"$type", text("dictionary")},
                                {"Entries", array({dictionary({{"Key", text("k")}})})}})})}}),
         ".X[0].Entries[0]: the key Value is missing"},
        {dictionary(
             {{"X", dictionary({{"$type", text("dictionary")},
                                {"Entries", array({dictionary({{"Value", text("v")}})})}})}}),
         ".X.Entries[0]: the key Key is missing"},
        {dictionary(
             {{"X", dictionary({{"Y", dictionary({{"$type", text("null")}, {"Z", text("")}})}})}}),
         ".X.Y.Z: unknown key"},
    };
    for (auto const & [written, fault] : cases) {
        EXPECT_EQ(fault_of(document(with_status(written))), status + fault);
    }
}
