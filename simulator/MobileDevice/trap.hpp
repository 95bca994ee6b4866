#pragma once

#include <string_view>

namespace mobile_device {

// Ends the process as CoreFoundation does when it is misused: one line on standard error, a failing
// exit, no handlers. The caller must hold no lock.
[[noreturn]] void trap(std::string_view function, std::string_view why);

// Ends the process at once, with the line on standard error and the status. Nothing that this or
// another thread holds is given back.
[[noreturn]] void end_process(std::string_view line, int status);

} // namespace mobile_device
