// Which process it is, even after the system has given its id to another one.
#pragma once

#include <cstdint>

namespace mobile_device {

struct process_identity {
    std::int64_t id = 0;
    std::int64_t created = 0; // in a unit of the system

    bool operator==(process_identity const &) const = default;
};

// Returns the calling process.
process_identity this_process();

// Returns whether the process is still running; true where the system does not say.
bool is_running(process_identity const & process);

} // namespace mobile_device
