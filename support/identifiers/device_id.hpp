#pragma once

#include "support/identifiers/ecid.hpp"
#include "support/identifiers/kinds.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>

namespace QN {

// The tool's general key for a device, used in messages and maps.
class device_id {
public:
    explicit device_id(std::string key);
    template <other_identifier<device_id> Other>
    explicit device_id(Other const & other) = delete; // use make_device_id

    std::string get_data() const { return data; }

    friend bool operator==(device_id const & left, device_id const & right) {
        return left.get_data() == right.get_data();
    }
    friend bool operator<(device_id const & left, device_id const & right) {
        return left.get_data() < right.get_data();
    }

private:
    std::string data;
};

// Returns the key of the device with this ECID: the ECID as it is formatted.
device_id make_device_id(ecid const & ecid);

std::ostream & operator<<(std::ostream & stream, device_id const & id);

} // namespace QN

template <>
struct std::hash<QN::device_id> {
    std::size_t operator()(QN::device_id const & id) const {
        return std::hash<std::string>{}(id.get_data());
    }
};

// Formats like a string.
template <>
struct fmt::formatter<QN::device_id> : fmt::formatter<std::string_view> {
    template <typename Context>
    auto format(QN::device_id const & id, Context & context) const {
        return fmt::formatter<std::string_view>::format(id.get_data(), context);
    }
};
