#include "support/win/win32_error.hpp"

#include "support/win/error_category.hpp"

namespace QN::win {

namespace {

std::string text_of(unsigned long code) {
    return win32_category().message(static_cast<int>(code));
}

} // namespace

win32_error::win32_error(unsigned long number)
    : std::runtime_error(text_of(number))
    , code(number)
    , category(win32_category()) {}

win32_error::win32_error(std::string const & context, unsigned long number)
    : std::runtime_error(context + ": " + text_of(number))
    , code(number)
    , category(win32_category()) {}

} // namespace QN::win
