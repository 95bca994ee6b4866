#pragma once

#include "support/file/base.hpp"

#include <string_view>

namespace QN::file {

// A file opened for writing.
class writable_file : public base {
public:
    writable_file() = default; // unopened

    // Opens the file, or creates it if it is missing; all writes go to its end.
    static writable_file open_append(filesystem::path const & file);
    static writable_file open_append(filesystem::path const & file, boost::system::error_code & ec);

    // Creates the file, or empties an existing one.
    static writable_file open_clobber(filesystem::path const & file);
    static writable_file open_clobber(filesystem::path const & file,
                                      boost::system::error_code & ec);

    // Creates the file; fails if it exists.
    static writable_file create_new(filesystem::path const & file);
    static writable_file create_new(filesystem::path const & file, boost::system::error_code & ec);

    // Writes all bytes.
    void write(std::string_view bytes);
    void write(std::string_view bytes, boost::system::error_code & ec);

private:
    static writable_file opened_by(opener open, filesystem::path const & file, ec_wrapper ec);
    void write(std::string_view bytes, ec_wrapper ec);
};

} // namespace QN::file
