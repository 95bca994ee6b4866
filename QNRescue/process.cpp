#include "QNRescue/process.hpp"

#ifdef _WIN32
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#else
#include <unistd.h>
#endif

namespace qnrescue {

#ifdef _WIN32

void use_binary_standard_streams() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

void wait_for_process_end() {
    for (;;) {
        WaitForSingleObject(GetCurrentProcess(), INFINITE);
    }
}

#else

void use_binary_standard_streams() {}

void wait_for_process_end() {
    for (;;) {
        pause();
    }
}

#endif

} // namespace qnrescue
