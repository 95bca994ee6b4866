// The restore options that the platform gives where the user sets none.
#pragma once

#include "simulator/MobileDevice/reference.hpp"

namespace mobile_device {

reference<CFMutableDictionaryRef> make_default_options();

} // namespace mobile_device
