// An owner of one reference to an object, for the property-list readers and writers.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

#include <memory>

namespace cf {

struct ReleaseReference {
    void operator()(void const * object) const noexcept { release(object_of(object)); }
};

// Adopts the reference that it is made from and releases it; get() lends it, release() hands it on.
using OwnedReference = std::unique_ptr<void const, ReleaseReference>;

} // namespace cf
