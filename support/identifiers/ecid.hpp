#pragma once

#include "support/identifiers/kinds.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace QN {

// Returns whether the text is an ECID: exactly 16 hexadecimal digits of either case.
bool is_ecid(std::string_view text);

// The exclusive chip identifier of one device. Its text is always the sixteen upper-case digits
// of its value; a moved-from ECID has the value 0 and no text.
class ecid {
public:
    explicit ecid(std::uint64_t number);
    // Throws std::invalid_argument unless is_ecid(digits).
    explicit ecid(std::string_view digits);
    template <other_identifier<ecid> Other>
    explicit ecid(Other const & other) = delete;

    ecid(ecid const &) = default;
    ecid & operator=(ecid const &) = default;
    ecid(ecid && other) noexcept;
    ecid & operator=(ecid && other) noexcept;
    ~ecid() = default;

    operator std::string_view() const { return text; }
    operator std::string() const { return text; }

    friend bool operator==(ecid const & left, ecid const & right) {
        return left.value == right.value;
    }
    friend bool operator<(ecid const & left, ecid const & right) {
        return left.value < right.value;
    }

private:
    friend struct std::hash<ecid>;
    friend struct fmt::formatter<ecid>;

    std::uint64_t value;
    std::string text;
};

} // namespace QN

template <>
struct std::hash<QN::ecid> {
    std::size_t operator()(QN::ecid const & ecid) const noexcept {
        return static_cast<std::size_t>(ecid.value);
    }
};

// Formats like a string: the text, or sixteen question marks for the value 0, which no device has.
template <>
struct fmt::formatter<QN::ecid> : fmt::formatter<std::string_view> {
    template <typename Context>
    auto format(QN::ecid const & ecid, Context & context) const {
        constexpr std::string_view no_ecid = "????????????????";
        std::string_view const shown = ecid.value == 0 ? no_ecid : std::string_view(ecid.text);
        return fmt::formatter<std::string_view>::format(shown, context);
    }
};
