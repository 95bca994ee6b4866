#pragma once

#include "support/identifiers/kinds.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace QN {

// Returns whether every character is a hexadecimal digit of either case or a dash; true for an
// empty text.
bool is_udid(std::string_view text);

// The unique device identifier as a device reports it. A text of 24 characters gets the dash after
// its eighth that newer devices write; letter case is kept and counts.
class udid {
public:
    // Throws std::invalid_argument unless is_udid(text).
    explicit udid(std::string identifier);
    explicit udid(std::string_view identifier);
    template <other_identifier<udid> Other>
    explicit udid(Other const & other) = delete;

    operator std::string_view() const { return text; }
    operator std::string() const { return text; }

    friend bool operator==(udid const &, udid const &) = default;
    friend bool operator<(udid const & left, udid const & right) { return left.text < right.text; }

private:
    std::string text;
};

} // namespace QN

template <>
struct std::hash<QN::udid> {
    std::size_t operator()(QN::udid const & udid) const noexcept {
        return std::hash<std::string_view>{}(udid);
    }
};
