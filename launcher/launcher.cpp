// qnrescue.exe: loads the platform's libraries and libqnrescuelib.dll, and runs the tool in it.
#include "launcher/console.hpp"
#include "launcher/internal_error_document.hpp"
#include "launcher/load_library.hpp"
#include "launcher/load_platform_libraries.hpp"
#include "launcher/printable_text.hpp"
#include "launcher/process_setup.hpp"
#include "launcher/windows_places.hpp"
#include "support/filesystem.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace launcher;

constexpr auto last_line = "To find out more, run qnrescue-doctor.exe";

using tool_main = int (*)(int argc, char const ** argv);

tool_main load_tool(place const & program) {
    try {
        auto const & tool = load_library(program.folder / L"libqnrescuelib.dll", {});
        return reinterpret_cast<tool_main>(tool.internal_get_proc_address("main"));
    } catch (std::runtime_error const & error) { // load_error or win32_error
        throw std::runtime_error(
            fmt::format("{}\nqnrescue.exe, libqnrescuelib.dll and libdevforwardmin.dll belong in "
                        "one folder: unpack the whole package again.",
                        error.what()));
    }
}

int run_tool(std::span<wchar_t *> words) {
    prepare_process();
    auto const program = program_place();
    load_platform_libraries(program);
    auto const run = load_tool(program);

    std::vector<std::string> arguments;
    for (auto const * const word : words) {
        arguments.push_back(QN::path_to_utf8(word));
    }
    std::vector<char const *> argv;
    argv.reserve(arguments.size() + 1);
    for (auto const & argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    return run(static_cast<int>(arguments.size()), argv.data());
}

} // namespace

#ifdef __GNUC__
extern "C" {
// The name is the C library's.
// NOLINTNEXTLINE(clang-diagnostic-reserved-identifier,readability-identifier-naming)
int _dowildcard = 0; // arguments are not patterns of file names
}
#endif

// Wide, as not every system has UTF-8 arguments, and the function that splits a command line is in
// a library that takes long to load.
extern "C" int wmain(int argc, wchar_t ** argv) {
    try {
        show_utf8_on_consoles();
        return run_tool({argv, static_cast<std::size_t>(argc)});
    } catch (std::exception const & exception) {
        auto const reason = fmt::format("{}\n{}", exception.what(), last_line);
        write_text(stdout, internal_error_document(reason));
        write_text(stderr, fmt::format("qnrescue: {}\n", printable(reason)));
        return EXIT_FAILURE;
    }
}
