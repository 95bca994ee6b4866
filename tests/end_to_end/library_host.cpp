// Runs the tool as a host program does that loads its DLL itself:
//
//     library_host TOOL_FOLDER LIBRARY_FOLDER ARGUMENT...
//
// The tool's DLLs are in the first folder, those of the platform in the second. Where main returns,
// standard error says so.

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using tool_main = int (*)(int argc, char const ** argv);

std::runtime_error failure(char const * what) {
    return std::runtime_error(what + (": " + std::to_string(GetLastError())));
}

std::string utf8(wchar_t const * text) {
    std::string converted(3 * std::char_traits<wchar_t>::length(text) + 1, '\0');
    auto const size = WideCharToMultiByte(CP_UTF8, 0, text, -1, converted.data(),
                                          static_cast<int>(converted.size()), nullptr, nullptr);
    converted.resize(static_cast<std::size_t>(size) - 1);
    return converted;
}

HMODULE load(std::wstring const & path) {
    auto const library = LoadLibraryExW(
        path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    if (library == nullptr) {
        throw failure("LoadLibraryEx");
    }
    return library;
}

tool_main load_tool(std::wstring const & tool_folder, std::wstring const & library_folder) {
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    if (!SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS)) {
        throw failure("SetDefaultDllDirectories");
    }
    if (AddDllDirectory(library_folder.c_str()) == nullptr) {
        throw failure("AddDllDirectory");
    }
    load(library_folder + L"\\CoreFoundation.dll");
    load(library_folder + L"\\MobileDevice.dll");
    auto const address = GetProcAddress(load(tool_folder + L"\\libqnrescuelib.dll"), "main");
    if (address == nullptr) {
        throw failure("GetProcAddress");
    }
    return reinterpret_cast<tool_main>(reinterpret_cast<void *>(address));
}

int run() {
    int count = 0;
    auto const words = CommandLineToArgvW(GetCommandLineW(), &count);
    if (count < 3) {
        throw std::runtime_error("usage: library_host TOOL_FOLDER LIBRARY_FOLDER ARGUMENT...");
    }
    std::vector<std::string> arguments{"library_host"};
    for (int i = 3; i < count; ++i) {
        arguments.push_back(utf8(words[i]));
    }
    std::vector<char const *> argv;
    for (auto const & argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    auto const main_of_tool = load_tool(words[1], words[2]);
    auto const status = main_of_tool(static_cast<int>(arguments.size()), argv.data());
    std::fprintf(stderr, "library_host: main returned %d\n", status);
    return status;
}

} // namespace

int main() {
    try {
        return run();
    } catch (std::exception const & error) {
        std::fprintf(stderr, "library_host: %s\n", error.what());
        return 99;
    }
}
