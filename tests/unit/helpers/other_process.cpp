#include "tests/unit/helpers/other_process.hpp"

#include <gtest/gtest.h>

#include <shellapi.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr DWORD longest_wait = 60000; // milliseconds
constexpr std::string_view holder_option = "--hold";

HANDLE inheritable_event() {
    SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, TRUE};
    return CreateEventW(&attributes, TRUE, FALSE, nullptr);
}

std::wstring number_of(HANDLE handle) {
    return std::to_wstring(reinterpret_cast<std::intptr_t>(handle));
}

HANDLE handle_of(wchar_t const * number) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle crosses processes as a number
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(std::stoll(number)));
}

// The other process: holds the file until the event is set.
int hold_file(other_process::hold how, wchar_t const * path, HANDLE ready, HANDLE done) {
    using enum other_process::hold;
    constexpr DWORD all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    auto const access = how == writing ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    auto const file =
        CreateFileW(path, access, how == exclusively ? 0 : all, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE || (how == locked && !LockFile(file, 0, 0, MAXDWORD, 0))) {
        return 1;
    }
    SetEvent(ready);
    WaitForSingleObject(done, longest_wait);
    CloseHandle(file); // and with it the lock
    return 0;
}

} // namespace

other_process::other_process(hold how, std::filesystem::path const & path)
    : done(inheritable_event()) {
    auto const ready = inheritable_event();
    auto command = L"test --hold " + std::to_wstring(static_cast<int>(how)) + L" \"" +
                   path.native() + L"\" " + number_of(ready) + L' ' + number_of(done);
    std::wstring program(MAX_PATH, L'\0');
    GetModuleFileNameW(nullptr, program.data(), MAX_PATH);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                        nullptr, &startup, &started)) {
        ADD_FAILURE() << "no other process: " << GetLastError();
        return;
    }
    process = started.hProcess;
    CloseHandle(started.hThread);
    std::array const either{ready, process};
    EXPECT_EQ(WaitForMultipleObjects(2, either.data(), FALSE, longest_wait), WAIT_OBJECT_0)
        << "the other process does not hold the file";
    CloseHandle(ready);
}

other_process::~other_process() {
    SetEvent(done);
    EXPECT_EQ(WaitForSingleObject(process, longest_wait), WAIT_OBJECT_0);
    CloseHandle(process);
    CloseHandle(done);
}

int main(int argc, char ** argv) {
    if (argc == 6 && argv[1] == holder_option) {
        // The name of the file may have letters that no code page has.
        int count = 0;
        auto const wide = CommandLineToArgvW(GetCommandLineW(), &count);
        return hold_file(static_cast<other_process::hold>(std::stoi(wide[2])), wide[3],
                         handle_of(wide[4]), handle_of(wide[5]));
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
