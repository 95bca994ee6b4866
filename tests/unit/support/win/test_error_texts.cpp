// The texts of system errors and of the error categories that use them.
#include "support/win/error_category.hpp"
#include "support/win/error_string.hpp"
#include "support/win/win32_error.hpp"

#include <boost/system/system_category.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <initializer_list>
#include <limits>
#include <string>

namespace {

using namespace QN::win;

constexpr unsigned long unknown = 99999;

// What the system has for a number, in UTF-8 and with its line break.
std::string raw_text(DWORD code) {
    std::wstring wide(32768, L'\0');
    auto const length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                       wide.data(), static_cast<DWORD>(wide.size()), nullptr);
    std::string text(4 * length + 1, '\0');
    auto const size =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(length), text.data(),
                            static_cast<int>(text.size()), nullptr, nullptr);
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string without_line_break(std::string const & text) {
    EXPECT_TRUE(text.ends_with("\r\n")) << text;
    return text.substr(0, text.rfind("\r\n"));
}

TEST(get_error_string, is_the_systems_text_without_white_space_at_its_end) {
    int texts = 0;
    for (DWORD code = 0; code < 20000; ++code) {
        auto expected = raw_text(code);
        expected.erase(expected.find_last_not_of(" \t\r\n\v\f") + 1);
        EXPECT_EQ(get_error_string(code), expected) << code;
        texts += expected.empty() ? 0 : 1;
    }
    EXPECT_GT(texts, 500);
}

TEST(get_error_string, is_empty_where_the_system_has_no_text) {
    EXPECT_EQ(get_error_string(unknown), "");
    EXPECT_EQ(get_error_string(std::numeric_limits<unsigned long>::max()), "");
}

TEST(get_error_string, leaves_place_holders_in) {
    auto const text = get_error_string(ERROR_BAD_EXE_FORMAT);
    EXPECT_NE(text.find("%1"), std::string::npos) << text;
}

TEST(get_error_string, is_made_of_any_text) {
    EXPECT_EQ(detail::trimmed_utf8(L"Gerät 日本 \r\n"), "Gerät 日本");
    EXPECT_EQ(detail::trimmed_utf8(L"x\n"), "x");
    EXPECT_EQ(detail::trimmed_utf8(L" x \r\n"), " x");
    EXPECT_EQ(detail::trimmed_utf8(L"x\r"), "x");
    EXPECT_EQ(detail::trimmed_utf8(L"\r\n"), "");
    EXPECT_EQ(detail::trimmed_utf8(L""), "");
}

// Files report in the category of the I/O library, which leaves out a full stop at the end.
TEST(get_error_string, agrees_with_the_texts_of_file_errors) {
    for (int code = 0; code < 20000; ++code) {
        auto expected = get_error_string(static_cast<unsigned long>(code));
        if (expected.ends_with('.')) {
            expected.pop_back();
        } else if (expected.empty()) {
            expected = fmt::format("Unknown error ({})", code);
        }
        auto const text = boost::system::system_category().message(code);
        EXPECT_EQ(text.substr(0, text.find_last_not_of(' ') + 1), expected) << code;
    }
}

TEST(get_last_error_string, is_that_of_the_last_error) {
    auto const expected = get_error_string(ERROR_BROKEN_PIPE);
    EXPECT_FALSE(expected.empty());
    SetLastError(ERROR_BROKEN_PIPE);
    EXPECT_EQ(get_last_error_string(), expected);
}

TEST(win32_category, has_a_name_and_the_systems_texts) {
    EXPECT_STREQ(win32_category().name(), "Win32 Error");
    auto const code = QN::win::make_error_code(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(code.value(), 2);
    EXPECT_EQ(&code.category(), &win32_category());
    EXPECT_EQ(code.message(), get_error_string(2));
    EXPECT_FALSE(code.message().empty());
}

TEST(win32_category, tells_why_there_is_no_text) {
    wchar_t text[8];
    ASSERT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, unknown, 0, text, 8, nullptr),
              0U);
    auto const reason = GetLastError();
    EXPECT_EQ(win32_category().message(unknown),
              fmt::format("Can't generate error string for code 99999 (error {}: {})", reason,
                          get_error_string(reason)));
    EXPECT_TRUE(win32_category().message(-1).starts_with(
        "Can't generate error string for code 4294967295 (error "));
}

TEST(win32_error, has_the_text_of_its_code) {
    win32_error const error(ERROR_ACCESS_DENIED);
    EXPECT_EQ(error.what(), get_error_string(5));
    EXPECT_EQ(error.code, 5U);
    EXPECT_EQ(&error.category, &win32_category());
}

TEST(win32_error, has_its_context_before_the_text) {
    try {
        throw win32_error("when testing", ERROR_ACCESS_DENIED);
    } catch (std::runtime_error const & error) {
        EXPECT_EQ(error.what(), "when testing: " + get_error_string(5));
    }
    EXPECT_EQ(win32_error("when testing", 0xFFFFFFFF).code, 0xFFFFFFFF);
    EXPECT_EQ(win32_error("", unknown).what(), ": " + win32_category().message(unknown));
}

std::string hresult_text(unsigned long code) {
    auto const made = QN::win::hresult::make_error_code(static_cast<long>(code));
    EXPECT_EQ(&made.category(), &QN::win::hresult::hresult_category());
    EXPECT_EQ(static_cast<unsigned long>(made.value()), code);
    return made.message();
}

TEST(hresult_category, has_a_name_and_the_systems_texts) {
    EXPECT_STREQ(QN::win::hresult::hresult_category().name(), "HRESULT Error");
    for (unsigned long const code : {0x80004005UL, 0x80004001UL, 0x80070005UL, 0x80070057UL, 2UL}) {
        EXPECT_EQ(hresult_text(code), without_line_break(raw_text(code))) << code;
    }
}

// In the system's code page; what that does not have is a question mark there.
std::string in_code_page(std::wstring const & text) {
    std::string result(4 * text.size(), '\0');
    auto const size =
        WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), result.data(),
                            static_cast<int>(result.size()), nullptr, nullptr);
    result.resize(static_cast<std::size_t>(size));
    return result;
}

TEST(hresult_category, takes_texts_in_the_systems_code_page) {
    auto const text = in_code_page(L"Gerät \r\n");
    if (text.find('?') != std::string::npos) {
        GTEST_SKIP() << "the code page does not have the letter";
    }
    EXPECT_EQ(hresult::detail::utf8_from_code_page(text), "Gerät ");
}

TEST(hresult_category, leaves_out_the_line_break_at_the_end_and_nothing_else) {
    EXPECT_EQ(hresult::detail::utf8_from_code_page("x\n"), "x");
    EXPECT_EQ(hresult::detail::utf8_from_code_page("x \r\n"), "x ");
    EXPECT_EQ(hresult::detail::utf8_from_code_page("x\r"), "x\r");
    EXPECT_EQ(hresult::detail::utf8_from_code_page("x\r\n\r\n"), "x\r\n");
    EXPECT_EQ(hresult::detail::utf8_from_code_page("\n"), "");
    EXPECT_EQ(hresult::detail::utf8_from_code_page(""), "");
}

TEST(hresult_category, keeps_texts_with_place_holders) {
    EXPECT_EQ(hresult_text(0x800700C1), without_line_break(raw_text(ERROR_BAD_EXE_FORMAT)));
}

TEST(hresult_category, maps_no_conditions) {
    auto const code = QN::win::hresult::make_error_code(2);
    EXPECT_EQ(code.default_error_condition(), std::error_condition(2, code.category()));
}

struct fallback {
    unsigned long code;
    char const * text;
};

// A system may have a text for one row or another, but not for all of them.
void expect_fallbacks(std::initializer_list<fallback> rows) {
    int without_text = 0;
    for (auto const & [code, text] : rows) {
        if (raw_text(code).empty()) {
            EXPECT_EQ(hresult_text(code), text);
            ++without_text;
        }
    }
    EXPECT_GT(without_text, 0);
}

TEST(hresult_category, counts_errors_of_interfaces_that_have_no_text) {
    expect_fallbacks({{0x80040201, "IDispatch error #1"},
                      {0x80048ABC, "IDispatch error #35004"},
                      {0x8004FFFF, "IDispatch error #65023"}});
}

TEST(hresult_category, shows_other_numbers_that_have_no_text) {
    expect_fallbacks({{0x800401FF, "Unknown error 0x800401FF"},
                      {0x80040200, "Unknown error 0x80040200"},
                      {0x80050000, "Unknown error 0x80050000"},
                      {0x8ABCDEF0, "Unknown error 0x8ABCDEF0"},
                      {0x1FFFF, "Unknown error 0x1FFFF"}});
}

// Blocks in use of the heap that the system allocates its texts from.
int blocks_in_use() {
    int count = 0;
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(GetProcessHeap(), &entry)) {
        count += entry.wFlags & PROCESS_HEAP_ENTRY_BUSY ? 1 : 0;
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
    return count;
}

TEST(error_texts, leave_no_memory_of_the_system_behind) {
    constexpr int look_ups = 1000;
    for (auto const look_up : {get_error_string, hresult_text}) {
        look_up(ERROR_ACCESS_DENIED);
        auto const before = blocks_in_use();
        for (int i = 0; i < look_ups; ++i) {
            look_up(ERROR_ACCESS_DENIED);
        }
        EXPECT_LT(blocks_in_use() - before, look_ups / 2);
    }
}

} // namespace
