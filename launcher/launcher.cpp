// qnrescue.exe: loads libqnrescuelib.dll from its own folder and runs the tool in it.
#include <boost/locale/encoding_utf.hpp>

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using tool_main = int (*)(int argc, char const ** argv);

std::string to_utf8(std::wstring const & text) {
    return boost::locale::conv::utf_to_utf<char>(text);
}

[[noreturn]] void fail(std::string const & what, DWORD error) {
    std::fprintf(stderr, "qnrescue: %s (Windows error %lu)\n", what.c_str(), error);
    std::exit(EXIT_FAILURE);
}

std::wstring own_folder() {
    std::wstring path(32768, L'\0'); // the longest path that Windows has
    auto const length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    path.resize(length);
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

tool_main load_tool() {
    auto const path = own_folder() + L"libqnrescuelib.dll";
    auto const library = LoadLibraryExW(
        path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    if (library == nullptr) {
        auto const error = GetLastError();
        fail("cannot load '" + to_utf8(path) + "' or a library that it needs", error);
    }
    auto const entry = GetProcAddress(library, "main");
    if (entry == nullptr) {
        auto const error = GetLastError();
        fail("'" + to_utf8(path) + "' is not the tool: it has no main", error);
    }
    return reinterpret_cast<tool_main>(reinterpret_cast<void *>(entry));
}

// The command line in UTF-8. The run-time library's own arguments would have their wildcards
// replaced by file names.
std::vector<std::string> utf8_arguments() {
    int count = 0;
    auto const words = CommandLineToArgvW(GetCommandLineW(), &count);
    if (words == nullptr) {
        fail("cannot read the command line", GetLastError());
    }
    std::vector<std::string> arguments;
    for (int i = 0; i < count; ++i) {
        arguments.push_back(to_utf8(words[i]));
    }
    LocalFree(words);
    return arguments;
}

} // namespace

int main() {
    auto const arguments = utf8_arguments();
    std::vector<char const *> argv;
    for (auto const & argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    return load_tool()(static_cast<int>(arguments.size()), argv.data());
}
