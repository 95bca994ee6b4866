#include "support/file/openable_name.hpp"

#include <windows.h>

#include <string_view>

namespace QN::file::detail {

namespace {

// Empty where the system makes none of it.
std::wstring absolute_form(std::wstring const & path) {
    std::wstring absolute(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
    auto const length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(absolute.size()),
                                         absolute.data(), nullptr);
    // More than asked for: another thread has changed the current directory in between.
    absolute.resize(length < absolute.size() ? length : 0);
    return absolute;
}

} // namespace

std::wstring openable_name(std::wstring const & path) {
    using namespace std::string_view_literals;
    auto const absolute = absolute_form(path);
    if (absolute.size() < MAX_PATH || absolute.starts_with(LR"(\\?\)"sv) ||
        absolute.starts_with(LR"(\\.\)"sv)) {
        return path;
    }
    return absolute.starts_with(LR"(\\)"sv) ? LR"(\\?\UNC\)" + absolute.substr(2)
                                            : LR"(\\?\)" + absolute;
}

} // namespace QN::file::detail
