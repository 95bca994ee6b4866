// Runs the qnrescue.exe beside it as a driving program does that gives it a pipe:
//
//     pipe_host MODE FILE -- ARGUMENT...
//
// {pipe} in the arguments becomes the number of the inherited writing end. What comes through the
// pipe goes to standard output, what the tool writes to its own standard output to the file, and
// its exit status is this program's. The modes are
//
//     overlapped     a pipe as the tool needs it
//     synchronous    a writing end that was not opened for overlapped writing
//     closed         nobody reads: the reading end is closed before the tool starts
//     closed-later   the reading end is closed after the first bytes
//     late           after the first bytes nothing is read until the tool has had the time to end
//     used           a writing end that has been the pipe of another run
//     bound          a writing end that is bound to a completion port of this program

#include <windows.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

// Far smaller than the documents of a run, so that writes have to wait for the reader.
constexpr DWORD pipe_buffer_size = 256;

constexpr DWORD time_to_end = 3000; // milliseconds

class handle {
public:
    explicit handle(HANDLE value)
        : held(value) {
        if (value == INVALID_HANDLE_VALUE || value == nullptr) {
            throw std::runtime_error("no handle: " + std::to_string(GetLastError()));
        }
    }
    handle(handle && other) noexcept
        : held(std::exchange(other.held, nullptr)) {}
    ~handle() { close(); }

    HANDLE get() const { return held; }

    void close() {
        if (held) {
            CloseHandle(std::exchange(held, nullptr));
        }
    }

private:
    HANDLE held;
};

SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};

struct pipe_ends {
    handle reading;
    handle writing;
};

pipe_ends make_pipe(bool overlapped) {
    auto const name = L"\\\\.\\pipe\\qnrescue-test-" + std::to_wstring(GetCurrentProcessId());
    handle reading(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE | PIPE_WAIT,
                                    1, pipe_buffer_size, pipe_buffer_size, 0, nullptr));
    handle writing(CreateFileW(name.c_str(), GENERIC_WRITE, 0, &inheritable, OPEN_EXISTING,
                               overlapped ? FILE_FLAG_OVERLAPPED : 0, nullptr));
    return {std::move(reading), std::move(writing)};
}

struct command {
    std::wstring mode;
    std::wstring file;
    std::wstring tail; // of the command line, from the first argument of the tool on
};

// Reads the raw command line, so that the tool's arguments stay quoted as they are. The folder of
// this program, the mode and the file hold no blank.
command parse_command_line() {
    std::wstring const line = GetCommandLineW();
    auto const separator = line.find(L" -- ");
    if (separator == std::wstring::npos) {
        throw std::runtime_error("usage: pipe_host MODE FILE -- ARGUMENT...");
    }
    auto const file = line.rfind(L' ', separator - 1);
    auto const mode = line.rfind(L' ', file - 1);
    return {line.substr(mode + 1, file - mode - 1), line.substr(file + 1, separator - file - 1),
            line.substr(separator + 4)};
}

std::wstring with_handle(std::wstring tail, HANDLE pipe) {
    constexpr std::wstring_view placeholder = L"{pipe}";
    auto const place = tail.find(placeholder);
    if (place != std::wstring::npos) {
        auto const number = reinterpret_cast<std::intptr_t>(pipe);
        tail.replace(place, placeholder.size(), std::to_wstring(number));
    }
    return tail;
}

std::wstring path_of_tool() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.find_last_of(L"\\/") + 1) + L"qnrescue.exe";
}

handle start_tool(std::wstring const & arguments, HANDLE standard_output) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = standard_output;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process{};
    auto line = L"qnrescue.exe " + arguments;
    if (!CreateProcessW(path_of_tool().c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                        nullptr, &startup, &process)) {
        throw std::runtime_error("no process: " + std::to_string(GetLastError()));
    }
    CloseHandle(process.hThread);
    return handle(process.hProcess);
}

// Hands on what comes until the writing end is closed, or the first bytes only.
void copy(HANDLE from, HANDLE to, bool first_bytes_only) {
    char buffer[100];
    DWORD count = 0;
    while (ReadFile(from, buffer, sizeof buffer, &count, nullptr)) {
        DWORD written = 0;
        WriteFile(to, buffer, count, &written, nullptr);
        if (first_bytes_only) {
            return;
        }
    }
}

DWORD run() {
    auto const [mode, file, tail] = parse_command_line();
    auto [reading, writing] = make_pipe(mode != L"synchronous");
    handle output(
        CreateFileW(file.c_str(), GENERIC_WRITE, 0, &inheritable, CREATE_ALWAYS, 0, nullptr));
    if (mode == L"closed") {
        reading.close();
    }
    handle port(CreateIoCompletionPort(mode == L"bound" ? writing.get() : INVALID_HANDLE_VALUE,
                                       nullptr, 0, 1));
    if (mode == L"used") {
        auto const first =
            start_tool(with_handle(L"--help --output-pipe {pipe}", writing.get()), output.get());
        WaitForSingleObject(first.get(), INFINITE);
    }
    auto const tool = start_tool(with_handle(tail, writing.get()), output.get());
    writing.close();
    if (reading.get()) {
        auto const result = GetStdHandle(STD_OUTPUT_HANDLE);
        if (mode == L"late") {
            copy(reading.get(), result, true);
            WaitForSingleObject(tool.get(), time_to_end);
        }
        copy(reading.get(), result, mode == L"closed-later");
        reading.close();
    }
    WaitForSingleObject(tool.get(), INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(tool.get(), &status);
    return status;
}

} // namespace

int main() {
    try {
        return static_cast<int>(run());
    } catch (std::exception const & error) {
        std::fprintf(stderr, "pipe_host: %s\n", error.what());
        return 99;
    }
}
