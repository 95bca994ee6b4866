// read_file FILE tool|loop: reads all of a file, as the tool does or by a plain loop of the same
// requests into a buffer that was made ready before, and prints how many seconds the reading took,
// and how many bytes were read.
#include "support/file/create_file.hpp"
#include "support/file/readable_file.hpp"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

struct measured_reading {
    double seconds;
    std::uint64_t bytes;
};

double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

measured_reading read_by_tool(QN::filesystem::path const & path) {
    auto const begin = clock_type::now();
    QN::file::readable_file file(path);
    auto const bytes = file.read_whole_file(std::numeric_limits<std::uint32_t>::max());
    return {seconds_since(begin), bytes.size()};
}

// The request at the offset, to its end; the number of bytes it has read.
DWORD read_at(HANDLE file, std::uint64_t offset, std::uint8_t * buffer, DWORD size) {
    OVERLAPPED request{};
    request.Offset = static_cast<DWORD>(offset);
    request.OffsetHigh = static_cast<DWORD>(offset >> 32);
    request.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD read = 0;
    bool const started =
        ReadFile(file, buffer, size, nullptr, &request) != 0 || GetLastError() == ERROR_IO_PENDING;
    bool const ended = started && GetOverlappedResult(file, &request, &read, TRUE) != 0;
    CloseHandle(request.hEvent);
    if (!ended || read == 0) {
        throw std::runtime_error("the file cannot be read");
    }
    return read;
}

measured_reading read_by_loop(QN::filesystem::path const & path) {
    constexpr std::uint64_t longest_request = 65536;
    auto const size = QN::file::readable_file(path).get_total_size();
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));

    auto const begin = clock_type::now();
    auto const file = QN::file::detail::create_file(path.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                    OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN);
    std::uint64_t done = 0;
    while (done < size) {
        done += read_at(file, done, bytes.data() + done,
                        static_cast<DWORD>(std::min(longest_request, size - done)));
    }
    CloseHandle(file);
    return {seconds_since(begin), done};
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 3) {
        std::fputs("usage: read_file FILE tool|loop\n", stderr);
        return EXIT_FAILURE;
    }
    auto const path = QN::path_from_utf8(argv[1]);
    bool const by_tool = std::string_view(argv[2]) == "tool";
    auto const [seconds, bytes] = by_tool ? read_by_tool(path) : read_by_loop(path);
    std::printf("%.6f %llu\n", seconds, static_cast<unsigned long long>(bytes));
}
