#include "simulator/MobileDevice/default_restore.hpp"

#include "simulator/MobileDevice/amr_errors.hpp"
#include "simulator/MobileDevice/restore_bundle.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <span>

namespace mobile_device {
namespace {

struct step {
    int operation;
    int progress; // percent
};

constexpr int booting = 9;

// A bundle that cannot be used fails at the last of these.
constexpr step opening_steps[] = {
    {3, 1},   // Connecting to device
    {4, 2},   // Connected to device
    {201, 4}, // Unzipping IPSW
};

constexpr step main_steps[] = {
    {203, 6},      // Personalizing restore bundle
    {5, 9},        // Sending ramdisk to device
    {6, 11},       // Sending device tree to device
    {7, 13},       // Sending kernel cache to device
    {booting, 15}, // Booting
    {28, 18},      // Waiting for NAND
    {11, 21},      // Creating partition map
    {12, 24},      // Creating filesystem
    {13, 30},      // Restoring image
    {13, 48},      // Restoring image
    {13, 66},      // Restoring image
    {14, 74},      // Verifying restore
    {15, 78},      // Checking filesystems
    {16, 80},      // Mounting filesystems
    {17, 82},      // Fixing up /var
    {18, 87},      // Flashing firmware
    {19, 92},      // Updating baseband
    {20, 95},      // Setting boot stage
    {29, 97},      // Unmounting filesystems
    {21, 99},      // Rebooting device
};

constexpr double pause_between_steps = 0.25;

cf_owner<CFMutableDictionaryRef> make_status(CFStringRef text, step at) {
    auto status = make_mutable_dictionary();
    CFDictionarySetValue(status.get(), CFSTR("Status"), text);
    CFDictionarySetValue(status.get(), CFSTR("Operation"), make_number(at.operation).get());
    CFDictionarySetValue(status.get(), CFSTR("Progress"), make_number(at.progress).get());
    return status;
}

planned_report make_report(cf_owner<CFMutableDictionaryRef> const & status) {
    return {{pause_between_steps, retain<CFDictionaryRef>(status.get()), 1}};
}

void append_steps(std::vector<planned_report> & plan, std::span<step const> steps) {
    for (auto const & each : steps) {
        plan.push_back(make_report(make_status(CFSTR("Restoring"), each)));
    }
}

planned_report make_failure(bundle_fault const & fault) {
    auto const status = make_status(CFSTR("Failed"), *std::rbegin(opening_steps));
    auto const error = make_error(CFSTR("AMRestoreErrorDomain"), fault.error,
                                  make_cfstring(fault.description).get(), nullptr);
    CFDictionarySetValue(status.get(), CFSTR("Error"), error.get());
    return make_report(status);
}

void append_main_part(std::vector<planned_report> & plan, device & subject) {
    for (auto const & each : main_steps) {
        append_steps(plan, {&each, 1});
        if (each.operation == booting) {
            plan.back().returns_as = &subject.restore_os;
        }
    }
    plan.push_back(make_report(make_status(CFSTR("Successful"), {0, 100})));
    plan.back().returns_as = &subject.booted_os;
}

std::optional<bundle_fault> check_options(CFDictionaryRef options) {
    auto const path = options ? CFDictionaryGetValue(options, CFSTR("RestoreBundlePath")) : nullptr;
    auto const text =
        is_a(path, CFStringGetTypeID()) ? whole_text(static_cast<CFStringRef>(path)) : std::nullopt;
    if (!text) {
        return bundle_fault{amr_bad_argument, "the options name no RestoreBundlePath"};
    }
    return check_restore_bundle(*text);
}

} // namespace

std::vector<planned_report> plan_default_restore(device & subject, CFDictionaryRef options) {
    std::vector<planned_report> plan;
    append_steps(plan, opening_steps);
    if (auto const fault = check_options(options)) {
        plan.push_back(make_failure(*fault));
    } else {
        append_main_part(plan, subject);
    }
    return plan;
}

} // namespace mobile_device
