#include "simulator/CoreFoundation/property_list/utf8.hpp"

#include <boost/locale/utf.hpp>

#include <iterator>

namespace cf {

namespace utf = boost::locale::utf;

void append_code_point(std::string & text, char32_t code_point) {
    utf::utf_traits<char>::encode(code_point, std::back_inserter(text));
}

bool append_utf16(std::string & text, std::u16string_view units) {
    for (auto at = units.begin(); at != units.end();) {
        auto const code_point = utf::utf_traits<char16_t>::decode(at, units.end());
        if (code_point == utf::illegal || code_point == utf::incomplete) {
            return false;
        }
        append_code_point(text, code_point);
    }
    return true;
}

} // namespace cf
