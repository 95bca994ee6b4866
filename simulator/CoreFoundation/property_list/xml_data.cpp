#include "simulator/CoreFoundation/property_list/xml_text.hpp"

#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/property_list/base64.hpp"

namespace cf {

CFDataRef read_xml_data(xml_scanner & scanner, property_list_options options) {
    auto start = scanner;
    auto decoded = decode_base64(scanner.take_until('<'));
    if (decoded.invalid_at) {
        start.skip(*decoded.invalid_at);
        start.fail(fmt::format("Could not interpret <data> on line {} (invalid character 0x{:02X})",
                               start.line(), static_cast<unsigned char>(start.peek())));
    }
    auto const wanted = options.of_data(decoded.bytes.size() == 0);
    return create_data(std::move(decoded.bytes), wanted);
}

} // namespace cf
