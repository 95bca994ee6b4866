// An owner of one reference to an object, for the property-list readers and writers.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

#include <memory>

namespace cf {

struct release_reference {
    void operator()(void const * object) const noexcept { release(object_of(object)); }
};

// Adopts the reference that it is made from and releases it; get() lends it, release() hands it on.
using owned_reference = std::unique_ptr<void const, release_reference>;

} // namespace cf
