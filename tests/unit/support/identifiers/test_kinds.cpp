// That kinds of identifiers cannot be mixed up is decided when this file is compiled.
#include "support/identifiers/device_id.hpp"
#include "support/identifiers/ecid.hpp"
#include "support/identifiers/serial_number.hpp"
#include "support/identifiers/udid.hpp"

#include <gtest/gtest.h>

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

using QN::device_id;
using QN::ecid;
using QN::serial_number;
using QN::udid;

// Whether any of the ways to compare compiles, in this order of the operands.
template <typename Left, typename Right>
concept equates = requires(Left const & left, Right const & right) { left == right; } ||
                  requires(Left const & left, Right const & right) { left != right; };
template <typename Left, typename Right>
concept orders = requires(Left const & left, Right const & right) { left < right; } ||
                 requires(Left const & left, Right const & right) { left > right; } ||
                 requires(Left const & left, Right const & right) { left <= right; } ||
                 requires(Left const & left, Right const & right) { left >= right; };
template <typename Left, typename Right>
concept compares =
    equates<Left, Right> || equates<Right, Left> || orders<Left, Right> || orders<Right, Left>;

template <typename To, typename From>
concept takes = std::constructible_from<To, From> || std::constructible_from<To, From &> ||
                std::constructible_from<To, From const &> || std::is_assignable_v<To &, From> ||
                std::is_assignable_v<To &, From const &> || std::convertible_to<From, To> ||
                std::is_assignable_v<std::optional<To> &, From>;

template <typename One, typename Other>
concept mixes = compares<One, Other> || takes<One, Other> || takes<Other, One>;

static_assert(!mixes<ecid, udid>);
static_assert(!mixes<ecid, serial_number>);
static_assert(!mixes<ecid, device_id>);
static_assert(!mixes<udid, serial_number>);
static_assert(!mixes<udid, device_id>);
static_assert(!mixes<serial_number, device_id>);

static_assert(!compares<ecid, std::string_view>);
static_assert(!compares<ecid, std::string>);
static_assert(!compares<ecid, char const *>);
static_assert(!compares<ecid, char[17]>);

// What has to compile shows that the rest fails for the right reason.
template <typename Kind>
concept usable = takes<Kind, Kind> && std::constructible_from<Kind, std::string> &&
                 requires(Kind const & left, Kind const & right) {
                     { left == right } -> std::same_as<bool>;
                     { left != right } -> std::same_as<bool>;
                     { left < right } -> std::same_as<bool>;
                 };
static_assert(usable<ecid> && usable<udid> && usable<serial_number> && usable<device_id>);

template <typename Kind>
concept is_text = std::convertible_to<Kind const &, std::string_view> &&
                  std::convertible_to<Kind const &, std::string>;
static_assert(is_text<ecid> && is_text<udid> && is_text<serial_number>);
static_assert(equates<serial_number, std::string_view> && equates<std::string_view, serial_number>);

TEST(Kinds, OfIdentifiersMeetAsText) {
    ecid const number(0xA1);
    EXPECT_EQ(std::string(udid(std::string_view(number))), "00000000000000A1");
    EXPECT_TRUE(serial_number(std::string_view(number)) == std::string_view(number));
    EXPECT_TRUE(device_id(std::string(number)) == QN::make_device_id(number));
}

} // namespace
