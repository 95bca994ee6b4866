#include "launcher/printable_text.hpp"

#include <boost/nowide/utf/utf.hpp>

namespace launcher {

namespace {

using utf8 = boost::nowide::utf::utf_traits<char>;
using boost::nowide::utf::code_point;

// The decoder's marks for invalid text are above all code points.
constexpr code_point last_code_point = 0x10FFFF;

bool is_printable(code_point point) {
    if (point == U'\t' || point == U'\n') {
        return true;
    }
    bool const is_control = point < 0x20 || (point >= 0x7F && point < 0xA0);
    return !is_control && point != 0xFFFE && point != 0xFFFF && point <= last_code_point;
}

} // namespace

std::string printable(std::string_view text) {
    std::string result;
    auto const * const end = text.data() + text.size();
    for (auto const * at = text.data(); at != end;) {
        auto const * const start = at;
        result += is_printable(utf8::decode(at, end)) ? std::string_view(start, at)
                                                      : std::string_view("\uFFFD");
    }
    return result;
}

} // namespace launcher
