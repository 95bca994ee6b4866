#include "doctor/run_tool.hpp"

#include "doctor/temporary_file_name.hpp"
#include "launcher/load_library.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>

namespace doctor {

namespace {

struct close_handle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using handle_owner = std::unique_ptr<void, close_handle>;

[[noreturn]] void throw_last_error(char const * context) {
    auto const error = GetLastError();
    throw QN::win::win32_error(context, error);
}

// A file and not a pipe: a process that the tool leaves behind could keep that open.
handle_owner create_output_file() {
    auto const path = QN::filesystem::temp_directory_path() / temporary_file_name();
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    auto * const file =
        CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_DELETE,
                    &inherited, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        throw_last_error("CreateFile");
    }
    return handle_owner(file);
}

handle_owner start(QN::filesystem::path const & program, HANDLE output) {
    STARTUPINFOW streams{};
    streams.cb = sizeof streams;
    streams.dwFlags = STARTF_USESTDHANDLES;
    streams.hStdOutput = output;
    streams.hStdError = output;
    auto line = L'"' + program.native() + L"\" --list-devices";
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                        nullptr, nullptr, &streams, &process)) {
        auto const error = GetLastError();
        throw std::runtime_error(
            launcher::text_about(program, QN::win::win32_error("CreateProcess", error)));
    }
    CloseHandle(process.hThread);
    return handle_owner(process.hProcess);
}

std::string content_of(HANDLE file) {
    std::string content;
    std::array<char, 4096> block;
    DWORD count = 0;
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    while (ReadFile(file, block.data(), static_cast<DWORD>(block.size()), &count, nullptr) &&
           count != 0) {
        content.append(block.data(), count);
    }
    return content;
}

} // namespace

tool_run run_tool(QN::filesystem::path const & folder, std::chrono::milliseconds limit) {
    tool_run run;
    try {
        auto const output = create_output_file();
        auto const process = start(folder / L"qnrescue.exe", output.get());
        if (WaitForSingleObject(process.get(), static_cast<DWORD>(limit.count())) !=
            WAIT_OBJECT_0) {
            TerminateProcess(process.get(), 1);
            WaitForSingleObject(process.get(), INFINITE);
            run.fault = fmt::format("was still running after {} ms", limit.count());
        }
        DWORD status = 0;
        GetExitCodeProcess(process.get(), &status);
        run.status = status;
        run.output = content_of(output.get());
    } catch (std::runtime_error const & error) { // win32_error or filesystem_error
        run.fault = error.what();
        run.has_started = false;
    }
    return run;
}

} // namespace doctor
