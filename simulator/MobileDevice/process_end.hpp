// What the simulator does when the process ends.
#pragma once

namespace mobile_device {

// Makes the simulator release its CoreFoundation objects at the end of the process, before
// CoreFoundation counts what is left. Called once.
void prepare_for_process_end();

} // namespace mobile_device
