// qnrescue.exe: loads libqnrescuelib.dll from its own folder and runs the tool in it.
#include "support/filesystem.hpp"
#include "support/win/local_memory.hpp"
#include "support/win/win32_error.hpp"
#include "support/win/win32_module.hpp"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

namespace {

using tool_main = int (*)(int argc, char const ** argv);

std::wstring own_folder() {
    std::wstring path(32768, L'\0'); // the longest path that Windows has
    auto const length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) {
        auto const error = GetLastError();
        throw QN::win::win32_error("GetModuleFileName", error);
    }
    return path.substr(0, path.find_last_of(L'\\', length) + 1);
}

// Stays loaded to the end of the process: the tool's threads may still run when its main returns.
QN::win::win32_module const & tool() {
    static auto const & library = *new QN::win::win32_module(own_folder() + L"libqnrescuelib.dll",
                                                             LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR |
                                                                 LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    return library;
}

// The command line in UTF-8. The run-time library's own arguments would have their wildcards
// replaced by file names.
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

int run_tool() {
    auto const arguments = utf8_arguments();
    std::vector<char const *> argv;
    for (auto const & argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    auto const run = reinterpret_cast<tool_main>(tool().internal_get_proc_address("main"));
    return run(static_cast<int>(arguments.size()), argv.data());
}

} // namespace

int main() {
    try {
        return run_tool();
    } catch (std::exception const & exception) {
        _setmode(_fileno(stderr), _O_BINARY);
        std::fprintf(stderr, "qnrescue: %s\n", exception.what());
        return EXIT_FAILURE;
    }
}
