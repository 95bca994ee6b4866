#pragma once

#include "support/file/non_async_executor.hpp"

#include <boost/asio/windows/basic_random_access_handle.hpp>

#include <cstdint>

namespace QN::file {

// Adds a position to a handle for overlapped I/O, which has none. Each request advances it by the
// bytes that it transfers.
class positioned_handle
    : public boost::asio::windows::basic_random_access_handle<non_async_executor> {
public:
    using basic_random_access_handle::basic_random_access_handle;

    // Takes over an open handle, at position 0.
    void assign(native_handle_type const & opened, boost::system::error_code & ec) {
        basic_random_access_handle::assign(opened, ec);
        if (!ec) {
            offset = 0;
        }
    }

    template <typename Buffers>
    std::size_t read_some(Buffers const & buffers, boost::system::error_code & ec) {
        return advanced_by(read_some_at(offset, buffers, ec));
    }

    template <typename Buffers>
    std::size_t write_some(Buffers const & buffers, boost::system::error_code & ec) {
        return advanced_by(write_some_at(offset, buffers, ec));
    }

    // Returns the position in bytes from the start of the file.
    std::uint64_t position() const noexcept { return offset; }

private:
    std::size_t advanced_by(std::size_t transferred) noexcept {
        offset += transferred;
        return transferred;
    }

    std::uint64_t offset = 0;
};

} // namespace QN::file
