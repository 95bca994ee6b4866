// The restore options that the platform gives where the user sets none.
#pragma once

#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {

cf_owner<CFMutableDictionaryRef> make_default_options();

} // namespace mobile_device
