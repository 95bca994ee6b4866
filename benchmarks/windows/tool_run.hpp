// How the baselines of whole runs run: as the tool does.
#pragma once

#include "benchmarks/line_queue.hpp"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

namespace benchmarks {

// Standard output, a line feed after each line.
struct standard_output {
    void write(std::string const & text) { std::cout << text << '\n'; }
    void flush() { std::cout.flush(); }
};

using output_lines = line_queue<standard_output>;

// Calls work(lines) in a worker thread beside the writer thread of the lines. The worker ends the
// process once all lines are written; the main thread only waits.
template <typename Work>
[[noreturn]] void run_as_tool(Work work) {
    _setmode(_fileno(stdout), _O_BINARY);
    std::ios::sync_with_stdio(false);
    auto & lines = *new output_lines; // in use until the process has ended
    std::thread([&lines, work] {
        work(lines);
        lines.finish();
        std::exit(EXIT_SUCCESS);
    }).detach();
    for (;;) {
        WaitForSingleObject(GetCurrentProcess(), INFINITE);
    }
}

// Does what every command on devices begins with: draws the six digits of a name and subscribes to
// notifications for once.
void begin_device_run();

} // namespace benchmarks
