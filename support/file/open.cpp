#include "support/file/open.hpp"

namespace QN::file::detail {

native_handle open_or_report(filesystem::path const & path, open_mode mode,
                             fmt::format_string<std::string> context, asio_helpers::ec_wrapper ec) {
    boost::system::error_code error;
    auto const handle = open(path, mode, error);
    if (!is_valid(handle)) {
        ec.report(error, [&] { return fmt::format(context, path_to_utf8(path)); });
    }
    return handle;
}

} // namespace QN::file::detail
