// Lists the devices and copies the documents from a pipe to standard output.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>

int main() {
    // The tool writes overlapped, which the pipes of CreatePipe do not allow.
    auto const name = L"\\\\.\\pipe\\my-program-" + std::to_wstring(GetCurrentProcessId());
    HANDLE const reading = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE, 1,
                                            65536, 65536, 0, nullptr);
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE const writing = CreateFileW(name.c_str(), GENERIC_WRITE, 0, &inheritable, OPEN_EXISTING,
                                       FILE_FLAG_OVERLAPPED, nullptr);

    auto command = L"qnrescue.exe --list-devices --output-pipe " +
                   std::to_wstring(reinterpret_cast<std::intptr_t>(writing));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION tool{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                        &startup, &tool)) {
        std::fprintf(stderr, "qnrescue.exe does not start: put it beside this program\n");
        return 1;
    }
    CloseHandle(writing); // else the pipe would not end with the tool

    char bytes[4096];
    DWORD count = 0;
    while (ReadFile(reading, bytes, sizeof bytes, &count, nullptr)) {
        WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), bytes, count, &count, nullptr);
    }
    WaitForSingleObject(tool.hProcess, INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(tool.hProcess, &status);
    return static_cast<int>(status);
}
