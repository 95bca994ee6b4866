// Typed access to the values of a scenario, each of which knows its key path.
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

// A scenario that cannot be understood. The text is one line: the key path, a colon and the fault.
class scenario_fault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One value of a scenario, borrowed from it, with its key path. Every conversion throws
// scenario_fault where the value has another type or is out of range.
class node {
public:
    node(CFTypeRef value, std::string path)
        : m_value{value}
        , m_path{std::move(path)} {}

    CFTypeRef value() const { return m_value; }
    [[noreturn]] void fail(std::string_view fault) const;

    bool is_string() const { return CFGetTypeID(m_value) == CFStringGetTypeID(); }
    bool is_array() const { return CFGetTypeID(m_value) == CFArrayGetTypeID(); }
    bool is_dictionary() const { return CFGetTypeID(m_value) == CFDictionaryGetTypeID(); }
    bool is_integer() const;

    std::string text() const;
    cf_owner<CFStringRef> string() const;
    bool boolean() const;
    // Seconds or a factor: a real or an integer, finite and not negative.
    double amount() const;
    // An integer from -2^63 to 2^64-1, as its 64 bits.
    std::uint64_t bits() const { return whole().bits; }
    // An integer without a sign, up to 64 bits.
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
    // The elements of an array, in order.
    std::vector<node> elements() const;

    node child(std::string_view key, CFTypeRef value) const;

private:
    struct whole_number {
        bool negative;
        std::uint64_t bits;
    };
    whole_number whole() const;

    CFTypeRef m_value;
    std::string m_path;
};

// A dictionary of a scenario.
class dictionary_node {
public:
    // Throws scenario_fault for a value that is no dictionary or has a key that is no string.
    explicit dictionary_node(node const & self);
    // Throws scenario_fault for a key that is not among the known ones, too.
    dictionary_node(node const & self, std::initializer_list<std::string_view> known_keys);

    std::optional<node> find(std::string_view key) const;
    // Throws scenario_fault where there is no such key.
    node at(std::string_view key) const;

    struct entry {
        CFStringRef key; // borrowed
        std::string name;
        node value;
    };
    // Sorted by name.
    std::vector<entry> const & entries() const { return m_entries; }

private:
    node m_self;
    std::vector<entry> m_entries;
};

} // namespace mobile_device
