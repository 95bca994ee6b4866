#include "support/filesystem.hpp"

#include <boost/nowide/utf/convert.hpp>

namespace QN {

using text_of_paths = filesystem::path::string_type;

filesystem::path path_from_utf8(std::string_view text) {
    if constexpr (std::is_same_v<text_of_paths, std::string>) {
        return filesystem::path(text.begin(), text.end());
    } else {
        using boost::nowide::utf::convert_string;
        return convert_string<text_of_paths::value_type>(text.data(), text.data() + text.size());
    }
}

std::string path_to_utf8(filesystem::path const & path) {
    auto const & text = path.native();
    return boost::nowide::utf::convert_string<char>(text.data(), text.data() + text.size());
}

} // namespace QN
