#include "support/identifiers/device_id.hpp"

#include <ostream>
#include <utility>

namespace QN {

device_id::device_id(std::string key)
    : data(std::move(key)) {}

device_id make_device_id(ecid const & ecid) {
    return device_id(fmt::format("{}", ecid));
}

std::ostream & operator<<(std::ostream & stream, device_id const & id) {
    auto const text = fmt::format("{}", id);
    return stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace QN
