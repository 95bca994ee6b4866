// The least that a start of the tool costs: loads its DLL, which brings all others, starts its two
// threads, and ends.
#include "benchmarks/windows/tool_run.hpp"

int main() {
    if (LoadLibraryW(L"libqnrescuelib.dll") == nullptr) {
        return EXIT_FAILURE;
    }
    benchmarks::run_as_tool([](benchmarks::output_lines &) {});
}
