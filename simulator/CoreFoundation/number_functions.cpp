// Creating numbers from C values and converting them back.
#include "simulator/CoreFoundation/booleans.hpp"
#include "simulator/CoreFoundation/numbers.hpp"

#include <cmath>
#include <cstring>
#include <limits>

namespace cf {

namespace {

// Returns the kind that a number created as this type is stored as; 0 for an unknown type.
CFNumberType kind_of(CFNumberType type) {
    switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
        return kCFNumberSInt8Type;
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
        return kCFNumberSInt16Type;
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        return kCFNumberSInt32Type;
    case kCFNumberSInt64Type:
    case kCFNumberLongType: // 64 bits everywhere, also where the compiler's long has 32
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
        return kCFNumberSInt64Type;
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return kCFNumberFloat32Type;
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
        return kCFNumberFloat64Type;
    case wide_integer_type:
        return wide_integer_type;
    default:
        return 0;
    }
}

template <typename Value>
Value load(void const * from) {
    Value value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename Value>
void store(Value value, void * to) {
    if (to != nullptr) {
        std::memcpy(to, &value, sizeof value);
    }
}

// Stores the truncated integer; lossless if it is between the type's minimum and `largest`.
template <typename Integer>
bool store_integer(std::int64_t value, std::int64_t largest, void * to) {
    store(static_cast<Integer>(value), to);
    return value >= std::numeric_limits<Integer>::min() && value <= largest;
}

// The narrow types take unsigned values of their width too, without calling it a loss.
bool store_as_kind(std::int64_t value, CFNumberType kind, void * to) {
    switch (kind) {
    case kCFNumberSInt8Type:
        return store_integer<std::int8_t>(value, std::numeric_limits<std::uint8_t>::max(), to);
    case kCFNumberSInt16Type:
        return store_integer<std::int16_t>(value, std::numeric_limits<std::uint16_t>::max(), to);
    case kCFNumberSInt32Type:
        return store_integer<std::int32_t>(value, std::numeric_limits<std::int32_t>::max(), to);
    default:
        return store_integer<std::int64_t>(value, std::numeric_limits<std::int64_t>::max(), to);
    }
}

void store_smallest(CFNumberType kind, void * to) {
    switch (kind) {
    case kCFNumberSInt8Type:
        return store(std::numeric_limits<std::int8_t>::min(), to);
    case kCFNumberSInt16Type:
        return store(std::numeric_limits<std::int16_t>::min(), to);
    case kCFNumberSInt32Type:
        return store(std::numeric_limits<std::int32_t>::min(), to);
    case wide_integer_type:
        return store(int128{std::numeric_limits<std::int64_t>::min(), 0}, to);
    default:
        return store(std::numeric_limits<std::int64_t>::min(), to);
    }
}

// Stores the nearest real; lossless if that is the number itself.
template <typename Real>
bool store_real(int128 value, void * to) {
    constexpr double two_to_64 = 0x1p64;
    auto const real = value == widen(static_cast<std::int64_t>(value.low))
                          ? static_cast<Real>(static_cast<std::int64_t>(value.low))
                          : static_cast<Real>(static_cast<double>(value.high) * two_to_64 +
                                              static_cast<double>(value.low));
    store(real, to);
    return exact_integer(static_cast<double>(real)) == value;
}

// Narrower integers are taken from the low half alone, as if the rest were not there.
bool get_from_integer(int128 value, CFNumberType kind, void * to) {
    switch (kind) {
    case kCFNumberFloat32Type:
        return store_real<float>(value, to);
    case kCFNumberFloat64Type:
        return store_real<double>(value, to);
    case wide_integer_type:
        store(value, to);
        return true;
    default:
        return store_as_kind(static_cast<std::int64_t>(value.low), kind, to);
    }
}

// Whether the narrow types have the value as it is, and not only as an unsigned one.
bool fits_with_sign(double whole, CFNumberType kind) {
    return (kind != kCFNumberSInt8Type || whole <= std::numeric_limits<std::int8_t>::max()) &&
           (kind != kCFNumberSInt16Type || whole <= std::numeric_limits<std::int16_t>::max());
}

bool get_from_real(double value, CFNumberType kind, void * to) {
    if (kind == kCFNumberFloat64Type) {
        store(value, to);
        return true;
    }
    if (kind == kCFNumberFloat32Type) {
        auto const narrow = static_cast<float>(value);
        store(narrow, to);
        return static_cast<double>(narrow) == value;
    }
    constexpr double two_to_63 = 0x1p63;
    auto const whole = std::trunc(value);
    bool const in_range = whole >= -two_to_63 && whole < two_to_63; // false for a NaN
    if (!in_range) {
        store_smallest(kind, to);
        return false;
    }
    return get_from_integer(widen(static_cast<std::int64_t>(whole)), kind, to) &&
           fits_with_sign(whole, kind) && whole == value;
}

} // namespace

} // namespace cf

CFTypeID CFNumberGetTypeID() {
    return __CFNumber::class_type.id;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, void const * value) {
    if (value == nullptr) {
        cf::trap("CFNumberCreate", "the value is null");
    }
    auto const kind = cf::kind_of(type);
    switch (kind) {
    case kCFNumberSInt8Type:
        return cf::create_integer(cf::load<std::int8_t>(value), kind);
    case kCFNumberSInt16Type:
        return cf::create_integer(cf::load<std::int16_t>(value), kind);
    case kCFNumberSInt32Type:
        return cf::create_integer(cf::load<std::int32_t>(value), kind);
    case kCFNumberSInt64Type:
        return cf::create_integer(cf::load<std::int64_t>(value), kind);
    case kCFNumberFloat32Type:
        return cf::create_real(cf::load<float>(value));
    case kCFNumberFloat64Type:
        return cf::create_real(cf::load<double>(value));
    case cf::wide_integer_type:
        return cf::create_wide_integer(cf::load<cf::int128>(value));
    default:
        return cf::create_integer(0); // an unknown type has no size to read
    }
}

CFNumberType CFNumberGetType(CFNumberRef number) {
    auto const & checked = cf::checked<__CFNumber>(number);
    return checked.is_wide() ? CFNumberType{kCFNumberSInt64Type} : checked.kind;
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
    return cf::checked<__CFNumber>(number).is_real();
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void * value) {
    auto const kind = cf::kind_of(type);
    if (number != nullptr && cf::is<__CFBoolean>(number)) {
        // Either boolean, taken for a number, reads 0.
        return kind != 0 && cf::get_from_integer({}, kind, value);
    }
    auto const & checked = cf::checked<__CFNumber>(number);
    if (kind == 0) {
        return false;
    }
    if (!checked.is_real()) {
        return cf::get_from_integer(checked.is_wide() ? checked.wide : cf::widen(checked.integer),
                                    kind, value);
    }
    auto const lossless = cf::get_from_real(checked.real, kind, value);
    return lossless || kind == checked.kind; // a NaN equals nothing, not even itself
}
