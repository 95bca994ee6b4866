#include "simulator/CoreFoundation/property_list_strings.hpp"

#include "simulator/CoreFoundation/encodings.hpp"

#include <algorithm>

namespace cf {

namespace {

constexpr std::size_t first_slots = 64;

bool holds(CFStringRef string, std::string_view text) {
    return !string->is_wide && contents_of(string).ascii() == text;
}
bool holds(CFStringRef string, std::u16string_view text) {
    return string->is_wide && contents_of(string).utf16() == text;
}

CFStringRef create(std::string_view text) {
    return create_ascii_string(text);
}
CFStringRef create(std::u16string_view text) {
    return create_string(text);
}

} // namespace

PropertyListStrings::~PropertyListStrings() {
    for (auto const & slot : slots_) {
        if (slot.string != nullptr) {
            release(*slot.string);
        }
    }
}

void PropertyListStrings::grow() {
    std::vector<Slot> larger(std::max(first_slots, slots_.size() * 2));
    auto const mask = larger.size() - 1;
    for (auto const & slot : slots_) {
        if (slot.string != nullptr) {
            auto index = slot.hash & mask;
            while (larger[index].string != nullptr) {
                index = (index + 1) & mask;
            }
            larger[index] = slot;
        }
    }
    slots_ = std::move(larger);
}

template <class Text>
CFStringRef PropertyListStrings::shared(Text text, CFHashCode hash) {
    if (count_ * 2 >= slots_.size()) {
        grow();
    }
    auto const mask = slots_.size() - 1;
    auto index = hash & mask;
    while (slots_[index].string != nullptr) {
        if (slots_[index].hash == hash && holds(slots_[index].string, text)) {
            retain(*slots_[index].string);
            return slots_[index].string;
        }
        index = (index + 1) & mask;
    }
    auto const * const string = create(text);
    string->hash.store(hash, std::memory_order_relaxed);
    slots_[index] = {hash, string};
    ++count_;
    retain(*string);
    return string;
}

CFStringRef PropertyListStrings::from_ascii(std::string_view text) {
    return mutability_ == Mutability::is_mutable ? create_ascii_string(text, mutability_)
                                                 : shared(text, hash_of_ascii(text));
}

CFStringRef PropertyListStrings::from_utf16(std::u16string_view text) {
    if (mutability_ == Mutability::is_mutable) {
        return create_string(text, mutability_);
    }
    if (std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; })) {
        return from_ascii(std::string{text.begin(), text.end()});
    }
    return shared(text, hash_of_utf16(text));
}

CFStringRef PropertyListStrings::from_utf8(std::string_view text) {
    if (is_ascii(text)) {
        return from_ascii(text);
    }
    wide_.clear();
    return append_utf8(wide_, text) ? from_utf16(wide_) : nullptr;
}

} // namespace cf
