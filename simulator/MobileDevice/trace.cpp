#include "simulator/MobileDevice/trace.hpp"

#include "simulator/MobileDevice/text.hpp"
#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {

trace::trace() {
    auto const path = environment_variable("MOBILEDEVICE_SIMULATOR_TRACE");
    if (!path) {
        return;
    }
    options_path = *path + ".options.plist";
    remove_file(options_path);
    file = append_file::open(*path);
    if (!file) {
        write_error_line(*path +
                         ": the trace cannot be opened; is its folder there, and writable?");
    }
}

void trace::end() {
    std::lock_guard const lock{mutex};
    ended = true;
}

void trace::write_line(std::string_view line) {
    std::lock_guard const lock{mutex};
    if (file && !ended) {
        file->write_line(line);
    }
}

void trace::write_options(CFDictionaryRef options) {
    if (!file || !options) {
        return;
    }
    auto const data = adopt(CFPropertyListCreateData(kCFAllocatorDefault, options,
                                                     kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    std::lock_guard const lock{mutex};
    if (ended) {
        return;
    }
    if (!data ||
        !write_file(options_path, {CFDataGetBytePtr(data.get()),
                                   static_cast<std::size_t>(CFDataGetLength(data.get()))})) {
        write_error_line(options_path + ": the restore options cannot be written; is it in use?");
    }
}

} // namespace mobile_device
