// Texts of device identifiers: what is accepted is what the rules say, and reads back as itself.
#include "support/identifiers/ecid.hpp"
#include "support/identifiers/udid.hpp"
#include "tests/fuzz/require.hpp"

#include <boost/algorithm/string/case_conv.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <locale>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view digits = "0123456789abcdefABCDEF";

template <typename Identifier>
std::optional<Identifier> made_from(std::string_view text) {
    try {
        return Identifier(text);
    } catch (std::invalid_argument const &) {
        return std::nullopt;
    }
}

bool consists_of(std::string_view text, std::string_view allowed) {
    return text.find_first_not_of(allowed) == std::string_view::npos;
}

void check_ecid(std::string_view text) {
    bool const valid = text.size() == 16 && consists_of(text, digits);
    require(QN::is_ecid(text) == valid, "is_ecid");
    auto const ecid = made_from<QN::ecid>(text);
    require(ecid.has_value() == valid, "an ecid is made from valid text alone");
    if (ecid) {
        auto const upper = boost::to_upper_copy(std::string(text), std::locale::classic());
        require(std::string_view(*ecid) == upper, "the text of an ecid");
        require(*ecid == QN::ecid(std::stoull(upper, nullptr, 16)), "the value of an ecid");
        require(made_from<QN::ecid>(std::string_view(*ecid)) == ecid, "an ecid reads back");
    }
}

void check_udid(std::string_view text) {
    bool const valid = consists_of(text, std::string(digits) + '-');
    require(QN::is_udid(text) == valid, "is_udid");
    auto const udid = made_from<QN::udid>(text);
    require(udid.has_value() == valid, "a udid is made from valid text alone");
    if (udid) {
        std::string expected(text);
        if (text.size() == 24) {
            expected.insert(8, "-");
        }
        require(std::string_view(*udid) == expected, "the text of a udid");
        require(made_from<QN::udid>(std::string_view(*udid)) == udid, "a udid reads back");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const *>(bytes), size);
    check_ecid(text);
    check_udid(text);
    return 0;
}
