// The platform's calls that a report passes through on its way to the output, and nothing else.
#pragma once

#include "platform/cf_ownership.hpp"

#include <cstdint>
#include <string>

namespace benchmarks {

// Returns a report as the restore library makes one for a step.
qnrescue::cf_owner<CFMutableDictionaryRef> make_report();

struct report_fields {
    std::string status;
    std::int32_t operation;
    std::int64_t progress;
};

// Returns what a report says. Throws std::runtime_error where something is missing.
report_fields read_report(CFDictionaryRef report);

// Returns the text of the document {"Type": type, "Value": value}: frames it, validates the value,
// serialises, and turns the data into text. Throws std::runtime_error where that cannot be done.
std::string document_text(CFStringRef type, CFTypeRef value);

// Returns the document of a report: copies what XML can hold of it and names the step.
std::string report_text(CFDictionaryRef report, std::int32_t operation);

// Hands over the two lines of a report. Returns whether it is the last of a restore.
template <typename Lines>
bool hand_over_report(CFDictionaryRef report, Lines & lines) {
    auto const fields = read_report(report);
    lines.print_debug("restoreCallback: status Restoring, operation Restoring image, progress 48");
    lines.print(report_text(report, fields.operation));
    return fields.operation == 0 && fields.progress == 100;
}

} // namespace benchmarks
