#include "simulator/CoreFoundation/property_list/strings.hpp"

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

CFStringRef retained(CFStringRef string) {
    retain(*string);
    return string;
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

// The slot that has the text, or is free for it.
template <class Text>
PropertyListStrings::Slot & PropertyListStrings::slot_of(Text text, CFHashCode hash) {
    if (count_ * 2 >= slots_.size()) {
        grow();
    }
    auto const mask = slots_.size() - 1;
    auto index = hash & mask;
    while (slots_[index].string != nullptr &&
           !(slots_[index].hash == hash && holds(slots_[index].string, text))) {
        index = (index + 1) & mask;
    }
    return slots_[index];
}

CFStringRef PropertyListStrings::add(Slot & slot, CFStringRef string, CFHashCode hash) {
    string->hash.store(hash, std::memory_order_relaxed);
    slot = {hash, string};
    ++count_;
    return retained(string);
}

CFStringRef PropertyListStrings::from_ascii(std::string_view text) {
    if (mutability_ == Mutability::is_mutable) {
        return create_ascii_string(text, mutability_);
    }
    auto const hash = hash_of_ascii(text);
    auto & slot = slot_of(text, hash);
    return slot.string != nullptr ? retained(slot.string)
                                  : add(slot, create_ascii_string(text), hash);
}

CFStringRef PropertyListStrings::from_utf16(std::u16string_view text) {
    if (std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; })) {
        return from_ascii(std::string{text.begin(), text.end()});
    }
    return only(create_string(text, mutability_));
}

CFStringRef PropertyListStrings::from_utf8(std::string_view text) {
    return is_ascii(text) ? from_ascii(text) : only(create_utf8_string(text, mutability_));
}

// Takes a new string beyond ASCII, or null.
CFStringRef PropertyListStrings::only(CFStringRef string) {
    if (string == nullptr || mutability_ == Mutability::is_mutable) {
        return string;
    }
    auto const text = contents_of(string).utf16();
    auto const hash = hash_of_utf16(text);
    auto & slot = slot_of(text, hash);
    if (slot.string == nullptr) {
        return add(slot, string, hash);
    }
    release(*string);
    return retained(slot.string);
}

} // namespace cf
