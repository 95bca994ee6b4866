#include "launcher/console.hpp"

#include <windows.h>

#include <cstdlib>

namespace launcher {

namespace {

constinit UINT former_code_page = 0;

void give_code_page_back() {
    SetConsoleOutputCP(former_code_page);
}

// Ctrl+C and the like end the process without a call of exit.
BOOL WINAPI give_code_page_back_on_interrupt(DWORD) {
    give_code_page_back();
    return FALSE; // so that it ends as it would
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
    if (former_code_page == CP_UTF8 || !SetConsoleOutputCP(CP_UTF8)) {
        return;
    }
    // The tool ends the process with exit, from its own library. That runs this handler too, since
    // program and library share the C run-time library of the system; with Microsoft's static one,
    // of which each has its own, it does not. What runs whatever the library is, a TLS callback of
    // the program, is not called at the end under Wine, and so could not be tested.
    std::atexit(give_code_page_back);
    SetConsoleCtrlHandler(give_code_page_back_on_interrupt, TRUE);
}

} // namespace launcher
