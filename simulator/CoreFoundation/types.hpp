// The table of all types.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

namespace cf {

// The type with this id, or null.
Type const * find_type(CFTypeID id) noexcept;

} // namespace cf
