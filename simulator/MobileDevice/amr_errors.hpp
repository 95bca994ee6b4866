// The error codes of the restore interface that the simulator gives where no scenario asks for
// others.
#pragma once

namespace mobile_device {

constexpr int amr_bad_argument = 1;
constexpr int amr_file_error = 11;
constexpr int amr_unable_to_open_file = 12;
constexpr int amr_path_does_not_exist = 17;

} // namespace mobile_device
