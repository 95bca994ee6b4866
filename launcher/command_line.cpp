#include "launcher/command_line.hpp"

#include "support/filesystem.hpp"
#include "support/win/local_memory.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

#include <shellapi.h>

namespace launcher {

// The run-time library's own arguments would have their wildcards replaced by file names.
std::vector<std::string> utf8_arguments() {
    int count = 0;
    QN::win::detail::local_memory<wchar_t *> const words(
        CommandLineToArgvW(GetCommandLineW(), &count));
    if (words == nullptr) {
        auto const error = GetLastError();
        throw QN::win::win32_error("CommandLineToArgv", error);
    }
    std::vector<std::string> arguments;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        arguments.push_back(QN::path_to_utf8(words[i]));
    }
    return arguments;
}

} // namespace launcher
