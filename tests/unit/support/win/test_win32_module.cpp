#include "support/win/error_string.hpp"
#include "support/win/win32_error.hpp"
#include "support/win/win32_module.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

namespace {

using QN::win::get_error_string;
using QN::win::win32_error;
using QN::win::win32_module;

// Two libraries that nothing else loads.
constexpr auto first = "winmm.dll";
constexpr auto second = "wininet.dll";

bool is_loaded(char const * name) {
    return GetModuleHandleA(name) != nullptr;
}

void expect_thrown(std::function<void()> const & call, unsigned long code,
                   std::string const & context) {
    try {
        call();
        ADD_FAILURE() << "nothing thrown";
    } catch (win32_error const & error) {
        EXPECT_EQ(error.code, code);
        EXPECT_EQ(error.what(), context + ": " + get_error_string(code));
    }
}

TEST(win32_module, keeps_a_library_loaded) {
    ASSERT_FALSE(is_loaded(first));
    {
        win32_module const library(first);
        EXPECT_TRUE(is_loaded(first));
    }
    EXPECT_FALSE(is_loaded(first));
}

TEST(win32_module, finds_what_a_library_exports) {
    win32_module const library("kernel32.dll");
    EXPECT_EQ(library.internal_get_proc_address("GetTickCount"),
              reinterpret_cast<void *>(
                  GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetTickCount")));
}

TEST(win32_module, refuses_a_missing_library) {
    expect_thrown([] { win32_module library("no-such-library.dll"); }, ERROR_MOD_NOT_FOUND,
                  "LoadLibrary(\"no-such-library.dll\")");
}

TEST(win32_module, loads_from_a_path) {
    std::wstring folder(MAX_PATH, L'\0');
    folder.resize(GetSystemDirectoryW(folder.data(), MAX_PATH));
    ASSERT_FALSE(is_loaded(first));
    {
        win32_module const library(folder + L"\\winmm.dll", LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR);
        EXPECT_TRUE(is_loaded(first));
    }
    EXPECT_FALSE(is_loaded(first));
    expect_thrown([] { win32_module library(L"C:\\Gerät 日本.dll", 0); }, ERROR_MOD_NOT_FOUND,
                  "LoadLibrary(\"C:\\Gerät 日本.dll\")");
}

TEST(win32_module, refuses_a_missing_name) {
    win32_module const library("kernel32.dll");
    expect_thrown([&] { library.internal_get_proc_address("NoSuchFunction"); },
                  ERROR_PROC_NOT_FOUND, "GetProcAddress(\"kernel32.dll\", \"NoSuchFunction\")");
    EXPECT_EQ(library.find_proc_address("NoSuchFunction"), nullptr);
}

unsigned long error_of_look_up(HMODULE module, char const * proc) {
    EXPECT_EQ(GetProcAddress(module, proc), nullptr);
    return GetLastError();
}

TEST(win32_module, takes_ordinals_for_names) {
    win32_module const library("ws2_32.dll");
    constexpr auto ordinal = 115;
    EXPECT_EQ(library.internal_get_proc_address(MAKEINTRESOURCEA(ordinal)),
              library.internal_get_proc_address("WSAStartup"));

    auto const module = GetModuleHandleW(L"ws2_32.dll");
    expect_thrown([&] { library.internal_get_proc_address(MAKEINTRESOURCEA(65535)); },
                  error_of_look_up(module, MAKEINTRESOURCEA(65535)),
                  "GetProcAddress(\"ws2_32.dll\", \"#65535\")");
    expect_thrown([&] { library.internal_get_proc_address(nullptr); },
                  error_of_look_up(module, nullptr), "GetProcAddress(\"ws2_32.dll\", \"#0\")");
    EXPECT_EQ(library.find_proc_address(nullptr), nullptr);
}

TEST(win32_module, without_a_library_has_no_names) {
    win32_module const empty;
    for (auto const * proc : {static_cast<char const *>(nullptr), "NoSuchFunction",
                              static_cast<char const *>(MAKEINTRESOURCEA(65535))}) {
        EXPECT_THROW(empty.internal_get_proc_address(proc), win32_error);
        EXPECT_EQ(empty.find_proc_address(proc), nullptr);
    }
}

TEST(win32_module, refuses_what_names_no_library) {
    char const * const nothing = nullptr;
    for (auto const * name : {nothing, static_cast<char const *>(MAKEINTRESOURCEA(7)), ""}) {
        try {
            win32_module const library(name);
            ADD_FAILURE() << "loaded";
        } catch (win32_error const & error) {
            EXPECT_TRUE(std::string(error.what()).starts_with("LoadLibrary(\"\"): "))
                << error.what();
        }
    }
}

TEST(win32_module, moves_its_library_along) {
    win32_module target;
    {
        win32_module source(first);
        target = win32_module(std::move(source));
    }
    EXPECT_TRUE(is_loaded(first));
    EXPECT_NE(target.internal_get_proc_address("timeGetTime"), nullptr);
    expect_thrown([&] { target.internal_get_proc_address("NoSuchFunction"); }, ERROR_PROC_NOT_FOUND,
                  "GetProcAddress(\"winmm.dll\", \"NoSuchFunction\")");
}

TEST(win32_module, swaps_when_it_is_assigned) {
    ASSERT_FALSE(is_loaded(first));
    ASSERT_FALSE(is_loaded(second));
    {
        win32_module target(first);
        {
            win32_module source(second);
            target = std::move(source);
            EXPECT_TRUE(is_loaded(first)); // by the source
        }
        EXPECT_FALSE(is_loaded(first));
        EXPECT_TRUE(is_loaded(second));
    }
    EXPECT_FALSE(is_loaded(second));
}

} // namespace
