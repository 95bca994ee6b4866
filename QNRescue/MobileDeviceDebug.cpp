#include "QNRescue/MobileDeviceDebug.hpp"

#include "QNRescue/assertion.hpp"
#include "QNRescue/qnrescue.h"
#include "QNRescue/restore_vocabulary.hpp"
#include "platform/cf_strings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <source_location>
#include <string_view>
#include <vector>

namespace qnrescue {

namespace {

constexpr auto source_unit = "QNRescue/MobileDeviceDebug";

// The message of a dump's assertion has two blanks before the function.
void assert_output(std::shared_ptr<output_str_state> const & output, std::string_view function,
                   std::source_location const & caller = std::source_location::current()) {
    assert_that(output != nullptr, source_unit, fmt::format("  {}", function), "output", caller);
}

} // namespace

text_dump const error_dump{"==== AMRLocalizedCopyStringForAMRError ====",
                           AMRLocalizedCopyStringForAMRError, 10000, error_fall_backs};
text_dump const operation_dump{"==== AMRLocalizedCopyStringForAMROperation ====",
                               AMRLocalizedCopyStringForAMROperation, 1000, operation_fall_backs};

void print_dump(output_str_state & output, text_dump const & dump) {
    std::vector<CFStringRef> fall_backs;
    for (auto const text : dump.fall_backs) {
        fall_backs.push_back(__CFStringMakeConstantString(text));
    }
    output.print_debug(dump.header);
    for (int code = 0; code < dump.code_count; ++code) {
        auto const text = adopt(dump.copy_text(code));
        if (!text || std::ranges::any_of(fall_backs, [&](CFStringRef fall_back) {
                return CFStringFind(text.get(), fall_back, 0).location == 0;
            })) {
            continue;
        }
        output.print_debug(fmt::format("case {}: return copyString(CFSTR(\"{}\"));", code,
                                       MakeString(text.get())));
    }
    output.print_debug("");
}

void print_imp_AMRLocalizedCopyStringForAMRError(std::shared_ptr<output_str_state> output) {
    assert_output(output, __func__);
    print_dump(*output, error_dump);
}

void print_imp_AMRLocalizedCopyStringForAMROperation(std::shared_ptr<output_str_state> output) {
    assert_output(output, __func__);
    print_dump(*output, operation_dump);
}

} // namespace qnrescue
