#include "QNRescue/process.hpp"

#ifdef _WIN32
#include "support/win/standard_handles.hpp"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#else
#include <unistd.h>
#endif

#include <csignal>
#include <iostream>

namespace qnrescue {

namespace {

#ifdef _WIN32

constexpr int aborted = 3; // what the C run-time library makes the status, where it asks nobody

using QN::win::keep_standard_handles;

// The handler comes before the error report of both run-time libraries; only one of them has
// _set_abort_behavior. ExitProcess, and so _exit, would run the ends of libraries, which may wait
// for locks of threads that were killed.
void abort_without_questions() {
    _set_error_mode(_OUT_TO_STDERR);
    std::signal(SIGABRT, [](int /*signal*/) { TerminateProcess(GetCurrentProcess(), aborted); });
}

#else

void keep_standard_handles() {}
void abort_without_questions() {}

#endif

} // namespace

void prepare_process() {
    keep_standard_handles();
    abort_without_questions();
    prepare_standard_streams();
}

void prepare_standard_streams() {
#ifdef _WIN32
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
#endif
    std::ios::sync_with_stdio(false);
    std::cerr << std::nounitbuf;
    std::cerr.tie(nullptr);
}

#ifdef _WIN32

void wait_for_process_end() {
    for (;;) {
        WaitForSingleObject(GetCurrentProcess(), INFINITE);
    }
}

#else

void wait_for_process_end() {
    for (;;) {
        pause();
    }
}

#endif

} // namespace qnrescue
