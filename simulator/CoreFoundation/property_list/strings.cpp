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

property_list_strings::~property_list_strings() {
    for (auto const & slot : table) {
        if (slot.string != nullptr) {
            release(*slot.string);
        }
    }
}

void property_list_strings::grow() {
    std::vector<string_slot> larger(std::max(first_slots, table.size() * 2));
    auto const mask = larger.size() - 1;
    for (auto const & slot : table) {
        if (slot.string != nullptr) {
            auto index = slot.hash & mask;
            while (larger[index].string != nullptr) {
                index = (index + 1) & mask;
            }
            larger[index] = slot;
        }
    }
    table = std::move(larger);
}

// Returns the slot that has the text, or the free one for it.
template <typename Text>
property_list_strings::string_slot & property_list_strings::slot_of(Text text, CFHashCode hash) {
    if (taken * 2 >= table.size()) {
        grow();
    }
    auto const mask = table.size() - 1;
    auto index = hash & mask;
    while (table[index].string != nullptr &&
           !(table[index].hash == hash && holds(table[index].string, text))) {
        index = (index + 1) & mask;
    }
    return table[index];
}

CFStringRef property_list_strings::add(string_slot & slot, CFStringRef string, CFHashCode hash) {
    string->hash.store(hash, std::memory_order_relaxed);
    slot = {hash, string};
    ++taken;
    return retained(string);
}

CFStringRef property_list_strings::from_ascii(std::string_view text) {
    if (wanted == mutability::is_mutable) {
        return create_ascii_string(text, wanted);
    }
    auto const hash = hash_of_ascii(text);
    auto & slot = slot_of(text, hash);
    return slot.string != nullptr ? retained(slot.string)
                                  : add(slot, create_ascii_string(text), hash);
}

CFStringRef property_list_strings::from_utf16(std::u16string_view text) {
    if (std::ranges::all_of(text, [](char16_t unit) { return unit < 0x80; })) {
        return from_ascii(std::string{text.begin(), text.end()});
    }
    return only(create_string(text, wanted));
}

CFStringRef property_list_strings::from_utf8(std::string_view text) {
    return is_ascii(text) ? from_ascii(text) : only(create_utf8_string(text, wanted));
}

// Takes a new string beyond ASCII, or null.
CFStringRef property_list_strings::only(CFStringRef string) {
    if (string == nullptr || wanted == mutability::is_mutable) {
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
