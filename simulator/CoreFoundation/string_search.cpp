// Searching in strings by UTF-16 code unit.
#include "simulator/CoreFoundation/strings.hpp"

namespace cf {

namespace {

struct upper_case_range {
    char16_t first;
    char16_t last;
    char16_t step;     // 2 where upper and lower case alternate
    char16_t distance; // to the lower case
};

constexpr upper_case_range upper_case_ranges[] = {
    {u'A', u'Z', 1, 32},           {u'\u00c0', u'\u00d6', 1, 32}, {u'\u00d8', u'\u00de', 1, 32},
    {u'\u0100', u'\u012e', 2, 1},  {u'\u0132', u'\u0136', 2, 1},  {u'\u0139', u'\u0147', 2, 1},
    {u'\u014a', u'\u0176', 2, 1},  {u'\u0179', u'\u017d', 2, 1},  {u'\u0391', u'\u03a1', 1, 32},
    {u'\u03a3', u'\u03ab', 1, 32}, {u'\u0400', u'\u040f', 1, 80}, {u'\u0410', u'\u042f', 1, 32},
};

// Latin, Greek and Cyrillic letters lose their case; the rest stays.
char16_t fold_case(char16_t unit) {
    for (auto const & range : upper_case_ranges) {
        if (unit >= range.first && unit <= range.last) {
            auto const is_upper = (unit - range.first) % range.step == 0;
            return is_upper ? static_cast<char16_t>(unit + range.distance) : unit;
        }
    }
    return unit;
}

// A string's units as the options of a comparison see them.
class units {
public:
    units(CFStringRef string, CFStringCompareFlags options)
        : contents{contents_of(string)}
        , is_folded{(options & kCFCompareCaseInsensitive) != 0} {}

    std::size_t size() const { return contents.length(); }
    char16_t operator[](std::size_t index) const {
        return is_folded ? fold_case(contents[index]) : contents[index];
    }

private:
    string_contents contents;
    bool is_folded;
};

bool stands_at(units const & text, std::size_t start, units const & sought) {
    for (std::size_t i = 0; i < sought.size(); ++i) {
        if (text[start + i] != sought[i]) {
            return false;
        }
    }
    return true;
}

CFIndex find(units const & text, units const & sought, CFStringCompareFlags options) {
    if (sought.size() == 0 || sought.size() > text.size()) {
        return kCFNotFound;
    }
    auto const last = text.size() - sought.size();
    auto const backwards = (options & kCFCompareBackwards) != 0;
    auto const attempts = (options & kCFCompareAnchored) != 0 ? 1 : last + 1;
    for (std::size_t i = 0; i < attempts; ++i) {
        auto const start = backwards ? last - i : i;
        if (stands_at(text, start, sought)) {
            return static_cast<CFIndex>(start);
        }
    }
    return kCFNotFound;
}

} // namespace

} // namespace cf

CFRange CFStringFind(CFStringRef string, CFStringRef sought, CFStringCompareFlags options) {
    auto const & text = cf::checked<__CFString>(string);
    auto const & needle = cf::checked<__CFString>(sought);
    auto const found = cf::find({&text, options}, {&needle, options}, options);
    return {found, found == kCFNotFound ? 0 : needle.length};
}
