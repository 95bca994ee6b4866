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

// Whether the path is a link, which is then gone, or the error says why not.
bool remove_if_link(filesystem::path const & path, boost::system::error_code & error) {
    WIN32_FIND_DATAW found;
    auto const search = FindFirstFileW(path.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return false;
    }
    FindClose(search);
    auto const tag = found.dwReserved0;
    if (!(found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) ||
        (tag != 0 && tag != IO_REPARSE_TAG_SYMLINK && tag != IO_REPARSE_TAG_MOUNT_POINT)) {
        return false;
    }
    auto const remove =
        found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY ? RemoveDirectoryW : DeleteFileW;
    if (tag == 0) { // a link of Wine, which would remove what it leads to
        error.assign(ERROR_REPARSE_TAG_INVALID, boost::system::system_category());
    } else if (!remove(path.c_str())) {
        error.assign(static_cast<int>(GetLastError()), boost::system::system_category());
    }
    return true;
}

// Boost tells links by their tags. Wine's have none, and would be taken for folders.
void remove_links(filesystem::path const & path, boost::system::error_code & error) {
    boost::system::error_code ignored; // or the removal that follows fails for the same reason
    if (remove_if_link(path, error) || !filesystem::is_directory(path, ignored)) {
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
    if (error) {
        return;
    }
#endif
    filesystem::remove_all(path, error);
}

} // namespace QN
