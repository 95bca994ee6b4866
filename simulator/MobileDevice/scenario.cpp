#include "simulator/MobileDevice/scenario.hpp"

#include "platform/MobileDevice.h"
#include "simulator/MobileDevice/files.hpp"
#include "simulator/MobileDevice/special_values.hpp"
#include "simulator/MobileDevice/text.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace mobile_device {
namespace {

struct named_state {
    std::string_view name;
    int state;
};

constexpr named_state named_states[] = {
    {"Unknown", kAMRestorableDeviceStateUnknown},
    {"DFU", kAMRestorableDeviceStateDFU},
    {"Recovery", kAMRestorableDeviceStateRecovery},
    {"RestoreOS", kAMRestorableDeviceStateRestoreOS},
    {"BootedOS", kAMRestorableDeviceStateBootedOS},
};

int read_state(node const & value) {
    if (value.is_integer()) {
        return value.integer<int>();
    }
    if (!value.is_string()) {
        value.fail("must be a state's name or an integer");
    }
    auto const found = std::ranges::find(named_states, value.text(), &named_state::name);
    if (found == std::end(named_states)) {
        value.fail("must be Unknown, DFU, Recovery, RestoreOS, BootedOS or an integer");
    }
    return found->state;
}

std::int64_t read_repeat(node const & value) {
    auto const count = value.integer<std::int64_t>();
    if (count < 0) {
        value.fail("must not be negative");
    }
    return count;
}

scripted_report read_report(node const & value) {
    dictionary_node const report{value, {"After", "Status", "Repeat"}};
    scripted_report result;
    if (auto const after = report.find("After")) {
        result.after = after->amount();
    }
    if (auto const repeat = report.find("Repeat")) {
        result.repeat = read_repeat(*repeat);
    }
    result.status = read_status(report.at("Status"));
    return result;
}

// Stores what the entry says, where there is one.
template <typename Target, typename Read>
void read_if_present(dictionary_node const & dictionary, std::string_view key, Target & target,
                     Read read) {
    if (auto const value = dictionary.find(key)) {
        target = static_cast<Target>(read(*value));
    }
}

void read_identity(dictionary_node const & device, device_description & result) {
    constexpr auto bits = [](node const & value) { return value.bits(); };
    constexpr auto string = [](node const & value) { return value.string(); };
    result.ecid = read_ecid(device.at("ECID"));
    result.state = kAMRestorableDeviceStateRecovery;
    read_if_present(device, "State", result.state, read_state);
    read_if_present(device, "ProductID", result.product_id, bits);
    read_if_present(device, "BoardID", result.board_id, bits);
    read_if_present(device, "ChipID", result.chip_id, bits);
    read_if_present(device, "ProductType", result.product_type, bits);
    read_if_present(device, "FusingInfo", result.fusing_info, bits);
    read_if_present(device, "LocationID", result.location_id, bits);
    read_if_present(device, "SerialNumber", result.serial_number, string);
    read_if_present(device, "ProductString", result.product_string, string);
}

scripted_answer read_answer(std::string_view key, node const & value) {
    constexpr auto as_bits = [](auto number) { return static_cast<std::uint64_t>(number); };
    if (key == "SerialNumber" || key == "ProductString") {
        return {0, is_null(value) ? cf_owner<CFStringRef>{} : value.string()};
    }
    if (key == "State") {
        return {as_bits(read_state(value)), {}};
    }
    if (key == "RecoveryModeDevice") {
        return {value.boolean(), {}};
    }
    bool const is_error = key == "SetAutoBootError" || key == "RebootError";
    return {is_error ? as_bits(value.integer<int>()) : value.bits(), {}};
}

scripted_answers read_answers(node const & value) {
    dictionary_node const answers{value,
                                  {"State", "ProductID", "BoardID", "ChipID", "ProductType",
                                   "FusingInfo", "LocationID", "SerialNumber", "ProductString",
                                   "RecoveryModeDevice", "SetAutoBootError", "RebootError"}};
    scripted_answers result;
    for (auto const & entry : answers.entries()) {
        auto & sequence = result[entry.name];
        for (auto const & each : entry.value.elements()) {
            sequence.push_back(read_answer(entry.name, each));
        }
        if (sequence.empty()) {
            entry.value.fail("must not be empty");
        }
    }
    return result;
}

std::vector<scripted_report> read_reports(node const & value) {
    std::vector<scripted_report> result;
    for (auto const & report : value.elements()) {
        result.push_back(read_report(report));
    }
    return result;
}

std::vector<std::vector<scripted_report>> read_restores(node const & value) {
    std::vector<std::vector<scripted_report>> result;
    for (auto const & reports : value.elements()) {
        result.push_back(read_reports(reports));
    }
    return result;
}

int read_thread(node const & value) {
    constexpr int most = 100;
    auto const number = value.integer<int>();
    if (number < 0 || number >= most) {
        value.fail("must be a number from 0 to 99");
    }
    return number;
}

void read_conduct(dictionary_node const & device, device_description & result) {
    constexpr auto amount = [](node const & value) { return value.amount(); };
    constexpr auto error = [](node const & value) { return value.integer<int>(); };
    result.recovery_mode_device = result.state == kAMRestorableDeviceStateRecovery;
    read_if_present(device, "ConnectAfter", result.connect_after, amount);
    read_if_present(device, "DisconnectAfter", result.disconnect_after, amount);
    constexpr auto boolean = [](node const & value) { return value.boolean(); };
    read_if_present(device, "RecoveryModeDevice", result.recovery_mode_device, boolean);
    read_if_present(device, "Connects", result.connects, boolean);
    read_if_present(device, "Returns", result.returns, boolean);
    read_if_present(device, "Answers", result.answers, read_answers);
    read_if_present(device, "SetAutoBootError", result.set_auto_boot_error, error);
    read_if_present(device, "RebootError", result.reboot_error, error);
    read_if_present(device, "RestoreReports", result.restore_reports, read_reports);
    read_if_present(device, "LaterRestores", result.later_restores, read_restores);
    read_if_present(device, "ConnectThread", result.connect_thread, read_thread);
    read_if_present(device, "DisconnectThread", result.disconnect_thread, read_thread);
    read_if_present(device, "AfterInterruption", result.after_interruption, amount);
}

device_description read_device(node const & value) {
    dictionary_node const device{value,
                                 {"ECID",
                                  "State",
                                  "ProductID",
                                  "BoardID",
                                  "ChipID",
                                  "ProductType",
                                  "FusingInfo",
                                  "LocationID",
                                  "SerialNumber",
                                  "ProductString",
                                  "ConnectAfter",
                                  "DisconnectAfter",
                                  "ConnectThread",
                                  "DisconnectThread",
                                  "RecoveryModeDevice",
                                  "SetAutoBootError",
                                  "RebootError",
                                  "RestoreReports",
                                  "LaterRestores",
                                  "AfterInterruption",
                                  "Connects",
                                  "Returns",
                                  "Answers"}};
    device_description result;
    read_identity(device, result);
    read_conduct(device, result);
    return result;
}

std::size_t read_index(node const & value, std::vector<device_description> const & devices) {
    auto const index = value.unsigned_integer();
    if (index >= devices.size()) {
        value.fail("names no device of the scenario");
    }
    return static_cast<std::size_t>(index);
}

raw_notification read_notification(node const & value,
                                   std::vector<device_description> const & devices) {
    dictionary_node const notification{value, {"After", "ECID", "Device", "Type", "Thread"}};
    raw_notification result;
    if (auto const after = notification.find("After")) {
        result.after = after->amount();
    }
    if (auto const ecid = notification.find("ECID")) {
        auto const found = std::ranges::find(devices, read_ecid(*ecid), &device_description::ecid);
        if (found == devices.end()) {
            ecid->fail("names no device of the scenario");
        }
        result.device = static_cast<std::size_t>(found - devices.begin());
    }
    if (auto const index = notification.find("Device")) {
        if (result.device) {
            index->fail("must not be there with ECID");
        }
        result.device = read_index(*index, devices);
    }
    result.type = notification.at("Type").integer<int>();
    read_if_present(notification, "Thread", result.thread, read_thread);
    return result;
}

scripted_failures read_failures(node const & value) {
    dictionary_node const failures{
        value, {"RegisterForNotifications", "EnableFileLogging", "CreateDefaultOptions"}};
    scripted_failures result;
    if (auto const error = failures.find("RegisterForNotifications")) {
        result.register_for_notifications =
            read_error({*error, {"Domain", "Code", "Description", "FailureReason", "UserInfo"}});
    }
    if (auto const error = failures.find("EnableFileLogging")) {
        result.enable_file_logging = error->integer<int>();
    }
    if (auto const fails = failures.find("CreateDefaultOptions")) {
        result.create_default_options = fails->boolean();
    }
    return result;
}

scripted_fault read_fault(node const & value) {
    dictionary_node const fault{value, {"Function", "Call", "Result"}};
    scripted_fault result;
    result.function = fault.at("Function").text();
    if (auto const call = fault.find("Call")) {
        result.call = call->integer<std::int64_t>();
        if (*result.call < 1) {
            call->fail("must be 1 or more");
        }
    }
    if (auto const answer = fault.find("Result")) {
        result.result = answer->integer<std::int64_t>();
    }
    return result;
}

// Checks what a recorder adds for its readers.
void check_remarks(dictionary_node const & root) {
    if (auto const recording = root.find("Recording")) {
        dictionary_node const is_dictionary{*recording};
    }
    if (auto const unplayable = root.find("Unplayable")) {
        for (auto const & sentence : unplayable->elements()) {
            sentence.string();
        }
    }
}

} // namespace

std::uint64_t read_ecid(node const & value) {
    if (value.is_integer()) {
        return value.unsigned_integer();
    }
    if (!value.is_string()) {
        value.fail("must be a string of hexadecimal digits or an integer");
    }
    auto const digits = value.text();
    std::uint64_t ecid = 0;
    auto const last = digits.data() + digits.size();
    auto const [end, error] = std::from_chars(digits.data(), last, ecid, 16);
    if (error != std::errc{} || end != last || digits.size() > 16) {
        value.fail("must be 1 to 16 hexadecimal digits");
    }
    return ecid;
}

scenario read_scenario(CFPropertyListRef root) {
    dictionary_node const dictionary{node{root, ""},
                                     {"Devices", "Notifications", "Failures", "Faults", "TimeScale",
                                      "DefaultOptions", "Recording", "Unplayable"}};
    scenario result;
    check_remarks(dictionary);
    if (auto const options = dictionary.find("DefaultOptions")) {
        result.default_options = read_status(*options);
    }
    if (auto const devices = dictionary.find("Devices")) {
        for (auto const & device : devices->elements()) {
            result.devices.push_back(read_device(device));
        }
    }
    if (auto const notifications = dictionary.find("Notifications")) {
        for (auto const & notification : notifications->elements()) {
            result.notifications.push_back(read_notification(notification, result.devices));
        }
    }
    if (auto const failures = dictionary.find("Failures")) {
        result.failures = read_failures(*failures);
    }
    if (auto const faults = dictionary.find("Faults")) {
        for (auto const & fault : faults->elements()) {
            result.faults.push_back(read_fault(fault));
        }
    }
    if (auto const scale = dictionary.find("TimeScale")) {
        result.time_scale = scale->amount();
    }
    return result;
}

scenario parse_scenario(std::span<std::uint8_t const> bytes) {
    auto const root = parse_property_list(bytes);
    if (!root) {
        throw scenario_fault{"is not a property list in XML or binary form"};
    }
    return read_scenario(root.get());
}

scenario load_scenario(std::string const & path) {
    auto const bytes = read_file(path);
    if (!bytes) {
        throw scenario_fault{"cannot be read"};
    }
    return parse_scenario(*bytes);
}

scenario chosen_scenario(void (*check)(scenario const &)) {
    auto const path = environment_variable("MOBILEDEVICE_SIMULATOR_SCENARIO");
    try {
        auto result = path ? load_scenario(*path) : built_in_scenario();
        if (check) {
            check(result);
        }
        return result;
    } catch (scenario_fault const & fault) {
        throw scenario_fault{
            fmt::format("{}: {}", path.value_or("built-in scenario"), fault.what())};
    }
}

void exit_for_faulty_scenario(std::string const & fault) {
    constexpr int exit_status = 70;
    write_error_line(fault + " (docs/simulator.md lists what a scenario may hold)");
    std::exit(exit_status);
}

} // namespace mobile_device
