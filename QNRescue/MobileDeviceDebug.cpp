#include "QNRescue/MobileDeviceDebug.hpp"

#include "QNRescue/assertion.hpp"
#include "QNRescue/error_domain.hpp"
#include "QNRescue/restore_texts.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace qnrescue {

namespace {

constexpr auto source_unit = "QNRescue/MobileDeviceDebug";

// What restore libraries say of a code that they do not know.
constexpr std::array error_fall_backs{"Unrecognized error", "Unrecognized server error"};
constexpr std::array operation_fall_backs{"Unrecognized operation"};

bool starts_with(CFStringRef text, char const * beginning) {
    return CFStringFind(text, __CFStringMakeConstantString(beginning), 0).location == 0;
}

} // namespace

void print_dump(output_str_state & output, text_dump const & dump) {
    output.print_debug(dump.header);
    for (int code = 0; code < dump.code_count; ++code) {
        auto const text = adopt(dump.copy_text(code));
        if (!text || std::ranges::any_of(dump.fall_backs, [&](char const * fall_back) {
                return starts_with(text.get(), fall_back);
            })) {
            continue;
        }
        output.print_debug(fmt::format("case {}: return copyString(CFSTR(\"{}\"));", code,
                                       MakeString(text.get())));
    }
    output.print_debug("");
}

void print_imp_AMRLocalizedCopyStringForAMRError(std::shared_ptr<output_str_state> output) {
    if (!output) {
        fail_assertion(source_unit, "  print_imp_AMRLocalizedCopyStringForAMRError", "output");
    }
    print_dump(*output, {"==== AMRLocalizedCopyStringForAMRError ====",
                         AMRLocalizedCopyStringForAMRError, 10000, error_fall_backs});
}

void print_imp_AMRLocalizedCopyStringForAMROperation(std::shared_ptr<output_str_state> output) {
    if (!output) {
        fail_assertion(source_unit, "  print_imp_AMRLocalizedCopyStringForAMROperation", "output");
    }
    print_dump(*output, {"==== AMRLocalizedCopyStringForAMROperation ====",
                         AMRLocalizedCopyStringForAMROperation, 1000, operation_fall_backs});
}

} // namespace qnrescue
