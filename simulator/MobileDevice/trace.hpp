// The record of all calls of this library.
#pragma once

#include "platform/CoreFoundation.h"
#include "simulator/MobileDevice/files.hpp"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace mobile_device {

class trace {
public:
    // Appends to the file that MOBILEDEVICE_SIMULATOR_TRACE names, and removes the options that an
    // earlier run left beside it. Without the variable nothing is written. A file that cannot be
    // opened is reported on standard error.
    trace();

    // Does nothing after end().
    void write_line(std::string_view line);
    // Writes the options of a restore beside the trace; they may be null. Does nothing after end().
    void write_options(CFDictionaryRef options);
    // Ends the trace; CoreFoundation writes the file's last line.
    void end();

private:
    std::string options_path;
    std::unique_ptr<append_file> file;
    std::mutex mutex;
    bool ended = false;
};

// One line of the trace: built argument by argument, in their order.
class traced_call {
public:
    explicit traced_call(std::string_view function)
        : line{function} {}

    traced_call & argument(std::string_view name, std::string_view value) {
        line.append(" ").append(name).append("=").append(value);
        return *this;
    }
    std::string result(std::string_view value) { return line.append(" -> ").append(value); }

private:
    std::string line;
};

} // namespace mobile_device
