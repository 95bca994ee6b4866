#include "launcher/registry.hpp"

#include "support/win/error_category.hpp"

#include <windows.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace {

using launcher::registry_text;

class registry_text_test : public testing::Test {
protected:
    registry_text_test() {
        RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                        KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, &key, nullptr);
    }
    ~registry_text_test() override {
        RegCloseKey(key);
        RegDeleteKeyExW(HKEY_CURRENT_USER, path.c_str(), KEY_WOW64_64KEY, 0);
    }

    void set(DWORD type, std::wstring_view text) {
        RegSetValueExW(key, L"Value", 0, type, reinterpret_cast<BYTE const *>(text.data()),
                       static_cast<DWORD>(text.size() * sizeof text.front()));
    }

    std::wstring text() { return registry_text(HKEY_CURRENT_USER, path.c_str(), L"Value", error); }

    void expect_error(long expected) {
        EXPECT_EQ(L"", text());
        EXPECT_EQ(QN::win::make_error_code(expected), error);
    }

    std::wstring const path = L"Software\\qnrescue-test-" + std::to_wstring(GetCurrentProcessId());
    HKEY key = nullptr;
    std::error_code error = QN::win::make_error_code(ERROR_GEN_FAILURE);
};

TEST_F(registry_text_test, reads_texts) {
    for (auto const & written : {std::wstring(L"C:\\Gerät 日本 😀"), std::wstring(),
                                 L"C:\\" + std::wstring(511, L'x'), std::wstring(30000, L'x')}) {
        set(REG_SZ, written);
        EXPECT_EQ(written, text());
        EXPECT_FALSE(error);
    }
}

TEST_F(registry_text_test, stops_at_the_end_of_the_text) {
    set(REG_SZ, std::wstring_view(L"C:\\a\0b", 6));
    EXPECT_EQ(L"C:\\a", text());
}

TEST_F(registry_text_test, replaces_variables_where_the_type_asks_for_it) {
    std::wstring const value(2000, L'x');
    SetEnvironmentVariableW(L"QNRESCUE_TEST", value.c_str());
    set(REG_EXPAND_SZ, L"C:\\%QNRESCUE_TEST%\\a");
    EXPECT_EQ(L"C:\\" + value + L"\\a", text());
    set(REG_SZ, L"C:\\%QNRESCUE_TEST%\\a");
    EXPECT_EQ(L"C:\\%QNRESCUE_TEST%\\a", text());
}

TEST_F(registry_text_test, refuses_what_is_no_text) {
    for (auto const type :
         std::initializer_list<DWORD>{REG_DWORD, REG_MULTI_SZ, REG_BINARY, REG_NONE}) {
        set(type, L"ab");
        expect_error(ERROR_UNSUPPORTED_TYPE);
    }
}

TEST_F(registry_text_test, refuses_what_is_not_there) {
    expect_error(ERROR_FILE_NOT_FOUND);
    registry_text(HKEY_CURRENT_USER, L"Software\\no such key", L"Value", error);
    EXPECT_EQ(std::errc::no_such_file_or_directory, error);
}

TEST_F(registry_text_test, refuses_what_is_longer_than_any_path) {
    set(REG_SZ, std::wstring(32767, L'x'));
    EXPECT_EQ(32767U, text().size());
    for (auto const type : std::initializer_list<DWORD>{REG_SZ, REG_EXPAND_SZ}) {
        set(type, std::wstring(32768, L'x'));
        expect_error(ERROR_FILENAME_EXCED_RANGE);
    }
}

} // namespace
