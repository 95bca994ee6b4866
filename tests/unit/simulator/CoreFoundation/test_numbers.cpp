#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t two_to_53 = std::int64_t{1} << 53;

TEST(Number, IsStoredAsTheTypeItWasCreatedAs) {
    struct {
        CFNumberType created_as;
        CFNumberType stored_as;
    } const rows[] = {
        {kCFNumberSInt8Type, 1},   {kCFNumberCharType, 1},      {kCFNumberSInt16Type, 2},
        {kCFNumberShortType, 2},   {kCFNumberSInt32Type, 3},    {kCFNumberIntType, 3},
        {kCFNumberSInt64Type, 4},  {kCFNumberLongType, 4},      {kCFNumberLongLongType, 4},
        {kCFNumberCFIndexType, 4}, {kCFNumberNSIntegerType, 4}, {kCFNumberFloat32Type, 5},
        {kCFNumberFloatType, 5},   {kCFNumberFloat64Type, 6},   {kCFNumberDoubleType, 6},
        {kCFNumberCGFloatType, 6},
    };
    for (auto const & row : rows) {
        std::int64_t const bytes = 0x4041424344454677;
        auto const made = number(row.created_as, bytes);
        EXPECT_EQ(CFNumberGetType(made.get()), row.stored_as) << row.created_as;
        EXPECT_EQ(CFNumberIsFloatType(made.get()), row.stored_as >= kCFNumberFloat32Type);
    }
    EXPECT_EQ(CFNumberGetType(wide_integer(0, ~std::uint64_t{0}).get()), kCFNumberSInt64Type);
}

TEST(Number, IsSharedFromMinusOneToTwelve) {
    for (std::int64_t value = -3; value <= 14; ++value) {
        SCOPED_TRACE(value);
        auto const as_64_bits = integer(value);
        auto const as_8_bits = number(kCFNumberSInt8Type, static_cast<std::int8_t>(value));
        auto const shared = value >= -1 && value <= 12;
        EXPECT_EQ(as_64_bits == as_8_bits, shared);
        EXPECT_EQ(CFNumberGetType(as_64_bits.get()),
                  shared ? kCFNumberSInt32Type : kCFNumberSInt64Type);
        EXPECT_EQ(CFGetRetainCount(as_64_bits.get()), shared ? 3 : 1);
    }
    EXPECT_EQ(CFGetRetainCount(integer(7).get()), 2);
}

TEST(Number, IsAConstantForSomeReals) {
    for (auto const value : {0.0, 1.0, not_a_number, infinity, -infinity}) {
        EXPECT_EQ(real(value), real(value)) << value;
    }
    EXPECT_NE(real(-0.0), real(0.0));
    EXPECT_NE(real(2.0), real(2.0));
}

struct number_conversion {
    cf_owner<CFNumberRef> from;
    CFNumberType to;
    bool lossless;
    double value; // exact for all of these
};

double value_of(CFNumberType type, void const * bytes) {
    auto const read = [bytes](auto value) {
        std::memcpy(&value, bytes, sizeof value);
        return static_cast<double>(value);
    };
    switch (type) {
    case kCFNumberSInt8Type:
        return read(std::int8_t{});
    case kCFNumberSInt16Type:
        return read(std::int16_t{});
    case kCFNumberSInt32Type:
        return read(std::int32_t{});
    case kCFNumberSInt64Type:
        return read(std::int64_t{});
    case kCFNumberFloat32Type:
        return read(float{});
    default:
        return read(double{});
    }
}

void expect(number_conversion const & conversion) {
    SCOPED_TRACE(description(conversion.from.get()) + " as " + std::to_string(conversion.to));
    unsigned char bytes[16];
    std::memset(bytes, 0xaa, sizeof bytes);
    EXPECT_EQ(CFNumberGetValue(conversion.from.get(), conversion.to, bytes), conversion.lossless);
    EXPECT_EQ(value_of(conversion.to, bytes), conversion.value);
    EXPECT_EQ(CFNumberGetValue(conversion.from.get(), conversion.to, nullptr), conversion.lossless);
}

constexpr auto as_8 = CFNumberType{kCFNumberSInt8Type};
constexpr auto as_16 = CFNumberType{kCFNumberSInt16Type};
constexpr auto as_32 = CFNumberType{kCFNumberSInt32Type};
constexpr auto as_64 = CFNumberType{kCFNumberSInt64Type};
constexpr auto as_float = CFNumberType{kCFNumberFloat32Type};
constexpr auto as_double = CFNumberType{kCFNumberFloat64Type};

TEST(Number, ConvertsIntegers) {
    auto const short_of = [](int value) {
        return number(kCFNumberSInt16Type, static_cast<std::int16_t>(value));
    };
    number_conversion const rows[] = {
        {integer(127), as_8, true, 127},
        {integer(128), as_8, true, -128},
        {integer(255), as_8, true, -1},
        {integer(256), as_8, false, 0},
        {integer(300), as_8, false, 44},
        {integer(-128), as_8, true, -128},
        {integer(-129), as_8, false, 127},
        {integer(32768), as_16, true, -32768},
        {integer(65535), as_16, true, -1},
        {integer(70000), as_16, false, 4464},
        {integer(2147483647), as_32, true, 2147483647},
        {integer(2147483648), as_32, false, -2147483648.0},
        {integer(4294967295), as_32, false, -1},
        {integer(std::int64_t{1} << 40), as_32, false, 0},
        {short_of(-1), as_32, true, -1},
        {short_of(-1), as_64, true, -1},
        {short_of(-1), as_double, true, -1},
        {short_of(0x8000), as_64, true, -32768},
        {integer(two_to_53), as_double, true, 9007199254740992.0},
        {integer(two_to_53 + 1), as_double, false, 9007199254740992.0},
        {integer(16777217), as_float, false, 16777216},
        {integer(2147483648), as_float, true, 2147483648.0},
        {integer(std::numeric_limits<std::int64_t>::max()), as_double, false, 0x1p63},
        {integer(std::numeric_limits<std::int64_t>::min()), as_double, true, -0x1p63},
        {wide_integer(0, ~std::uint64_t{0}), as_8, true, -1},
        {wide_integer(0, ~std::uint64_t{0}), as_16, true, -1},
        {wide_integer(0, ~std::uint64_t{0}), as_32, true, -1},
        {wide_integer(0, ~std::uint64_t{0}), as_64, true, -1},
        {wide_integer(0, ~std::uint64_t{0}), as_double, false, 0x1p64},
        {wide_integer(0, std::uint64_t{1} << 63), as_double, true, 0x1p63},
    };
    for (auto const & row : rows) {
        expect(row);
    }
}

TEST(Number, ConvertsReals) {
    number_conversion const rows[] = {
        {real(1.5), as_8, false, 1},
        {real(1.5), as_16, false, 1},
        {real(1.5), as_32, false, 1},
        {real(1.5), as_64, false, 1},
        {real(-1.5), as_32, false, -1},
        {real(300.0), as_32, true, 300},
        {real(300.7), as_32, false, 300},
        {real(127), as_8, true, 127},
        {real(128), as_8, false, -128}, // unlike an integer
        {real(255), as_8, false, -1},
        {real(-128), as_8, true, -128},
        {real(-129), as_8, false, 127},
        {number(kCFNumberFloat32Type, 200.0F), as_8, false, -56},
        {real(32767), as_16, true, 32767},
        {real(32768), as_16, false, -32768},
        {real(65535), as_16, false, -1},
        {real(-32768), as_16, true, -32768},
        {real(0.1), as_float, false, static_cast<double>(0.1F)},
        {real(0.5), as_float, true, 0.5},
        {real(1e10), as_64, true, 1e10},
        {real(1.5), as_double, true, 1.5},
        {number(kCFNumberFloat32Type, 0.1F), as_float, true, static_cast<double>(0.1F)},
        {number(kCFNumberFloat32Type, 0.1F), as_double, true, static_cast<double>(0.1F)},
    };
    for (auto const & row : rows) {
        expect(row);
    }
    std::int64_t ignored = 0;
    EXPECT_FALSE(CFNumberGetValue(real(1e10).get(), as_32, &ignored));
    for (auto const type : {as_8, as_16, as_32, as_64}) {
        for (auto const value : {1e100, infinity, -infinity, not_a_number}) {
            EXPECT_FALSE(CFNumberGetValue(real(value).get(), type, &ignored)) << value;
        }
    }
    EXPECT_FALSE(CFNumberGetValue(real(not_a_number).get(), as_float, &ignored));
    double same = 0;
    EXPECT_TRUE(CFNumberGetValue(real(not_a_number).get(), as_double, &same));
    EXPECT_TRUE(std::isnan(same));
}

TEST(Number, ReadsABooleanAsZero) {
    std::int32_t value = 77;
    auto const boolean = reinterpret_cast<CFNumberRef>(kCFBooleanTrue);
    for (CFNumberType const type : {0, 99}) {
        EXPECT_FALSE(CFNumberGetValue(boolean, type, &value));
        EXPECT_EQ(value, 77);
    }
    EXPECT_TRUE(CFNumberGetValue(boolean, kCFNumberSInt32Type, &value));
    EXPECT_EQ(value, 0);
}

TEST(Number, ToleratesUnknownTypes) {
    std::int64_t const value = 77;
    for (CFNumberType const type : {0, 99}) {
        auto const made = number(type, value);
        EXPECT_EQ(CFGetTypeID(made.get()), CFNumberGetTypeID());
        EXPECT_FALSE(CFNumberGetValue(made.get(), type, nullptr));
    }
}

TEST(Number, EqualsByValueAcrossTypes) {
    struct {
        cf_owner<CFNumberRef> left;
        cf_owner<CFNumberRef> right;
        bool equal;
        bool same_hash;
    } const rows[] = {
        {number(kCFNumberSInt8Type, std::int8_t{55}), integer(55), true, true},
        {integer(5), real(5), true, true},
        {number(kCFNumberFloat32Type, 0.5F), real(0.5), true, true},
        {number(kCFNumberFloat32Type, 0.1F), real(0.1), false, false},
        {real(0.0), real(-0.0), false, true},
        {real(not_a_number), real(not_a_number), true, true},
        {number(kCFNumberFloat32Type, std::numeric_limits<float>::quiet_NaN()), real(not_a_number),
         true, true},
        {integer(two_to_53 + 1), real(9007199254740992.0), false, false},
        {integer(two_to_53), real(9007199254740992.0), true, true},
        {wide_integer(0, ~std::uint64_t{0}), integer(-1), false, false},
        {wide_integer(0, ~std::uint64_t{0}), real(0x1p64), false, false},
        {wide_integer(1, 0), real(0x1p64), true, true},
        {wide_integer(-1, 0), real(-0x1p64), true, true},
        {wide_integer(-2, 0), real(-0x1p65), true, true},
        {wide_integer(std::numeric_limits<std::int64_t>::min(), 0), real(-0x1p127), true, true},
        {integer(-1000), real(-1000), true, true},
        {integer(-1000), real(1000), false, false},
        {wide_integer(0, 77), integer(77), true, true},
        {integer(77), integer(78), false, false},
        {real(infinity), real(-infinity), false, false},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(description(row.left.get()) + " and " + description(row.right.get()));
        EXPECT_EQ(CFEqual(row.left.get(), row.right.get()), row.equal);
        EXPECT_EQ(CFEqual(row.right.get(), row.left.get()), row.equal);
        EXPECT_EQ(CFHash(row.left.get()) == CFHash(row.right.get()), row.same_hash);
    }
    auto const one = integer(1);
    EXPECT_FALSE(CFEqual(one.get(), kCFBooleanTrue));
    EXPECT_EQ(CFHash(one.get()), CFHash(kCFBooleanTrue));
}

TEST(Number, DescribesItself) {
    struct {
        cf_owner<CFNumberRef> number;
        char const * value_and_type;
    } const rows[] = {
        {integer(5), "+5, type = kCFNumberSInt32Type"},
        {integer(-5), "-5, type = kCFNumberSInt64Type"},
        {integer(100000), "+100000, type = kCFNumberSInt64Type"},
        {number(kCFNumberSInt16Type, std::int16_t{7777}), "+7777, type = kCFNumberSInt16Type"},
        {number(kCFNumberSInt8Type, std::int8_t{77}), "+77, type = kCFNumberSInt8Type"},
        {wide_integer(0, ~std::uint64_t{0}), "+18446744073709551615, type = kCFNumberSInt128Type"},
        {wide_integer(std::numeric_limits<std::int64_t>::min(), 0),
         "-170141183460469231731687303715884105728, type = kCFNumberSInt128Type"},
        {real(0.5), "+0.50000000000000000000, type = kCFNumberFloat64Type"},
        {real(0.1), "+0.10000000000000000555, type = kCFNumberFloat64Type"},
        {real(-1.5), "-1.50000000000000000000, type = kCFNumberFloat64Type"},
        {real(0.0), "+0.0, type = kCFNumberFloat64Type"},
        {real(-0.0), "-0.0, type = kCFNumberFloat64Type"},
        {real(not_a_number), "nan, type = kCFNumberFloat64Type"},
        {real(infinity), "+infinity, type = kCFNumberFloat64Type"},
        {real(-infinity), "-infinity, type = kCFNumberFloat64Type"},
        {number(kCFNumberFloat32Type, 0.1F), "+0.1000000015, type = kCFNumberFloat32Type"},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(description(row.number.get()),
                  std::string{"<CFNumber PTR [PTR]>{value = "} + row.value_and_type + "}");
    }
}

} // namespace
