#include "launcher/place.hpp"

#include <fmt/format.h>

#include <utility>

namespace launcher {

place place_of_folder(std::string origin, QN::filesystem::path const & folder) {
    if (!folder.is_absolute()) {
        auto fault = fmt::format("\"{}\" is not a full path", QN::path_to_utf8(folder));
        return {std::move(origin), {}, std::move(fault)};
    }
    auto preferred = folder;
    return {std::move(origin), std::move(preferred.make_preferred()), {}};
}

place place_of_file(std::string origin, QN::filesystem::path const & file) {
    return place_of_folder(std::move(origin), file.is_absolute() ? file.parent_path() : file);
}

} // namespace launcher
