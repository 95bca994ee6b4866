// How strings are stored, read and created.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

#include <span>

// The text is stored in 8 bits a character if it is all ASCII, else as UTF-16, so that equal texts
// are always stored alike. The storage follows the object or is a constant.
struct __CFString : cf::object {
    static cf::object_type const class_type;

    void const * storage;
    CFIndex length;                       // in UTF-16 code units
    mutable std::atomic<CFHashCode> hash; // 0: not computed yet
    bool is_wide;
    bool is_mutable;

    constexpr __CFString(void const * text, CFIndex units, bool wide, bool can_change,
                         std::int64_t first_references = 1)
        : object{class_type, first_references}
        , storage{text}
        , length{units}
        , hash{0}
        , is_wide{wide}
        , is_mutable{can_change} {}

    // An immortal constant of ASCII characters.
    constexpr explicit __CFString(std::string_view ascii)
        : __CFString{ascii.data(), static_cast<CFIndex>(ascii.size()), false, false, cf::immortal} {
    }
};

namespace cf {

enum class mutability : bool { immutable, is_mutable };

// A view of a string's text, or of text that may become one. Exactly one of the two views
// holds it.
class string_contents {
public:
    explicit string_contents(__CFString const & string)
        : storage{string.storage}
        , units{static_cast<std::size_t>(string.length)}
        , wide{string.is_wide} {}
    explicit string_contents(std::string_view ascii)
        : storage{ascii.data()}
        , units{ascii.size()}
        , wide{false} {}
    explicit string_contents(std::u16string_view utf16)
        : storage{utf16.data()}
        , units{utf16.size()}
        , wide{true} {}

    bool is_wide() const { return wide; }
    std::size_t length() const { return units; }

    std::string_view ascii() const {
        return {static_cast<char const *>(storage), wide ? 0 : units};
    }
    std::u16string_view utf16() const {
        return {static_cast<char16_t const *>(storage), wide ? units : 0};
    }
    char16_t operator[](std::size_t index) const {
        return wide ? static_cast<char16_t const *>(storage)[index]
                    : static_cast<char16_t>(static_cast<unsigned char const *>(storage)[index]);
    }

private:
    void const * storage;
    std::size_t units;
    bool wide;
};

inline string_contents contents_of(CFStringRef string) {
    return string_contents{*string};
}

// Returns the hash of a string with this text.
CFHashCode hash_of_ascii(std::string_view text) noexcept;
CFHashCode hash_of_utf16(std::u16string_view text) noexcept; // at least one unit is not ASCII

// Returns whether all characters are below 0x80.
bool is_ascii(std::string_view text) noexcept;

// Create strings, owned by the caller. The text of the first must be ASCII; the second takes any
// code units, lone surrogates too; the third returns null for invalid UTF-8 and keeps a byte-order
// mark.
CFStringRef create_ascii_string(std::string_view text, mutability wanted = mutability::immutable);
CFStringRef create_string(std::u16string_view text, mutability wanted = mutability::immutable);
CFStringRef create_utf8_string(std::string_view text, mutability wanted = mutability::immutable);

// Creates an immortal string that is never counted.
CFStringRef create_constant_string(std::u16string_view text);

// Appends the string's text, code unit by code unit.
void append(std::u16string & text, CFStringRef string);
void append_ascii(std::u16string & text, std::string_view ascii);

} // namespace cf
