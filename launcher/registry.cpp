#include "launcher/registry.hpp"

#include "launcher/environment_variables.hpp"
#include "launcher/registry_library.hpp"
#include "support/win/error_category.hpp"

#include <cwchar>

namespace launcher {

namespace {

// Variables are replaced afterwards: Wine does not keep to the size of the buffer here.
constexpr DWORD flags = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;

// In characters.
constexpr std::size_t longest_path = 32767;

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
        status = get_value(root, key, value, flags, &type, text.data(), &size);
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

} // namespace launcher
