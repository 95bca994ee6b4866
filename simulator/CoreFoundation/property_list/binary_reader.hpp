// Property lists from the binary format.
#pragma once

#include "simulator/CoreFoundation/property_list/options.hpp"
#include "simulator/CoreFoundation/property_list/reference.hpp"

#include <span>

namespace cf {

// Returns the root object; null if the bytes are not a valid binary property list.
owned_reference read_binary_property_list(std::span<UInt8 const> bytes,
                                          property_list_options options);

} // namespace cf
