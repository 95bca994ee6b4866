// The log file that restores append their steps to.
#pragma once

#include "platform/CoreFoundation.h"
#include "simulator/MobileDevice/files.hpp"

#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>

namespace mobile_device {

class restore_log {
public:
    // Opens the file for appending in place of an earlier one, and creates it if need be. Returns
    // whether that worked; otherwise an earlier file stays in use.
    bool open(std::string const & path);

    // Appends a line for one report; the status may be null. Does nothing without a file.
    void write_step(std::time_t when, std::uint64_t ecid, CFDictionaryRef status);

private:
    std::mutex mutex;
    std::unique_ptr<append_file> file;
};

} // namespace mobile_device
