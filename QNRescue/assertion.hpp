#pragma once

#include <fmt/format.h>

#include <source_location>
#include <stdexcept>
#include <string_view>

namespace qnrescue {

// Throws std::invalid_argument with "UNIT:LINE:FUNCTION Assertion TEXT failed." unless the
// condition, which the text spells, holds. The line is the caller's.
inline void assert_that(bool condition, std::string_view unit, std::string_view function,
                        std::string_view text,
                        std::source_location const & caller = std::source_location::current()) {
    if (!condition) {
        throw std::invalid_argument(
            fmt::format("{}:{}:{} Assertion {} failed.", unit, caller.line(), function, text));
    }
}

} // namespace qnrescue
