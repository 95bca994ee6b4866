// Strings inside: how they are stored, read and made.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

#include <span>

// The text is stored in 8 bits a character exactly if it is all ASCII, else as UTF-16; so equal
// texts are always stored alike. The storage follows the object or is a constant.
struct __CFString : cf::Object {
    static cf::Type const class_type;

    void const * storage;
    CFIndex length;                       // in UTF-16 code units
    mutable std::atomic<CFHashCode> hash; // 0: not computed yet
    bool is_wide;
    bool is_mutable;

    constexpr __CFString(void const * text, CFIndex units, bool wide, bool can_change,
                         std::int64_t first_references = 1)
        : Object{class_type, first_references}
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

enum class Mutability : bool { immutable, is_mutable };

// A borrowed look at a string's text, or at text that may become one. Exactly one of the two views
// holds it.
class StringContents {
public:
    explicit StringContents(__CFString const & string)
        : storage_{string.storage}
        , length_{static_cast<std::size_t>(string.length)}
        , is_wide_{string.is_wide} {}
    explicit StringContents(std::string_view ascii)
        : storage_{ascii.data()}
        , length_{ascii.size()}
        , is_wide_{false} {}
    explicit StringContents(std::u16string_view utf16)
        : storage_{utf16.data()}
        , length_{utf16.size()}
        , is_wide_{true} {}

    bool is_wide() const { return is_wide_; }
    std::size_t length() const { return length_; }

    std::string_view ascii() const {
        return {static_cast<char const *>(storage_), is_wide_ ? 0 : length_};
    }
    std::u16string_view utf16() const {
        return {static_cast<char16_t const *>(storage_), is_wide_ ? length_ : 0};
    }
    char16_t operator[](std::size_t index) const {
        return is_wide_
                   ? static_cast<char16_t const *>(storage_)[index]
                   : static_cast<char16_t>(static_cast<unsigned char const *>(storage_)[index]);
    }

private:
    void const * storage_;
    std::size_t length_;
    bool is_wide_;
};

inline StringContents contents_of(CFStringRef string) {
    return StringContents{*string};
}

// The hash of a string with this text.
CFHashCode hash_of_ascii(std::string_view text) noexcept;
CFHashCode hash_of_utf16(std::u16string_view text) noexcept; // at least one unit is not ASCII

// True if all characters are below 0x80.
bool is_ascii(std::string_view text) noexcept;

// New strings, owned by the caller. The text of the first must be ASCII; the second takes any code
// units, lone surrogates too; the third answers null for invalid UTF-8 and drops no byte-order
// mark.
CFStringRef create_ascii_string(std::string_view text,
                                Mutability mutability = Mutability::immutable);
CFStringRef create_string(std::u16string_view text, Mutability mutability = Mutability::immutable);
CFStringRef create_utf8_string(std::string_view text,
                               Mutability mutability = Mutability::immutable);

// An immortal string that is never counted.
CFStringRef create_constant_string(std::u16string_view text);

// Appends the string's text, code unit by code unit.
void append(std::u16string & text, CFStringRef string);
void append_ascii(std::u16string & text, std::string_view ascii);

} // namespace cf
