#include "simulator/MobileDevice/trace.hpp"

#include "simulator/MobileDevice/reference.hpp"
#include "simulator/MobileDevice/text.hpp"

#include <fmt/format.h>

namespace mobile_device {

trace::trace() {
    auto const path = environment_variable("MOBILEDEVICE_SIMULATOR_TRACE");
    if (!path) {
        return;
    }
    m_path = *path;
    m_file = append_file::open(m_path);
    if (!m_file) {
        fmt::print(stderr, "{}: the trace cannot be opened\n", on_one_line(m_path));
    }
}

void trace::end() {
    std::lock_guard const lock{m_mutex};
    m_ended = true;
}

void trace::write_line(std::string_view line) {
    std::lock_guard const lock{m_mutex};
    if (m_file && !m_ended) {
        m_file->write_line(line);
    }
}

void trace::write_options(CFDictionaryRef options) {
    if (!m_file || !options) {
        return;
    }
    auto const data = reference<CFDataRef>::adopt(CFPropertyListCreateData(
        kCFAllocatorDefault, options, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    auto const path = m_path + ".options.plist";
    if (!data || !write_file(path, {CFDataGetBytePtr(data.get()),
                                    static_cast<std::size_t>(CFDataGetLength(data.get()))})) {
        fmt::print(stderr, "{}: the restore options cannot be written\n", on_one_line(path));
    }
}

} // namespace mobile_device
