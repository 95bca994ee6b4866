#include "simulator/CoreFoundation/numbers.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <functional>
#include <limits>

namespace cf {

namespace {

// Small integers are shared whatever kind they were created as. They are counted like other objects
// but the table holds a reference, which nobody may release.
constexpr std::int64_t first_shared = -1;
constinit std::array<__CFNumber, 14> shared_integers{{
    {kCFNumberSInt32Type, std::int64_t{-1}},
    {kCFNumberSInt32Type, std::int64_t{0}},
    {kCFNumberSInt32Type, std::int64_t{1}},
    {kCFNumberSInt32Type, std::int64_t{2}},
    {kCFNumberSInt32Type, std::int64_t{3}},
    {kCFNumberSInt32Type, std::int64_t{4}},
    {kCFNumberSInt32Type, std::int64_t{5}},
    {kCFNumberSInt32Type, std::int64_t{6}},
    {kCFNumberSInt32Type, std::int64_t{7}},
    {kCFNumberSInt32Type, std::int64_t{8}},
    {kCFNumberSInt32Type, std::int64_t{9}},
    {kCFNumberSInt32Type, std::int64_t{10}},
    {kCFNumberSInt32Type, std::int64_t{11}},
    {kCFNumberSInt32Type, std::int64_t{12}},
}};

constinit __CFNumber zero{kCFNumberFloat64Type, 0.0, immortal};
constinit __CFNumber one{kCFNumberFloat64Type, 1.0, immortal};
constinit __CFNumber not_a_number{kCFNumberFloat64Type, std::numeric_limits<double>::quiet_NaN(),
                                  immortal};
constinit __CFNumber positive_infinity{kCFNumberFloat64Type,
                                       std::numeric_limits<double>::infinity(), immortal};
constinit __CFNumber negative_infinity{kCFNumberFloat64Type,
                                       -std::numeric_limits<double>::infinity(), immortal};

// Returns the shared object of this value, or null.
CFNumberRef shared_real(double value) {
    if (std::isnan(value)) {
        return &not_a_number;
    }
    if (std::isinf(value)) {
        return value > 0 ? &positive_infinity : &negative_infinity;
    }
    if (value == 1.0) {
        return &one;
    }
    return value == 0.0 && !std::signbit(value) ? &zero : nullptr;
}

void destroy_number(object & object, doomed_objects & doomed) {
    auto const * const number = static_cast<__CFNumber const *>(&object);
    if (!std::less<>{}(number, shared_integers.data()) &&
        std::less<>{}(number, shared_integers.data() + shared_integers.size())) {
        trap("CFRelease", "a shared number was released more often than it was retained");
    }
    destroy<__CFNumber>(object, doomed);
}

__CFNumber const & number_of(object const & object) {
    return static_cast<__CFNumber const &>(object);
}

int128 integer_of(__CFNumber const & number) {
    return number.is_wide() ? number.wide : widen(number.integer);
}

bool equal_reals(double left, double right) {
    return (std::isnan(left) && std::isnan(right)) ||
           (left == right && std::signbit(left) == std::signbit(right));
}

bool equal_numbers(object const & left, object const & right) {
    auto const & one_number = number_of(left);
    auto const & other = number_of(right);
    if (one_number.is_real() && other.is_real()) {
        return equal_reals(one_number.real, other.real);
    }
    if (one_number.is_real()) {
        return exact_integer(one_number.real) == integer_of(other);
    }
    if (other.is_real()) {
        return exact_integer(other.real) == integer_of(one_number);
    }
    return integer_of(one_number) == integer_of(other);
}

// Equal numbers of different kinds hash alike: by their value as a 64-bit integer if they have one.
CFHashCode hash_number(object const & object) {
    auto const & number = number_of(object);
    auto const integer = number.is_real() ? exact_integer(number.real + 0.0) // no negative zero
                                          : integer_of(number);
    if (!integer) {
        return std::isnan(number.real) ? 0 : std::hash<double>{}(number.real);
    }
    auto const low = static_cast<std::int64_t>(integer->low);
    return *integer == widen(low) ? hash_of_integer(low)
                                  : integer->low ^ static_cast<CFHashCode>(integer->high);
}

constexpr std::array kind_names{"", "SInt8", "SInt16", "SInt32", "SInt64", "Float32", "Float64"};

std::string signed_text(__CFNumber const & number) {
    if (!number.is_real()) {
        auto const text = decimal_text(number);
        return text.starts_with('-') ? text : "+" + text;
    }
    if (number.real == 0.0) {
        return std::signbit(number.real) ? "-0.0" : "+0.0";
    }
    if (!std::isfinite(number.real)) {
        return decimal_text(number);
    }
    return fmt::format("{:+.{}f}", number.real, number.kind == kCFNumberFloat32Type ? 10 : 20);
}

void describe_number(object const & object, std::u16string & text) {
    auto const & number = number_of(object);
    append_heading(text, object, "CFNumber");
    append_ascii(text,
                 fmt::format("{{value = {}, type = kCFNumber{}Type}}", signed_text(number),
                             number.is_wide() ? "SInt128"
                                              : kind_names[static_cast<std::size_t>(number.kind)]));
}

int128 negated(int128 value) {
    auto const low = ~value.low + 1;
    auto const high = ~static_cast<std::uint64_t>(value.high) + (low == 0 ? 1 : 0);
    return {static_cast<std::int64_t>(high), low};
}

// Divides in place and returns the remainder.
std::uint32_t divide(std::array<std::uint32_t, 4> & big_endian_limbs, std::uint32_t divisor) {
    std::uint64_t remainder = 0;
    for (auto & limb : big_endian_limbs) {
        auto const dividend = remainder << 32 | limb;
        limb = static_cast<std::uint32_t>(dividend / divisor);
        remainder = dividend % divisor;
    }
    return static_cast<std::uint32_t>(remainder);
}

std::string wide_text(int128 value) {
    auto const negative = value.high < 0;
    auto const [signed_high, low] = negative ? negated(value) : value;
    auto const high = static_cast<std::uint64_t>(signed_high);
    std::array limbs{static_cast<std::uint32_t>(high >> 32), static_cast<std::uint32_t>(high),
                     static_cast<std::uint32_t>(low >> 32), static_cast<std::uint32_t>(low)};
    std::string digits;
    do {
        digits += static_cast<char>('0' + divide(limbs, 10));
    } while (limbs != std::array<std::uint32_t, 4>{});
    if (negative) {
        digits += '-';
    }
    std::ranges::reverse(digits);
    return digits;
}

std::string real_text(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+infinity" : "-infinity";
    }
    if (value == 0.0) {
        return "0.0";
    }
    constexpr int digits = 17;
    std::array<char, 32> text{};
    auto const end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::general, digits);
    return {text.data(), end.ptr};
}

} // namespace

std::optional<int128> exact_integer(double real) {
    constexpr double two_to_63 = 0x1p63;
    constexpr double two_to_64 = 0x1p64;
    constexpr double two_to_127 = 0x1p127;
    bool const in_range = real >= -two_to_127 && real < two_to_127; // false for a NaN
    if (!in_range || std::trunc(real) != real || (real == 0.0 && std::signbit(real))) {
        return std::nullopt;
    }
    auto const magnitude = std::fabs(real);
    auto const high = std::floor(magnitude / two_to_64);
    auto const low = static_cast<std::uint64_t>(magnitude - high * two_to_64);
    if (high == two_to_63) { // only the smallest integer has this magnitude
        return int128{std::numeric_limits<std::int64_t>::min(), 0};
    }
    int128 const integer{static_cast<std::int64_t>(high), low};
    return real < 0 ? negated(integer) : integer;
}

CFHashCode hash_of_integer(std::int64_t value) noexcept {
    constexpr CFHashCode odd = 0x9e3779b97f4a7c15;
    return static_cast<CFHashCode>(value) * odd;
}

CFNumberRef create_integer(std::int64_t value, CFNumberType kind) {
    auto const index = static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(first_shared);
    if (index < shared_integers.size()) {
        auto const & shared = shared_integers[index];
        retain(shared);
        return &shared;
    }
    return create<__CFNumber>(kind, value);
}

CFNumberRef create_real(double value) {
    auto const * const shared = shared_real(value);
    return shared != nullptr ? shared
                             : create<__CFNumber>(CFNumberType{kCFNumberFloat64Type}, value);
}

CFNumberRef create_real(float value) {
    return create<__CFNumber>(CFNumberType{kCFNumberFloat32Type}, static_cast<double>(value));
}

CFNumberRef create_wide_integer(int128 value) {
    return create<__CFNumber>(value);
}

std::string decimal_text(__CFNumber const & number) {
    if (number.is_real()) {
        return real_text(number.real);
    }
    return number.is_wide() ? wide_text(number.wide) : std::to_string(number.integer);
}

} // namespace cf

constinit cf::object_type const __CFNumber::class_type{
    .id = 22,
    .name = "CFNumber",
    .destroy = cf::destroy_number,
    .equal = cf::equal_numbers,
    .hash = cf::hash_number,
    .describe = cf::describe_number,
};
