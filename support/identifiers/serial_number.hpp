#pragma once

#include "support/identifiers/kinds.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace QN {

// A device's serial number, exactly as the device reports it.
class serial_number {
public:
    // Throws std::logic_error for a null pointer with a length.
    explicit serial_number(std::string_view number)
        : text(number) {}
    template <other_identifier<serial_number> Other>
    explicit serial_number(Other const & other) = delete;

    operator std::string_view() const { return text; }
    operator std::string() const { return text; }

    friend bool operator==(serial_number const &, serial_number const &) = default;
    friend bool operator==(serial_number const & left, std::string_view right) {
        return left.text == right;
    }
    friend bool operator<(serial_number const & left, serial_number const & right) {
        return left.text < right.text;
    }

private:
    std::string text;
};

} // namespace QN

template <>
struct std::hash<QN::serial_number> {
    std::size_t operator()(QN::serial_number const & serial) const noexcept {
        return std::hash<std::string_view>{}(serial);
    }
};
