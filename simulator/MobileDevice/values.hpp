// Owners and conversions of CoreFoundation objects.
#pragma once

#include "platform/cf_collections.hpp"
#include "platform/cf_ownership.hpp"
#include "platform/cf_strings.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace mobile_device {

using qnrescue::adopt;
using qnrescue::cf_owner;
using qnrescue::cf_share;
using qnrescue::is_a;
using qnrescue::make_cfstring;
using qnrescue::make_mutable_array;
using qnrescue::make_mutable_dictionary;
using qnrescue::retain;

// Returns the text with the NULs that it holds, where to_utf8 ends at the first; nothing for a
// string that UTF-8 cannot hold (a lone surrogate).
std::optional<std::string> whole_text(CFStringRef string);

// Returns a new number.
cf_owner<CFNumberRef> make_number(std::int64_t value);

// Returns the root of an XML or binary property list; null where the bytes are none.
cf_owner<CFPropertyListRef> parse_property_list(std::span<std::uint8_t const> bytes);

// Returns a new error, whose user info holds those of the two texts that are not null.
cf_owner<CFErrorRef> make_error(CFStringRef domain, CFIndex code, CFStringRef description,
                                CFStringRef failure_reason);

} // namespace mobile_device
