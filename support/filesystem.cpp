#include "support/filesystem.hpp"

#include <boost/locale/encoding_utf.hpp>

namespace QN {

using text_of_paths = filesystem::path::string_type;

filesystem::path path_from_utf8(std::string_view text) {
    if constexpr (std::is_same_v<text_of_paths, std::string>) {
        return filesystem::path(text.begin(), text.end());
    } else {
        using boost::locale::conv::utf_to_utf;
        return utf_to_utf<text_of_paths::value_type>(text.data(), text.data() + text.size());
    }
}

std::string path_to_utf8(filesystem::path const & path) {
    return boost::locale::conv::utf_to_utf<char>(path.native());
}

} // namespace QN
