// Creating and reading strings.
#include "simulator/CoreFoundation/encodings.hpp"

#include <limits>
#include <span>

namespace cf {

namespace {

CFStringRef create_from(std::string_view bytes, CFStringEncoding encoding, bool external) {
    if (encoding == kCFStringEncodingUTF8 && is_ascii(bytes)) {
        return create_ascii_string(bytes);
    }
    auto const text = decode(bytes, encoding, external);
    return text ? create_string(*text) : nullptr;
}

// Leaves an empty text where the buffer is too small for all of it and its terminator.
bool copy_terminated(std::string_view text, std::span<char> buffer) {
    bool const fits = text.size() < buffer.size();
    auto const length = fits ? text.copy(buffer.data(), text.size()) : 0;
    buffer[length] = '\0';
    return fits;
}

// Returns the most bytes that one UTF-16 unit can become.
CFIndex bytes_per_unit(CFStringEncoding encoding) {
    switch (encoding) {
    case kCFStringEncodingUTF8:
        return 3;
    case kCFStringEncodingUTF16:
    case utf16be_encoding:
    case utf16le_encoding:
        return 2;
    case utf32_encoding:
    case utf32be_encoding:
    case utf32le_encoding:
        return 4;
    default:
        return 1;
    }
}

} // namespace

} // namespace cf

CFTypeID CFStringGetTypeID() {
    return __CFString::class_type.id;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, UInt8 const * bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean is_external_representation) {
    if (length < 0) {
        return nullptr;
    }
    if (bytes == nullptr && length > 0) {
        cf::trap("CFStringCreateWithBytes", "the bytes are null");
    }
    return cf::create_from(
        {reinterpret_cast<char const *>(bytes), static_cast<std::size_t>(length)}, encoding,
        is_external_representation != 0);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef string) {
    auto const & original = cf::checked<__CFString>(string);
    if (!original.is_mutable) {
        cf::retain(original);
        return string;
    }
    auto const contents = cf::contents_of(string);
    return contents.is_wide() ? cf::create_string(contents.utf16())
                              : cf::create_ascii_string(contents.ascii());
}

CFIndex CFStringGetLength(CFStringRef string) {
    return cf::checked<__CFString>(string).length;
}

UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index) {
    auto const & checked = cf::checked<__CFString>(string);
    if (index < 0 || index >= checked.length) {
        return 0;
    }
    return cf::contents_of(string)[static_cast<std::size_t>(index)];
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
    auto const factor = cf::bytes_per_unit(encoding);
    return length > std::numeric_limits<CFIndex>::max() / factor ? CFIndex{kCFNotFound}
                                                                 : length * factor;
}

Boolean CFStringGetCString(CFStringRef string, char * buffer, CFIndex size,
                           CFStringEncoding encoding) {
    cf::checked<__CFString>(string);
    if (buffer == nullptr || size <= 0) {
        return false;
    }
    auto const contents = cf::contents_of(string);
    if (encoding == kCFStringEncodingUTF8 && !contents.is_wide()) {
        return cf::copy_terminated(contents.ascii(), {buffer, static_cast<std::size_t>(size)});
    }
    auto const bytes = cf::encode(contents, encoding);
    if (!bytes) {
        buffer[0] = '\0';
        return false;
    }
    return cf::copy_terminated(*bytes, {buffer, static_cast<std::size_t>(size)});
}
