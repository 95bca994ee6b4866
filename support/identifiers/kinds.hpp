#pragma once

#include <compare>
#include <concepts>
#include <string_view>

namespace QN {

class ecid;
class udid;
class serial_number;
class device_id;

// One of the kinds of identifiers of a device.
template <typename Type>
concept identifier = std::same_as<Type, ecid> || std::same_as<Type, udid> ||
                     std::same_as<Type, serial_number> || std::same_as<Type, device_id>;

template <typename Type, typename Kind>
concept other_identifier = identifier<Type> && !std::same_as<Type, Kind>;

// Deleted, since all kinds except device_id convert to text and could be compared with each other.
template <identifier Left, other_identifier<Left> Right>
bool operator==(Left const & left, Right const & right) = delete;
template <identifier Left, other_identifier<Left> Right>
std::strong_ordering operator<=>(Left const & left, Right const & right) = delete;

// An ECID is a number; texts in upper and lower case can mean the same one.
template <std::same_as<ecid> Left, std::convertible_to<std::string_view> Text>
    requires(!identifier<Text>)
bool operator==(Left const & left, Text const & text) = delete;
template <std::same_as<ecid> Left, std::convertible_to<std::string_view> Text>
    requires(!identifier<Text>)
std::strong_ordering operator<=>(Left const & left, Text const & text) = delete;

} // namespace QN
