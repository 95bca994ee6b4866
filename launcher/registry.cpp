#include "launcher/registry.hpp"

#include "support/win/error_category.hpp"
#include "support/win/win32_error.hpp"
#include "support/win/win32_module.hpp"

#include <array>
#include <cwchar>
#include <memory>
#include <type_traits>

namespace launcher {

namespace {

// Variables are replaced afterwards: Wine ignores the size of the buffer when it replaces them.
constexpr DWORD text_flags = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;

// In characters.
constexpr std::size_t longest_path = 32767;
constexpr std::size_t longest_key_name = 255;

void * registry_function(char const * name) {
    static QN::win::win32_module const library(L"advapi32.dll", LOAD_LIBRARY_SEARCH_SYSTEM32);
    return library.internal_get_proc_address(name);
}

struct close_key {
    void operator()(HKEY key) const {
        reinterpret_cast<decltype(&RegCloseKey)>(registry_function("RegCloseKey"))(key);
    }
};
using key_owner = std::unique_ptr<std::remove_pointer_t<HKEY>, close_key>;

key_owner open_key(HKEY root, wchar_t const * path) {
    auto const open =
        reinterpret_cast<decltype(&RegOpenKeyExW)>(registry_function("RegOpenKeyExW"));
    HKEY key = nullptr;
    return key_owner(open(root, path, 0, KEY_ENUMERATE_SUB_KEYS, &key) == ERROR_SUCCESS ? key
                                                                                        : nullptr);
}

} // namespace

std::wstring registry_text(HKEY root, wchar_t const * key, wchar_t const * value,
                           std::error_code & error) {
    std::wstring text;
    DWORD type = REG_NONE;
    LSTATUS status = ERROR_MORE_DATA;
    auto const get_value =
        reinterpret_cast<decltype(&RegGetValueW)>(registry_function("RegGetValueW"));
    for (std::size_t length = 512; status == ERROR_MORE_DATA; length *= 2) {
        text.resize(length);
        auto size = static_cast<DWORD>(length * sizeof text.front());
        status = get_value(root, key, value, text_flags, &type, text.data(), &size);
    }
    error = QN::win::make_error_code(status);
    if (error) {
        return {};
    }
    text.resize(std::wcslen(text.c_str())); // without the null character
    if (text.size() > longest_path) {
        error = QN::win::make_error_code(ERROR_FILENAME_EXCED_RANGE);
        return {};
    }
    return type == REG_EXPAND_SZ ? replace_variables(text.c_str()) : text;
}

std::vector<std::wstring> registry_keys(HKEY root, wchar_t const * key) {
    std::vector<std::wstring> names;
    auto const opened = open_key(root, key);
    if (!opened) {
        return names;
    }
    auto const enumerate =
        reinterpret_cast<decltype(&RegEnumKeyExW)>(registry_function("RegEnumKeyExW"));
    std::array<wchar_t, longest_key_name + 1> name;
    for (DWORD index = 0;; ++index) {
        auto length = static_cast<DWORD>(name.size());
        if (enumerate(opened.get(), index, name.data(), &length, nullptr, nullptr, nullptr,
                      nullptr) != ERROR_SUCCESS) {
            return names;
        }
        names.emplace_back(name.data(), length);
    }
}

std::wstring replace_variables(wchar_t const * text) {
    std::wstring replaced(ExpandEnvironmentStringsW(text, nullptr, 0), L'\0');
    auto const size = static_cast<DWORD>(replaced.size());
    if (ExpandEnvironmentStringsW(text, replaced.data(), size) == 0) {
        auto const error = GetLastError();
        throw QN::win::win32_error("ExpandEnvironmentStrings", error);
    }
    replaced.resize(std::wcslen(replaced.c_str())); // without the null character
    return replaced;
}

} // namespace launcher
