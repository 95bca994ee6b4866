#include "simulator/CoreFoundation/strings.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"
#include "simulator/CoreFoundation/encodings.hpp"

#include <algorithm>
#include <cstring>
#include <functional>

namespace cf {

namespace {

template <typename Unit>
CFStringRef fill(void * memory, std::basic_string_view<Unit> text, bool is_mutable,
                 std::int64_t references) {
    auto * const string = ::new (memory) __CFString{nullptr, static_cast<CFIndex>(text.size()),
                                                    sizeof(Unit) > 1, is_mutable, references};
    auto * const storage = reinterpret_cast<Unit *>(string + 1);
    text.copy(storage, text.size());
    string->storage = storage;
    return string;
}

bool is_ascii(std::u16string_view text) noexcept {
    char16_t all = 0;
    for (auto const unit : text) {
        all |= unit;
    }
    return all < 0x80;
}

std::string narrowed(std::u16string_view ascii) {
    std::string text(ascii.size(), '\0');
    std::ranges::transform(ascii, text.begin(),
                           [](char16_t unit) { return static_cast<char>(unit); });
    return text;
}

CFHashCode never_zero(CFHashCode hash) {
    return hash == 0 ? 1 : hash;
}

CFHashCode hash_string(object const & object) {
    auto const & string = static_cast<__CFString const &>(object);
    auto hash = string.hash.load(std::memory_order_relaxed);
    if (hash == 0) {
        auto const contents = contents_of(&string);
        hash =
            contents.is_wide() ? hash_of_utf16(contents.utf16()) : hash_of_ascii(contents.ascii());
        string.hash.store(hash, std::memory_order_relaxed);
    }
    return hash;
}

bool equal_strings(object const & left, object const & right) {
    auto const one = contents_of(static_cast<CFStringRef>(&left));
    auto const other = contents_of(static_cast<CFStringRef>(&right));
    return one.is_wide() == other.is_wide() && one.ascii() == other.ascii() &&
           one.utf16() == other.utf16();
}

void describe_string(object const & object, std::u16string & text) {
    append_heading(text, object, "CFString");
    append_ascii(text, "{contents = \"");
    append(text, static_cast<CFStringRef>(&object));
    append_ascii(text, "\"}");
}

} // namespace

CFHashCode hash_of_ascii(std::string_view text) noexcept {
    return never_zero(std::hash<std::string_view>{}(text));
}

CFHashCode hash_of_utf16(std::u16string_view text) noexcept {
    return never_zero(std::hash<std::u16string_view>{}(text));
}

bool is_ascii(std::string_view text) noexcept {
    constexpr std::uint64_t high_bits = 0x8080808080808080;
    while (text.size() >= sizeof high_bits) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data(), sizeof word);
        if ((word & high_bits) != 0) {
            return false;
        }
        text.remove_prefix(sizeof word);
    }
    return std::ranges::none_of(text, [](char c) { return (c & 0x80) != 0; });
}

CFStringRef create_ascii_string(std::string_view text, mutability wanted) {
    return fill(allocate(sizeof(__CFString) + text.size()), text, wanted == mutability::is_mutable,
                1);
}

CFStringRef create_string(std::u16string_view text, mutability wanted) {
    if (is_ascii(text)) {
        return create_ascii_string(narrowed(text), wanted);
    }
    return fill(allocate(sizeof(__CFString) + text.size() * sizeof(char16_t)), text,
                wanted == mutability::is_mutable, 1);
}

CFStringRef create_utf8_string(std::string_view text, mutability wanted) {
    if (is_ascii(text)) {
        return create_ascii_string(text, wanted);
    }
    auto const length = utf16_length(text);
    auto * const string = create_with_extra<__CFString>(length * sizeof(char16_t), nullptr,
                                                        static_cast<CFIndex>(length), true,
                                                        wanted == mutability::is_mutable);
    auto * const storage = reinterpret_cast<char16_t *>(string + 1);
    string->storage = storage;
    if (!decode_utf8(text, storage)) {
        release(*string);
        return nullptr;
    }
    return string;
}

CFStringRef create_constant_string(std::u16string_view text) {
    if (is_ascii(text)) {
        auto const ascii = narrowed(text);
        return fill(allocate_uncounted(sizeof(__CFString) + ascii.size()), std::string_view{ascii},
                    false, immortal);
    }
    return fill(allocate_uncounted(sizeof(__CFString) + text.size() * sizeof(char16_t)), text,
                false, immortal);
}

void append(std::u16string & text, CFStringRef string) {
    auto const contents = contents_of(string);
    append_ascii(text, contents.ascii());
    text += contents.utf16();
}

void append_ascii(std::u16string & text, std::string_view ascii) {
    text.append(ascii.begin(), ascii.end());
}

} // namespace cf

constinit cf::object_type const __CFString::class_type{
    .id = 7,
    .name = "CFString",
    .destroy = cf::destroy<__CFString>,
    .equal = cf::equal_strings,
    .hash = cf::hash_string,
    .describe = cf::describe_string,
};
