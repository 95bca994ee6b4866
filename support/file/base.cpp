#include "support/file/base.hpp"

#include "support/file/native_file.hpp"

#include <utility>

namespace QN::file {

base::base()
    : handle(non_async_executor()) {}

void base::open_and_assign(filesystem::path const & file, opener open, ec_wrapper ec) {
    auto copy = file; // before there is a handle that a failure could leak
    if (auto const opened = open(file, ec); detail::is_valid(opened)) {
        assign(std::move(copy), opened, ec);
    }
}

void base::assign(filesystem::path file, native_handle opened, ec_wrapper ec) {
    boost::system::error_code error;
    handle.assign(opened, error);
    if (error) {
        detail::close(opened);
        return ec.report(error, [] { return "assign"; });
    }
    path = std::move(file);
}

void base::close() {
    close(ec_wrapper());
}

void base::close(boost::system::error_code & ec) {
    close(ec_wrapper(ec));
}

void base::close(ec_wrapper ec) {
    boost::system::error_code error;
    handle.close(error);
    if (error) {
        ec.report(error, [] { return "close"; });
    }
}

} // namespace QN::file
