#include "QNRescue/process.hpp"

#ifdef _WIN32
#include <winsock2.h>

#include <windows.h>

#include <csignal>
#include <stdlib.h>
#endif

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

namespace {

bool standard_error_waits_for_flush() {
    return (std::cerr.flags() & std::ios::unitbuf) == 0 && std::cerr.tie() == nullptr;
}

[[noreturn]] void prepare_and_end() {
    qnrescue::prepare_standard_streams();
    std::_Exit(standard_error_waits_for_flush() ? 0 : 1);
}

TEST(PrepareStandardStreams, LeavesTheMomentOfWritingToTheTool) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_FALSE(standard_error_waits_for_flush());
    EXPECT_EXIT(prepare_and_end(), testing::ExitedWithCode(0), "");
}

#ifdef _WIN32

bool is_inherited(DWORD stream) {
    DWORD flags = 0;
    return GetHandleInformation(GetStdHandle(stream), &flags) && (flags & HANDLE_FLAG_INHERIT) != 0;
}

int inherited_streams() {
    return is_inherited(STD_INPUT_HANDLE) + is_inherited(STD_OUTPUT_HANDLE) +
           is_inherited(STD_ERROR_HANDLE);
}

[[noreturn]] void prepare_and_count_inherited_streams() {
    for (auto const stream : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        SetHandleInformation(GetStdHandle(stream), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    }
    auto const before = inherited_streams();
    qnrescue::prepare_process();
    std::_Exit(before == 0 ? 99 : inherited_streams());
}

TEST(PrepareProcess, KeepsTheStandardHandles) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(prepare_and_count_inherited_streams(), testing::ExitedWithCode(0), "");
}

[[noreturn]] void prepare_and_abort() {
    qnrescue::prepare_process();
    std::abort();
}

// Wine asks nobody and reports nothing, so what Windows would do can only be read off the settings.
[[noreturn]] void prepare_and_look_at_settings() {
    qnrescue::prepare_process();
    bool const no_box = _set_error_mode(_REPORT_ERRMODE) == _OUT_TO_STDERR;
    bool const no_report = std::signal(SIGABRT, SIG_DFL) != SIG_DFL;
    std::_Exit(no_box && no_report ? 0 : 1);
}

TEST(PrepareProcess, LetsAbortEndTheProcessWithoutADialog) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(prepare_and_abort(), testing::ExitedWithCode(3), "");
    EXPECT_EXIT(prepare_and_look_at_settings(), testing::ExitedWithCode(0), "");
}

// By Asio: who adds a socket, here or in the restore library, finds it at work.
TEST(Winsock, IsStartedWithTheProgram) {
    auto const created = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_NE(created, INVALID_SOCKET) << WSAGetLastError();
    closesocket(created);
}

#endif

} // namespace
