#include "tests/unit/helpers/overlapped_pipe.hpp"

#include <array>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <csignal>
#include <unistd.h>
#endif

namespace tests {

#ifdef _WIN32

namespace {

HANDLE as_handle(std::intptr_t number) {
    return reinterpret_cast<HANDLE>(number);
}

std::intptr_t as_number(HANDLE handle) {
    if (handle == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("no pipe");
    }
    return reinterpret_cast<std::intptr_t>(handle);
}

} // namespace

overlapped_pipe::overlapped_pipe() {
    static int count = 0;
    auto const name = L"\\\\.\\pipe\\qnrescue-test-" + std::to_wstring(GetCurrentProcessId()) +
                      L"-" + std::to_wstring(++count);
    writer = as_number(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED,
                                        PIPE_TYPE_BYTE | PIPE_WAIT, 1, 4096, 4096, 0, nullptr));
    reader =
        as_number(CreateFileW(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::size_t overlapped_pipe::read_some(char * buffer, std::size_t size) {
    DWORD count = 0;
    ReadFile(as_handle(reader), buffer, static_cast<DWORD>(size), &count, nullptr);
    return count;
}

void overlapped_pipe::close_reading_end() {
    CloseHandle(as_handle(reader));
    reader = -1;
}

#else

overlapped_pipe::overlapped_pipe() {
    std::signal(SIGPIPE, SIG_IGN); // the write is to fail instead
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    reader = ends[0];
    writer = ends[1];
}

std::size_t overlapped_pipe::read_some(char * buffer, std::size_t size) {
    auto const count = read(static_cast<int>(reader), buffer, size);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
}

void overlapped_pipe::close_reading_end() {
    close(static_cast<int>(reader));
    reader = -1;
}

#endif

overlapped_pipe::~overlapped_pipe() {
    if (reading.joinable()) {
        reading.join();
    }
    if (reader != -1) {
        close_reading_end();
    }
}

void overlapped_pipe::start_reading() {
    reading = std::thread([this] {
        std::array<char, 65536> buffer;
        while (auto const count = read_some(buffer.data(), buffer.size())) {
            collected.append(buffer.data(), count);
        }
    });
}

std::string overlapped_pipe::read_to_end() {
    if (!reading.joinable()) {
        start_reading();
    }
    reading.join();
    return collected;
}

} // namespace tests
