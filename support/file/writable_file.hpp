#pragma once

#include "support/file/base.hpp"

#include <string_view>

namespace QN::file {

// A file opened for writing.
class writable_file : public base {
public:
    writable_file() = default; // unopened

    // Makes the file where it is missing; whatever is written lands at its end.
    static writable_file open_append(filesystem::path const & file);
    static writable_file open_append(filesystem::path const & file, boost::system::error_code & ec);

    // Makes the file, or an existing one empty.
    static writable_file open_clobber(filesystem::path const & file);
    static writable_file open_clobber(filesystem::path const & file,
                                      boost::system::error_code & ec);

    // Makes the file; an existing one is refused.
    static writable_file create_new(filesystem::path const & file);
    static writable_file create_new(filesystem::path const & file, boost::system::error_code & ec);

    // Writes until all bytes are written.
    void write(std::string_view bytes);
    void write(std::string_view bytes, boost::system::error_code & ec);

private:
    static writable_file opened_by(opener open, filesystem::path const & file, ec_wrapper ec);
    void write(std::string_view bytes, ec_wrapper ec);
};

} // namespace QN::file
