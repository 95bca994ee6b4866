#include "launcher/console.hpp"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cstdlib>

namespace launcher {

namespace {

constinit UINT former_code_page = 0;

void restore_code_page() {
    SetConsoleOutputCP(former_code_page);
}

// Ctrl+C and the like end the process without a call of exit.
BOOL WINAPI restore_code_page_on_interrupt(DWORD) {
    restore_code_page();
    return FALSE; // the next handler ends the process
}

bool is_console(DWORD stream) {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(stream), &mode) != 0;
}

} // namespace

void show_utf8_on_consoles() {
    if (!is_console(STD_OUTPUT_HANDLE) && !is_console(STD_ERROR_HANDLE)) {
        return;
    }
    former_code_page = GetConsoleOutputCP();
    if (former_code_page == CP_UTF8) {
        return;
    }
    SetConsoleCtrlHandler(restore_code_page_on_interrupt, TRUE); // first: Ctrl+C may come at once
    if (!SetConsoleOutputCP(CP_UTF8)) {
        SetConsoleCtrlHandler(restore_code_page_on_interrupt, FALSE);
        return;
    }
    // The tool ends the process with exit, from its own library. That runs this handler too if
    // program and library share the C run-time library of the system, but not if each has its own,
    // Microsoft's static one. A TLS callback of the program would run in both cases; Wine does not
    // call it at the end, so it could not be tested.
    std::atexit(restore_code_page);
}

void write_text(std::FILE * stream, std::string const & text) {
    _setmode(_fileno(stream), _O_BINARY);
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

} // namespace launcher
