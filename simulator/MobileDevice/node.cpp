#include "simulator/MobileDevice/node.hpp"

#include "simulator/MobileDevice/text.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <algorithm>
#include <cmath>

namespace mobile_device {
namespace {

void append_units(std::u16string & to, CFStringRef part) {
    for (CFIndex index = 0; index < CFStringGetLength(part); ++index) {
        to += static_cast<char16_t>(CFStringGetCharacterAtIndex(part, index));
    }
}

char16_t read_unit(node const & value) {
    auto const unit = value.unsigned_integer();
    if (unit > 0xFFFF) {
        value.fail("must be a UTF-16 unit");
    }
    return static_cast<char16_t>(unit);
}

cf_owner<CFStringRef> join_parts(node const & value) {
    dictionary_node const description{value, {"$type", "Parts"}};
    std::u16string units;
    for (auto const & part : description.at("Parts").elements()) {
        if (part.is_string()) {
            append_units(units, part.string().get());
        } else {
            units += read_unit(part);
        }
    }
    return adopt(CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(units.data()),
        static_cast<CFIndex>(units.size() * sizeof(char16_t)), kCFStringEncodingUTF16, false));
}

} // namespace

void node::fail(std::string_view fault) const {
    throw scenario_fault{
        on_one_line(fmt::format("{}: {}", key_path.empty() ? "root" : key_path, fault))};
}

bool node::is_integer() const {
    return CFGetTypeID(held) == CFNumberGetTypeID() &&
           !CFNumberIsFloatType(static_cast<CFNumberRef>(held));
}

std::string node::text() const {
    if (!is_string()) {
        fail("must be a string");
    }
    auto result = whole_text(static_cast<CFStringRef>(held));
    if (!result) {
        fail("is not valid Unicode text");
    }
    return *result;
}

cf_owner<CFStringRef> node::string() const {
    if (is_string()) {
        return retain(static_cast<CFStringRef>(held));
    }
    auto const type = is_dictionary() ? dictionary_node{*this}.find("$type") : std::nullopt;
    if (!type || type->text() != "text") {
        fail("must be a string");
    }
    return join_parts(*this);
}

bool node::boolean() const {
    if (CFGetTypeID(held) != CFBooleanGetTypeID()) {
        fail("must be a boolean");
    }
    return CFBooleanGetValue(static_cast<CFBooleanRef>(held));
}

double node::amount() const {
    if (CFGetTypeID(held) != CFNumberGetTypeID()) {
        fail("must be a number");
    }
    double result = 0;
    CFNumberGetValue(static_cast<CFNumberRef>(held), kCFNumberFloat64Type, &result);
    if (!std::isfinite(result) || result < 0) {
        fail("must be finite and not negative");
    }
    return result;
}

// A property list holds integers of up to 128 bits, and what is read as 64 bits is their low half.
// An integer is that half, with or without a sign, exactly where they have the same floating-point
// value: that of a wider integer differs by a multiple of 2^64, which no rounding hides.
node::whole_number node::whole() const {
    if (!is_integer()) {
        fail("must be an integer");
    }
    auto const number = static_cast<CFNumberRef>(held);
    std::int64_t low = 0;
    double rounded = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &low);
    CFNumberGetValue(number, kCFNumberFloat64Type, &rounded);
    auto const bits = static_cast<std::uint64_t>(low);
    if (rounded != static_cast<double>(low) && rounded != static_cast<double>(bits)) {
        fail("must fit 64 bits");
    }
    return {rounded < 0, bits};
}

std::uint64_t node::unsigned_integer() const {
    auto const number = whole();
    if (number.negative) {
        fail("must not be negative");
    }
    return number.bits;
}

std::vector<node> node::elements() const {
    if (!is_array()) {
        fail("must be an array");
    }
    auto const array = static_cast<CFArrayRef>(held);
    std::vector<node> result;
    for (CFIndex index = 0; index < CFArrayGetCount(array); ++index) {
        result.emplace_back(CFArrayGetValueAtIndex(array, index),
                            fmt::format("{}[{}]", key_path, index));
    }
    return result;
}

node node::child(std::string_view key, CFTypeRef value) const {
    return {value, key_path.empty() ? std::string{key} : fmt::format("{}.{}", key_path, key)};
}

dictionary_node::dictionary_node(node const & from)
    : self{from} {
    if (!self.is_dictionary()) {
        self.fail("must be a dictionary");
    }
    auto const dictionary = static_cast<CFDictionaryRef>(self.value());
    auto const count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<void const *> keys(count);
    std::vector<void const *> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    for (std::size_t index = 0; index < count; ++index) {
        node const key{keys[index], ""};
        auto const name =
            key.is_string() ? whole_text(static_cast<CFStringRef>(key.value())) : std::nullopt;
        if (!name) {
            self.fail("has a key that is not valid text");
        }
        sorted.push_back(
            {static_cast<CFStringRef>(keys[index]), *name, self.child(*name, values[index])});
    }
    std::ranges::sort(sorted, {}, &entry::name);
}

dictionary_node::dictionary_node(node const & from,
                                 std::initializer_list<std::string_view> known_keys)
    : dictionary_node{from} {
    for (auto const & each : sorted) {
        if (std::ranges::find(known_keys, each.name) == known_keys.end()) {
            each.value.fail("unknown key");
        }
    }
}

std::optional<node> dictionary_node::find(std::string_view key) const {
    auto const found = std::ranges::find(sorted, key, &entry::name);
    return found == sorted.end() ? std::nullopt : std::optional{found->value};
}

node dictionary_node::at(std::string_view key) const {
    auto const found = find(key);
    if (!found) {
        self.fail(fmt::format("the key {} is missing", key));
    }
    return *found;
}

} // namespace mobile_device
