// What is stored of numbers, and how they are written.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

#include <optional>

namespace cf {

// The type of integers beyond 64 bits. It has no public name: only property lists make such numbers
// and CFNumberGetType returns kCFNumberSInt64Type for them.
inline constexpr CFNumberType wide_integer_type = 17;

// A two's complement integer of 128 bits.
struct int128 {
    std::int64_t high;
    std::uint64_t low;

    friend bool operator==(int128 const &, int128 const &) = default;
};

constexpr int128 widen(std::int64_t value) {
    return {value < 0 ? -1 : 0, static_cast<std::uint64_t>(value)};
}

} // namespace cf

// The kind is one of SInt8, SInt16, SInt32, SInt64, Float32, Float64 and SInt128 of CFNumberType.
struct __CFNumber : cf::object {
    static cf::object_type const class_type;

    CFNumberType kind;
    union {
        std::int64_t integer; // of every kind up to 64 bits
        double real;          // of both real kinds; a Float32 is exact in it
        cf::int128 wide;
    };

    constexpr __CFNumber(CFNumberType its_kind, std::int64_t value,
                         std::int64_t first_references = 1)
        : object{class_type, first_references}
        , kind{its_kind}
        , integer{value} {}
    constexpr __CFNumber(CFNumberType its_kind, double value, std::int64_t first_references = 1)
        : object{class_type, first_references}
        , kind{its_kind}
        , real{value} {}
    constexpr explicit __CFNumber(cf::int128 value)
        : object{class_type}
        , kind{cf::wide_integer_type}
        , wide{value} {}

    bool is_real() const { return kind == kCFNumberFloat32Type || kind == kCFNumberFloat64Type; }
    bool is_wide() const { return kind == cf::wide_integer_type; }
};

namespace cf {

// Create numbers, or share existing ones; the caller owns the reference.
CFNumberRef create_integer(std::int64_t value, CFNumberType kind = kCFNumberSInt64Type);
CFNumberRef create_real(double value);
CFNumberRef create_real(float value);
CFNumberRef create_wide_integer(int128 value);

// Returns the number in decimal as property lists write it: an integer plainly, a real with up to
// 17 digits, `0.0`, `nan`, `+infinity` or `-infinity`.
std::string decimal_text(__CFNumber const & number);

// Returns the integer of 128 bits that equals the real, if there is one; negative zero equals none.
std::optional<int128> exact_integer(double real);

CFHashCode hash_of_integer(std::int64_t value) noexcept;

} // namespace cf
