#include "QNRescue/restore_report.hpp"

#include "QNRescue/qnrescue.h"
#include "QNRescue/sanitize_for_xml.hpp"
#include "platform/cf_strings.hpp"

namespace qnrescue {

namespace {

CFStringRef const status_key = CFSTR("Status");
CFStringRef const operation_key = CFSTR("Operation");
CFStringRef const progress_key = CFSTR("Progress");
CFStringRef const operation_name_key = CFSTR("QN_OperationName");

constexpr operation_type no_operation{0};
constexpr operation_type booting{9};
constexpr std::int64_t complete = 100; // percent

template <typename Number>
std::optional<Number> number_of(CFDictionaryRef dictionary, CFStringRef key, CFNumberType type) {
    auto const value = CFDictionaryGetValue(dictionary, key);
    Number number = 0;
    if (!is_a(value, CFNumberGetTypeID()) ||
        !CFNumberGetValue(static_cast<CFNumberRef>(value), type, &number)) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::string> text_of(CFDictionaryRef dictionary, CFStringRef key) {
    auto const value = CFDictionaryGetValue(dictionary, key);
    return is_a(value, CFStringGetTypeID()) ? to_utf8(static_cast<CFStringRef>(value))
                                            : std::nullopt;
}

} // namespace

std::optional<restore_report> read_report(CFDictionaryRef statusDict) {
    auto const status = text_of(statusDict, status_key);
    auto const operation = number_of<std::int32_t>(statusDict, operation_key, kCFNumberSInt32Type);
    auto const progress = number_of<std::int64_t>(statusDict, progress_key, kCFNumberSInt64Type);
    if (!status || !operation || !progress) {
        return std::nullopt;
    }
    return restore_report{*status, operation_type{*operation}, *progress};
}

bool completes_restore(restore_report const & report) {
    return report.operation == no_operation && report.progress == complete;
}

bool completes_restore_mode_entry(restore_report const & report, command_kind command) {
    return command == command_kind::enter_restore_mode && report.operation == booting;
}

cf_owner<CFDictionaryRef> printable_report(CFDictionaryRef statusDict, operation_type operation) {
    auto const safe = sanitize_for_xml(statusDict, on_error::skip);
    if (!is_a(safe.get(), CFDictionaryGetTypeID())) {
        return nullptr;
    }
    auto report = adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0,
                                                      static_cast<CFDictionaryRef>(safe.get())));
    if (report && operation != no_operation) {
        auto const name = adopt(AMRLocalizedCopyStringForAMROperation(static_cast<int>(operation)));
        if (name) {
            CFDictionarySetValue(report.get(), operation_name_key, name.get());
        }
    }
    return report;
}

} // namespace qnrescue
