#include "launcher/load_library.hpp"

#include "launcher/load_obstacle.hpp"
#include "launcher/windows_places.hpp"

#include <windows.h>

namespace launcher {

namespace {

QN::filesystem::path loaded_file(std::string const & name) {
    auto const module = GetModuleHandleW(QN::path_from_utf8(name).c_str());
    return module == nullptr ? QN::filesystem::path() : file_of_module(module);
}

// The system's texts for these errors do not name the file.
bool is_about_some_file(unsigned long error) {
    return error == ERROR_MOD_NOT_FOUND || error == ERROR_PROC_NOT_FOUND ||
           error == ERROR_BAD_EXE_FORMAT;
}

std::string reason(QN::filesystem::path const & path,
                   std::vector<QN::filesystem::path> const & searched,
                   QN::win::win32_error const & error) {
    if (is_about_some_file(error.code)) {
        dependency_search search{loaded_file, {path.parent_path()}, system_folder()};
        search.folders.insert(search.folders.end(), searched.begin(), searched.end());
        auto obstacle = load_obstacle(path, search);
        if (!obstacle.empty()) {
            return obstacle;
        }
    }
    return text_about(path, error);
}

} // namespace

std::string text_about(QN::filesystem::path const & file, QN::win::win32_error const & error) {
    std::string text = error.what();
    auto const name = text.find("%1");
    return name == std::string::npos ? text : text.replace(name, 2, QN::path_to_utf8(file));
}

QN::win::win32_module const & load_library(QN::filesystem::path const & path,
                                           std::vector<QN::filesystem::path> const & searched) {
    try {
        return *new QN::win::win32_module(path.native(), LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR |
                                                             LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    } catch (QN::win::win32_error const & error) {
        throw load_error(reason(path, searched, error), error.code);
    }
}

} // namespace launcher
