#pragma once

#include <cstdint>

namespace qnrescue {

// The command that a run carries out.
enum class command_kind : std::uint32_t {
    list_devices = 0,
    device_info = 1,
    exit_recovery = 2,
    no_exit_recovery = 3,
    restore = 4,
    enter_restore_mode = 5, // a restore that is complete once the device boots into restore mode
};

} // namespace qnrescue
