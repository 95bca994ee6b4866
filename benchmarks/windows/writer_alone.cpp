// writer_alone FILE COUNT: the output channel, given the text of the file so many times.
#include "QNRescue/output_state.hpp"
#include "QNRescue/process.hpp"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <thread>

int main(int argc, char ** argv) {
    using namespace qnrescue;

    if (argc != 3) {
        std::fputs("usage: writer_alone FILE COUNT\n", stderr);
        return EXIT_FAILURE;
    }
    std::ifstream file(argv[1], std::ios::binary);
    std::string const text{std::istreambuf_iterator<char>(file), {}};

    prepare_standard_streams();
    output_str_state output(std::nullopt);
    std::thread writer(&output_str_state::loop, std::ref(output));
    for (auto left = std::stol(argv[2]); left > 0; --left) {
        output.print(text);
    }
    output.quit();
    writer.join();
}
