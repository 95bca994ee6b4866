#pragma once

#include "support/file/base.hpp"

#include <cstdint>
#include <vector>

namespace QN::file {

// A file opened for reading.
class readable_file : public base {
public:
    readable_file() = default; // unopened
    explicit readable_file(filesystem::path const & file);
    readable_file(filesystem::path const & file, boost::system::error_code & ec);

    // Returns the size in bytes, with all bits set after a failure.
    std::uint64_t get_total_size();
    std::uint64_t get_total_size(boost::system::error_code & ec);

    // Reads as many bytes as the whole file has from the handle's position, which is the start of a
    // file just opened. Does not read a file of more than max bytes: errc::too_large.
    std::vector<std::uint8_t> read_whole_file(std::uint32_t max);
    std::vector<std::uint8_t> read_whole_file(std::uint32_t max, boost::system::error_code & ec);
    std::vector<std::uint8_t> read_whole_file_impl(std::uint32_t max, ec_wrapper ec);

private:
    std::uint64_t get_total_size_impl(ec_wrapper ec);
    bool allocate(std::vector<std::uint8_t> & bytes, std::uint64_t size, ec_wrapper ec) const;
};

} // namespace QN::file
