// Property lists from the binary format.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"
#include "simulator/CoreFoundation/property_list/reference.hpp"

#include <span>

namespace cf {

// The root object; null if the bytes are not a sound binary property list.
OwnedReference read_binary_property_list(std::span<UInt8 const> bytes, PropertyListOptions options);

} // namespace cf
