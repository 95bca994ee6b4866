#include "QNRescue/process.hpp"

#ifdef _WIN32
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#else
#include <unistd.h>
#endif

#include <iostream>

namespace qnrescue {

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
