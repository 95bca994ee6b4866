// The content of a scenario.
#pragma once

#include "simulator/MobileDevice/node.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace mobile_device {

// Delivered `repeat` times, each `after` seconds after the report before.
struct scripted_report {
    double after = 0;
    cf_share<CFDictionaryRef> status; // null: the callback gets a null pointer
    std::int64_t repeat = 1;
};

// What one call returns: a number or a boolean in its bits, or a text.
struct scripted_answer {
    std::uint64_t bits = 0;
    cf_share<CFStringRef> text; // null: the call returns null
};

// What the calls for a device return one after the other, by the device's key; the last answer is
// that of all further calls.
using scripted_answers = std::map<std::string, std::vector<scripted_answer>, std::less<>>;

struct device_description {
    std::uint64_t ecid = 0;
    int state = 0;
    std::uint16_t product_id = 0;
    std::uint32_t board_id = 0;
    std::uint32_t chip_id = 0;
    std::uint32_t product_type = 0;
    std::uint32_t fusing_info = 0;
    std::uint32_t location_id = 0;
    cf_share<CFStringRef> serial_number;    // null: absent
    cf_share<CFStringRef> product_string;   // null: absent
    double connect_after = 0;               // seconds since registration
    std::optional<double> disconnect_after; // seconds since registration
    int connect_thread = 0;                 // on which the arrival is notified
    int disconnect_thread = 0;
    bool connects = true; // false: only notifications show the device
    bool returns = true;  // false: after a reboot or a restore, it does only what is scripted
    bool recovery_mode_device = false;
    int set_auto_boot_error = 0;
    int reboot_error = 0;
    std::optional<std::vector<scripted_report>> restore_reports; // absent: the default restore
    std::vector<std::vector<scripted_report>> later_restores; // of the restores after the first one
    double after_interruption = 10; // seconds since the end of the restoring process, in a world
    scripted_answers answers;       // in place of those above, where calls return different ones
};

struct raw_notification {
    double after = 0;                  // seconds since registration
    std::optional<std::size_t> device; // index of the device; absent: a null device
    int type = 0;
    int thread = 0;
};

struct scripted_failures {
    cf_owner<CFErrorRef> register_for_notifications; // null: registration succeeds
    int enable_file_logging = 0;
    bool create_default_options = false;
};

// A call of the tool to a platform function, made to fail.
struct scripted_fault {
    std::string function;
    std::optional<std::int64_t> call;   // counted from 1; absent: every call
    std::optional<std::int64_t> result; // absent: null, false or 0, as the function returns
};

struct scenario {
    std::vector<device_description> devices;
    std::vector<raw_notification> notifications;
    scripted_failures failures;
    std::vector<scripted_fault> faults;
    cf_share<CFDictionaryRef> default_options; // null: the usual ones
    double time_scale = 1;
};

// Reads the ECID of a device. Throws scenario_fault.
std::uint64_t read_ecid(node const & value);

// Reads the root of a scenario. Throws scenario_fault.
scenario read_scenario(CFPropertyListRef root);

// Reads a scenario from the bytes of an XML or binary property list. Throws scenario_fault.
scenario parse_scenario(std::span<std::uint8_t const> bytes);

// Reads a scenario file; the path is in UTF-8. Throws scenario_fault.
scenario load_scenario(std::string const & path);

// Returns the scenario that the environment names, or the built-in one. Throws scenario_fault,
// whose text then begins with the file, where it cannot be read or the caller's check throws.
scenario chosen_scenario(void (*check)(scenario const &) = nullptr);

// Ends the process with one line on standard error. The caller must hold no lock.
[[noreturn]] void exit_for_faulty_scenario(std::string const & fault);

// Returns a scenario of four devices, one in each of the states Recovery, DFU, RestoreOS and
// BootedOS.
scenario built_in_scenario();

} // namespace mobile_device
