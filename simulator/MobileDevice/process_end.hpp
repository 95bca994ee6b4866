// What the simulator does when the process ends.
#pragma once

namespace mobile_device {

// Sees to it that the simulator gives up its CoreFoundation objects at the end of the process,
// before CoreFoundation counts what is left. Called once.
void prepare_for_process_end();

} // namespace mobile_device
