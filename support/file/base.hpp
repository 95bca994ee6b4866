#pragma once

#include "support/file/ec_wrapper.hpp"
#include "support/file/fd_type.hpp"
#include "support/filesystem.hpp"

namespace QN::file {

using asio_helpers::ec_wrapper;

// Opens a file and returns its handle, which the caller owns. Reports a failure, and returns an
// invalid handle where reporting does not throw.
using opener = native_handle (*)(filesystem::path const & path, ec_wrapper ec);

// A file, open or not. Each operation stores a failure in the error code that it is given; the form
// without one throws boost::system::system_error instead.
class base {
public:
    base();

    // Opens the file. After a failure this object has no file.
    void open_and_assign(filesystem::path const & file, opener open, ec_wrapper ec);

    // Takes over an open handle. Closes it where that fails.
    void assign(filesystem::path file, native_handle opened, ec_wrapper ec);

    // Closes the file, whether or not the system reports a failure.
    void close();
    void close(boost::system::error_code & ec);

    filesystem::path path; // for messages
    fd_type handle;

private:
    void close(ec_wrapper ec);
};

} // namespace QN::file
