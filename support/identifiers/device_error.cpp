#include "support/identifiers/device_error.hpp"

#include <string>

namespace QN::SharedSupport::ios_device {

namespace {

class category final : public std::error_category {
public:
    char const * name() const noexcept override { return "libportbay"; }

    std::string message(int code) const override {
        return code == 0 ? "Success" : "Unknown error " + std::to_string(code);
    }
};

} // namespace

std::error_category const & device_category() noexcept {
    // Never destroyed: an error code may be looked at while the process ends.
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): no category, no process
    static auto const & instance = *new category;
    return instance;
}

std::error_code make_error_code(errc code) noexcept {
    return {static_cast<int>(code), device_category()};
}

} // namespace QN::SharedSupport::ios_device
