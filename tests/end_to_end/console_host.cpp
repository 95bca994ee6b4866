// Runs a program in a new console, as people do:
//
//     console_host [OPTION...] CODE_PAGE REPORT PROGRAM ARGUMENT...
//
// The console begins with the code page; what it shows goes to standard output. The file REPORT
// gets a line of two numbers: the program's status and the code page that it leaves. Options:
//
//     --no-output, --no-error   standard output or standard error is the null device instead
//     --interrupt-at=FILE       Ctrl+C is pressed once the file is there, and another code page

#include <windows.h>

#include <shellapi.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

struct close {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using handle = std::unique_ptr<void, close>;

void require(bool holds, char const * what) {
    if (!holds) {
        throw std::runtime_error(what + (": error " + std::to_string(GetLastError())));
    }
}

std::wstring quoted_line(std::vector<std::wstring> const & words) {
    std::wstring line;
    for (auto const & word : words) {
        line += L'"' + word + L"\" ";
    }
    return line;
}

handle start(std::vector<std::wstring> const & words, STARTUPINFOEXW & startup) {
    auto line = quoted_line(words);
    PROCESS_INFORMATION process{};
    startup.StartupInfo.cb = sizeof startup;
    require(CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                           EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr, &startup.StartupInfo,
                           &process),
            "CreateProcess");
    CloseHandle(process.hThread);
    return handle(process.hProcess);
}

DWORD status_of(handle const & process) {
    WaitForSingleObject(process.get(), INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(process.get(), &status);
    return status;
}

// --- In the console

void press_control_c_at(std::wstring const & file, UINT code_page, handle const & process) {
    while ((GetConsoleOutputCP() == code_page ||
            GetFileAttributesW(file.c_str()) == INVALID_FILE_ATTRIBUTES) &&
           WaitForSingleObject(process.get(), 10) == WAIT_TIMEOUT) {
    }
    SetConsoleCtrlHandler(nullptr, TRUE); // only now, as a process that is started inherits it
    require(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0), "GenerateConsoleCtrlEvent");
}

handle open(wchar_t const * device) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    return handle(CreateFileW(device, GENERIC_READ | GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING, 0,
                              nullptr));
}

bool take_option(std::vector<std::wstring> & words, std::wstring_view option) {
    bool const given = words[0] == option;
    words.erase(words.begin(), words.begin() + given);
    return given;
}

// Returns the value of the option; empty without it.
std::wstring take_value(std::vector<std::wstring> & words, std::wstring_view option) {
    if (!words[0].starts_with(option)) {
        return {};
    }
    auto value = words[0].substr(option.size());
    words.erase(words.begin());
    return value;
}

void run_in_console(std::vector<std::wstring> words) {
    auto const output = open(take_option(words, L"--no-output") ? L"NUL" : L"CONOUT$");
    auto const error = open(take_option(words, L"--no-error") ? L"NUL" : L"CONOUT$");
    auto const interrupt_at = take_value(words, L"--interrupt-at=");
    auto const code_page = static_cast<UINT>(std::stoul(words[0]));
    auto const path = words[1];
    words.erase(words.begin(), words.begin() + 2);

    SetConsoleCtrlHandler(nullptr, FALSE);
    require(SetConsoleOutputCP(code_page), "SetConsoleOutputCP");
    STARTUPINFOEXW startup{};
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdOutput = output.get();
    startup.StartupInfo.hStdError = error.get();
    auto const process = start(words, startup);
    if (!interrupt_at.empty()) {
        press_control_c_at(interrupt_at, code_page, process);
    }
    auto const status = status_of(process);
    auto const report = _wfopen(path.c_str(), L"w");
    require(report != nullptr, "the report");
    std::fprintf(report, "%lu %u\n", status, GetConsoleOutputCP());
    std::fclose(report);
}

// --- Around the console

struct pipe_ends {
    handle reading;
    handle writing;
};

pipe_ends make_pipe() {
    HANDLE reading = nullptr;
    HANDLE writing = nullptr;
    require(CreatePipe(&reading, &writing, nullptr, 0), "CreatePipe");
    return {handle(reading), handle(writing)};
}

void show(HANDLE pipe) {
    char buffer[4096];
    DWORD count = 0;
    while (ReadFile(pipe, buffer, sizeof buffer, &count, nullptr)) {
        std::fwrite(buffer, 1, count, stdout);
    }
}

void make_console(std::vector<std::wstring> const & words) {
    auto input = make_pipe();
    auto output = make_pipe();
    HPCON console = nullptr;
    auto const result =
        CreatePseudoConsole({200, 60}, input.reading.get(), output.writing.get(), 0, &console);
    SetLastError(static_cast<DWORD>(result));
    require(result == S_OK, "CreatePseudoConsole");
    input.reading.reset();
    output.writing.reset();

    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::vector<std::byte> attributes(size);
    STARTUPINFOEXW startup{};
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES; // and none, so that it has the console's
    startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributes.data());
    require(InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size) &&
                UpdateProcThreadAttribute(startup.lpAttributeList, 0,
                                          PROC_THREAD_ATTRIBUTE_PSEUDOCONSOLE, console,
                                          sizeof console, nullptr, nullptr),
            "the attributes of a process");
    std::thread reader(show, output.reading.get());
    auto const status = status_of(start(words, startup));
    ClosePseudoConsole(console); // which ends the reader
    reader.join();
    SetLastError(status);
    require(status == 0, "in the console");
}

void run(std::vector<std::wstring> words) {
    constexpr std::wstring_view inside = L"--inside";
    if (words.at(1) == inside) {
        run_in_console({words.begin() + 2, words.end()});
    } else {
        words.insert(words.begin() + 1, std::wstring(inside));
        make_console(words);
    }
}

} // namespace

int main() {
    int count = 0;
    auto const words = CommandLineToArgvW(GetCommandLineW(), &count);
    try {
        run({words, words + count});
        return 0;
    } catch (std::exception const & error) {
        std::fprintf(stderr, "console_host: %s\n", error.what());
        return 99;
    }
}
