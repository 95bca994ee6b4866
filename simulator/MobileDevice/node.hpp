// Typed access to the values of a scenario, each with its key path.
#pragma once

#include "simulator/MobileDevice/values.hpp"

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

namespace mobile_device {

// Says why a scenario is invalid. The text is one line: the key path, a colon and the fault.
class scenario_fault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One value of a scenario, borrowed from it, with its key path. Every conversion throws
// scenario_fault where the value has another type or is out of range.
class node {
public:
    node(CFTypeRef value, std::string path)
        : held{value}
        , key_path{std::move(path)} {}

    CFTypeRef value() const { return held; }
    [[noreturn]] void fail(std::string_view fault) const;

    bool is_string() const { return CFGetTypeID(held) == CFStringGetTypeID(); }
    bool is_array() const { return CFGetTypeID(held) == CFArrayGetTypeID(); }
    bool is_dictionary() const { return CFGetTypeID(held) == CFDictionaryGetTypeID(); }
    bool is_integer() const;

    std::string text() const;
    // Returns a string, or the one that a dictionary with the "$type" text means.
    cf_owner<CFStringRef> string() const;
    bool boolean() const;
    // Returns seconds or a factor: a real or an integer, finite and not negative.
    double amount() const;
    // Returns an integer from -2^63 to 2^64-1, as its 64 bits.
    std::uint64_t bits() const { return whole().bits; }
    // Returns an integer without a sign, up to 64 bits.
    std::uint64_t unsigned_integer() const;
    template <std::signed_integral T>
    T integer() const {
        auto const number = whole();
        auto const value = static_cast<std::int64_t>(number.bits);
        if (number.negative != (value < 0) || value < std::numeric_limits<T>::min() ||
            value > std::numeric_limits<T>::max()) {
            fail(fmt::format("must be from {} to {}", std::numeric_limits<T>::min(),
                             std::numeric_limits<T>::max()));
        }
        return static_cast<T>(value);
    }
    // Returns the elements of an array, in order.
    std::vector<node> elements() const;

    node child(std::string_view key, CFTypeRef value) const;

private:
    struct whole_number {
        bool negative;
        std::uint64_t bits;
    };
    whole_number whole() const;

    CFTypeRef held;
    std::string key_path;
};

// A dictionary of a scenario.
class dictionary_node {
public:
    // Throws scenario_fault for a value that is not a dictionary or has a key that is not a string.
    explicit dictionary_node(node const & from);
    // Throws scenario_fault for an unknown key, too.
    dictionary_node(node const & from, std::initializer_list<std::string_view> known_keys);

    std::optional<node> find(std::string_view key) const;
    // Returns the value; throws scenario_fault if the key is missing.
    node at(std::string_view key) const;

    struct entry {
        CFStringRef key; // borrowed
        std::string name;
        node value;
    };
    // Returns the entries, sorted by name.
    std::vector<entry> const & entries() const { return sorted; }

private:
    node self;
    std::vector<entry> sorted;
};

} // namespace mobile_device
