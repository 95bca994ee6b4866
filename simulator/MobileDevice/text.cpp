#include "simulator/MobileDevice/text.hpp"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include <cstdio>

#include <fmt/format.h>

namespace mobile_device {

std::string format_ecid(std::uint64_t ecid) {
    return fmt::format("{:016X}", ecid);
}

std::string on_one_line(std::string_view text) {
    std::string result;
    for (auto const character : text) {
        auto const code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7F) {
            result += fmt::format("\\x{:02X}", code);
        } else {
            result += character;
        }
    }
    return result;
}

std::string in_quotes(std::string_view text) {
    return '"' + on_one_line(text) + '"';
}

std::string format_boolean(bool value) {
    return value ? "true" : "false";
}

std::string format_presence(void const * pointer) {
    return pointer ? "set" : "null";
}

void write_error_line(std::string_view text) {
#ifdef _WIN32
    _setmode(_fileno(stderr), _O_BINARY); // the host may not have come to that yet
#endif
    std::fputs((on_one_line(text) + '\n').c_str(), stderr);
}

} // namespace mobile_device
