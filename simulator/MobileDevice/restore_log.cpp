#include "simulator/MobileDevice/restore_log.hpp"

#include "simulator/MobileDevice/text.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace mobile_device {
namespace {

std::string describe(CFDictionaryRef status, CFStringRef key) {
    auto const value = status ? CFDictionaryGetValue(status, key) : nullptr;
    if (is_a(value, CFStringGetTypeID())) {
        return in_quotes(whole_text(static_cast<CFStringRef>(value)).value_or(""));
    }
    if (is_a(value, CFNumberGetTypeID())) {
        std::int64_t number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number);
        return fmt::to_string(number);
    }
    return "null";
}

} // namespace

bool restore_log::open(std::string const & path) {
    auto opened = append_file::open(path);
    if (!opened) {
        return false;
    }
    std::lock_guard const lock{mutex};
    file = std::move(opened);
    return true;
}

void restore_log::write_step(std::time_t when, std::uint64_t ecid, CFDictionaryRef status) {
    std::lock_guard const lock{mutex};
    if (file) {
        file->write_line(
            fmt::format("{:%FT%TZ} device={} status={} operation={} progress={}", fmt::gmtime(when),
                        format_ecid(ecid), describe(status, CFSTR("Status")),
                        describe(status, CFSTR("Operation")), describe(status, CFSTR("Progress"))));
    }
}

} // namespace mobile_device
