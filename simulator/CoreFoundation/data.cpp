#include "simulator/CoreFoundation/data.hpp"

#include "simulator/CoreFoundation/allocators.hpp"
#include "simulator/CoreFoundation/descriptions.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace cf {

namespace {

void destroy_data(object & object, doomed_objects & doomed) {
    auto const & data = static_cast<__CFData const &>(object);
    if (data.frees_bytes) {
        std::free(const_cast<UInt8 *>(data.bytes));
    }
    destroy<__CFData>(object, doomed);
}

std::string_view text_of(object const & object) {
    auto const & data = static_cast<__CFData const &>(object);
    return {reinterpret_cast<char const *>(data.bytes), static_cast<std::size_t>(data.length)};
}

bool equal_data(object const & left, object const & right) {
    return text_of(left) == text_of(right);
}

CFHashCode hash_data(object const & object) {
    return std::hash<std::string_view>{}(text_of(object));
}

void append_hexadecimal(std::string & text, std::span<UInt8 const> bytes) {
    for (auto const byte : bytes) {
        fmt::format_to(std::back_inserter(text), "{:02x}", byte);
    }
}

void describe_data(object const & object, std::u16string & text) {
    constexpr CFIndex least_capacity_of_mutable = 16;
    constexpr std::size_t shown_whole = 24;
    constexpr std::size_t shown_first = 16;
    constexpr std::size_t shown_last = 8;

    auto const & data = static_cast<__CFData const &>(object);
    auto const capacity =
        data.is_mutable ? std::max(data.length, least_capacity_of_mutable) : data.length;
    auto line = fmt::format("{{length = {}, capacity = {}, bytes = 0x", data.length, capacity);
    auto const bytes = bytes_of(&data);
    if (bytes.size() <= shown_whole) {
        append_hexadecimal(line, bytes);
    } else {
        append_hexadecimal(line, bytes.first(shown_first));
        line += " ... ";
        append_hexadecimal(line, bytes.last(shown_last));
    }
    append_heading(text, object, "CFData");
    append_ascii(text, line + "}");
}

} // namespace

writable_data create_data_to_fill(std::size_t length, mutability wanted) {
    auto * const data =
        create_with_extra<__CFData>(length, nullptr, static_cast<CFIndex>(length), false, wanted);
    auto * const bytes = reinterpret_cast<UInt8 *>(data + 1);
    data->bytes = length == 0 && !data->is_mutable ? nullptr : bytes;
    return {data, bytes};
}

CFDataRef create_data(std::span<UInt8 const> bytes, mutability wanted) {
    auto const [data, room] = create_data_to_fill(bytes.size(), wanted);
    std::ranges::copy(bytes, room);
    return data;
}

data_bytes::data_bytes(std::size_t most)
    : memory{static_cast<UInt8 *>(std::malloc(std::max<std::size_t>(most, 1)))} {
    if (memory == nullptr) {
        throw std::bad_alloc{};
    }
}

UInt8 * data_bytes::release() {
    auto * const bytes = memory.release();
    auto * const smaller = std::realloc(bytes, std::max<std::size_t>(used, 1));
    return smaller == nullptr ? bytes : static_cast<UInt8 *>(smaller);
}

CFDataRef create_data(data_bytes bytes, mutability wanted) {
    auto const length = static_cast<CFIndex>(bytes.size());
    return create<__CFData>(bytes.release(), length, true, wanted);
}

} // namespace cf

constinit cf::object_type const __CFData::class_type{
    .id = 20,
    .name = "CFData",
    .destroy = cf::destroy_data,
    .equal = cf::equal_data,
    .hash = cf::hash_data,
    .describe = cf::describe_data,
};

CFTypeID CFDataGetTypeID() {
    return __CFData::class_type.id;
}

CFDataRef CFDataCreate(CFAllocatorRef, UInt8 const * bytes, CFIndex length) {
    if (length < 0) {
        return nullptr;
    }
    if (bytes == nullptr && length > 0) {
        cf::trap("CFDataCreate", "the bytes are null");
    }
    return cf::create_data({bytes, static_cast<std::size_t>(length)});
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef, UInt8 const * bytes, CFIndex length,
                                      CFAllocatorRef bytes_deallocator) {
    if (length < 0) {
        return nullptr;
    }
    return cf::create<__CFData>(bytes, length, bytes_deallocator != kCFAllocatorNull,
                                cf::mutability::immutable);
}

CFIndex CFDataGetLength(CFDataRef data) {
    return cf::checked<__CFData>(data).length;
}

UInt8 const * CFDataGetBytePtr(CFDataRef data) {
    return cf::checked<__CFData>(data).bytes;
}
