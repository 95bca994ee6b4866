#include "support/filesystem.hpp"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/nowide/utf/convert.hpp>

#ifdef _WIN32
#include <windows.h>
#endif

namespace QN {

using text_of_paths = filesystem::path::string_type;

#ifdef _WIN32

namespace {

bool remove_if_link(filesystem::path const & path, boost::system::error_code & error) {
    auto const attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
        return false;
    }
    auto const remove = attributes & FILE_ATTRIBUTE_DIRECTORY ? RemoveDirectoryW : DeleteFileW;
    if (!remove(path.c_str())) {
        error.assign(static_cast<int>(GetLastError()), boost::system::system_category());
    }
    return true;
}

// Boost asks a link for its kind. Wine's links have none, and would be taken for folders.
void remove_links(filesystem::path const & path, boost::system::error_code & error) {
    if (remove_if_link(path, error) || !filesystem::is_directory(path, error)) {
        return;
    }
    for (filesystem::recursive_directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        if (remove_if_link(entry->path(), error)) {
            entry.disable_recursion_pending();
        }
        if (error) {
            return;
        }
    }
}

} // namespace

#endif

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

void remove_tree(filesystem::path const & path, boost::system::error_code & error) {
#ifdef _WIN32
    remove_links(path, error);
    if (error && error != boost::system::errc::no_such_file_or_directory) {
        return;
    }
#endif
    filesystem::remove_all(path, error);
}

} // namespace QN
