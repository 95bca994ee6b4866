#include "launcher/permanent_module.hpp"

namespace launcher {

QN::win::win32_module const & load_permanently(QN::filesystem::path const & path) {
    return *new QN::win::win32_module(path.native(), LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR |
                                                         LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
}

} // namespace launcher
