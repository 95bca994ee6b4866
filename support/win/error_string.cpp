#include "support/win/error_string.hpp"

#include "support/win/local_memory.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <boost/locale/encoding_utf.hpp>

namespace QN::win {

namespace detail {

looked_up_text look_up_error_string(unsigned long code) {
    wchar_t * buffer = nullptr;
    auto const length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM,
        nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
        reinterpret_cast<wchar_t *>(&buffer), 0, nullptr);
    if (length == 0) {
        return {{}, GetLastError()};
    }
    local_memory<wchar_t> const owner(buffer);
    return {trimmed_utf8({buffer, length})};
}

std::string trimmed_utf8(std::wstring_view text) {
    auto result = boost::locale::conv::utf_to_utf<char>(text.data(), text.data() + text.size());
    boost::algorithm::trim_right(result, std::locale::classic());
    return result;
}

} // namespace detail

std::string get_error_string(unsigned long code) {
    return detail::look_up_error_string(code).text;
}

std::string get_last_error_string() {
    return get_error_string(GetLastError());
}

} // namespace QN::win
