#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/system/error_code.hpp>

#include <cstddef>
#include <cstdint>
#include <span>

namespace QN::file::detail {

// Reads until all bytes are filled or a request fails. What was read before the failure stays.
template <typename Stream>
void read_exactly(Stream & stream, std::span<std::uint8_t> bytes, boost::system::error_code & ec) {
    auto const size_of_next_request = [](boost::system::error_code const & error, std::size_t) {
        constexpr std::size_t longest_request = 65536; // bytes
        return error ? 0 : longest_request;
    };
    boost::asio::read(stream, boost::asio::buffer(bytes.data(), bytes.size()), size_of_next_request,
                      ec);
}

} // namespace QN::file::detail
