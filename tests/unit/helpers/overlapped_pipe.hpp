// A pipe as the tool's caller makes it: the writing end is a handle number that takes overlapped
// writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

namespace tests {

class overlapped_pipe {
public:
    overlapped_pipe();
    ~overlapped_pipe();
    overlapped_pipe(overlapped_pipe const &) = delete;
    overlapped_pipe & operator=(overlapped_pipe const &) = delete;

    // Returns the writing end, which the caller closes.
    std::int32_t writing_end() const { return static_cast<std::int32_t>(writer); }

    // Reads on a new thread until the writing end is closed.
    void start_reading();
    // Returns what was read, once the writing end is closed.
    std::string read_to_end();
    // Makes all further writes fail.
    void close_reading_end();

private:
    std::size_t read_some(char * buffer, std::size_t size);

    std::intptr_t reader;
    std::intptr_t writer;
    std::string collected;
    std::thread reading;
};

} // namespace tests
