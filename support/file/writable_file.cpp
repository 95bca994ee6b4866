#include "support/file/writable_file.hpp"

#include "support/file/open.hpp"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>

namespace QN::file {

namespace {

native_handle open_for_appending(filesystem::path const & path, ec_wrapper ec) {
    return detail::open_or_report(path, open_mode::append, "when opening file '{}' for appending",
                                  ec);
}

native_handle open_for_clobbering(filesystem::path const & path, ec_wrapper ec) {
    return detail::open_or_report(path, open_mode::clobber, "when clobbering file '{}' for writing",
                                  ec);
}

native_handle open_as_new(filesystem::path const & path, ec_wrapper ec) {
    return detail::open_or_report(path, open_mode::create_new,
                                  "when creating new file '{}' for writing", ec);
}

} // namespace

writable_file writable_file::opened_by(opener open, filesystem::path const & file, ec_wrapper ec) {
    writable_file result;
    result.open_and_assign(file, open, ec);
    return result;
}

writable_file writable_file::open_append(filesystem::path const & file) {
    return opened_by(open_for_appending, file, ec_wrapper());
}

writable_file writable_file::open_append(filesystem::path const & file,
                                         boost::system::error_code & ec) {
    return opened_by(open_for_appending, file, ec_wrapper(ec));
}

writable_file writable_file::open_clobber(filesystem::path const & file) {
    return opened_by(open_for_clobbering, file, ec_wrapper());
}

writable_file writable_file::open_clobber(filesystem::path const & file,
                                          boost::system::error_code & ec) {
    return opened_by(open_for_clobbering, file, ec_wrapper(ec));
}

writable_file writable_file::create_new(filesystem::path const & file) {
    return opened_by(open_as_new, file, ec_wrapper());
}

writable_file writable_file::create_new(filesystem::path const & file,
                                        boost::system::error_code & ec) {
    return opened_by(open_as_new, file, ec_wrapper(ec));
}

void writable_file::write(std::string_view bytes) {
    write(bytes, ec_wrapper());
}

void writable_file::write(std::string_view bytes, boost::system::error_code & ec) {
    write(bytes, ec_wrapper(ec));
}

void writable_file::write(std::string_view bytes, ec_wrapper ec) {
    boost::system::error_code error;
    boost::asio::write(handle, boost::asio::buffer(bytes), error);
    if (error) {
        ec.report(error, [] { return "write"; });
    }
}

} // namespace QN::file
