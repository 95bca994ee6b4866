#include "support/win/error_category.hpp"
#include "support/win/error_conditions.hpp"
#include "support/win/error_string.hpp"

#include <fmt/format.h>

#include <string>

namespace QN::win {

namespace {

class category final : public std::error_category {
public:
    char const * name() const noexcept override { return "Win32 Error"; }

    std::string message(int value) const override {
        auto const code = static_cast<unsigned long>(value);
        auto const found = detail::look_up_error_string(code);
        if (!found.text.empty()) {
            return found.text;
        }
        return fmt::format("Can't generate error string for code {} (error {}: {})", code,
                           found.error, get_error_string(found.error));
    }

    std::error_condition default_error_condition(int value) const noexcept override {
        if (auto const condition = generic_condition(static_cast<unsigned long>(value))) {
            return *condition;
        }
        return std::error_category::default_error_condition(value);
    }
};

} // namespace

std::error_category const & win32_category() noexcept {
    // Never destroyed: an error code may be looked at while the process ends.
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): no category, no process
    static auto const & instance = *new category;
    return instance;
}

std::error_code make_error_code(long code) noexcept {
    return {static_cast<int>(code), win32_category()};
}

} // namespace QN::win
