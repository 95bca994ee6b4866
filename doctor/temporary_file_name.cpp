#include "doctor/temporary_file_name.hpp"

#include <fmt/format.h>

#include <chrono>

namespace doctor {

std::string temporary_file_name() {
    return fmt::format("qnrescue-doctor.{}",
                       std::chrono::steady_clock::now().time_since_epoch().count());
}

} // namespace doctor
