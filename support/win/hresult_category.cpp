#include "support/win/error_category.hpp"
#include "support/win/local_memory.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace QN::win::hresult {

namespace {

std::string system_text(std::uint32_t code, DWORD flags) {
    char * buffer = nullptr;
    auto const length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | flags, nullptr, code,
        MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char *>(&buffer), 0, nullptr);
    if (length == 0) {
        return {};
    }
    win::detail::local_memory<char> const owner(buffer);
    return detail::utf8_from_code_page({buffer, length});
}

std::string fallback_text(std::uint32_t code) {
    constexpr std::uint32_t first_of_interface = 0x80040200;
    constexpr std::uint32_t last_of_interface = 0x8004FFFF;
    if (code > first_of_interface && code <= last_of_interface) {
        return fmt::format("IDispatch error #{}", code - first_of_interface);
    }
    return fmt::format("Unknown error 0x{:X}", code);
}

class category final : public std::error_category {
public:
    char const * name() const noexcept override { return "HRESULT Error"; }

    std::string message(int value) const override {
        auto const code = static_cast<std::uint32_t>(value);
        // Texts with place-holders are only to be had with these left in.
        for (DWORD const flags : {DWORD{0}, DWORD{FORMAT_MESSAGE_IGNORE_INSERTS}}) {
            if (auto text = system_text(code, flags); !text.empty()) {
                return text;
            }
        }
        return fallback_text(code);
    }
};

} // namespace

std::string detail::utf8_from_code_page(std::string_view text) {
    if (text.ends_with('\n')) {
        text.remove_suffix(text.ends_with("\r\n") ? 2 : 1);
    }
    auto const size = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    auto const length = MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), size);
    wide.resize(static_cast<std::size_t>(length));
    return boost::locale::conv::utf_to_utf<char>(wide);
}

std::error_category const & hresult_category() noexcept {
    // Never destroyed: an error code may be looked at while the process ends.
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): no category, no process
    static auto const & instance = *new category;
    return instance;
}

std::error_code make_error_code(long code) noexcept {
    return {static_cast<int>(code), hresult_category()};
}

} // namespace QN::win::hresult
