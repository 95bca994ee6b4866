#include "simulator/CoreFoundation/property_list/binary_reader.hpp"

#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list/binary_format.hpp"
#include "simulator/CoreFoundation/property_list/uid.hpp"
#include "simulator/CoreFoundation/sets.hpp"

#include <algorithm>
#include <bit>
#include <optional>
#include <unordered_map>
#include <vector>

namespace cf {

namespace {

using namespace binary;

using byte_span = std::span<UInt8 const>;

struct malformed {};

void require(bool condition) {
    if (!condition) {
        throw malformed{};
    }
}

std::uint64_t big_endian(byte_span bytes) {
    std::uint64_t value = 0;
    for (auto const byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

// Whether every number below `count` fits into so many bytes.
bool can_count(UInt8 size, std::uint64_t count) {
    return size >= 8 || count <= std::uint64_t{1} << 8 * size;
}

trailer read_trailer(byte_span document) {
    require(document.size() > header.size() + trailer_size);
    auto const bytes = document.last(trailer_size);
    trailer const trailer{bytes[6], bytes[7], big_endian(bytes.subspan(8, 8)),
                          big_endian(bytes.subspan(16, 8)), big_endian(bytes.subspan(24, 8))};
    auto const table_end = document.size() - trailer_size;
    require(trailer.offset_size >= 1 && trailer.offset_size <= 8);
    require(trailer.reference_size >= 1 && trailer.reference_size <= 8);
    require(trailer.root < trailer.object_count);
    require(trailer.table_offset > header.size() && trailer.table_offset < table_end);
    auto const table_size = table_end - trailer.table_offset;
    require(table_size % trailer.offset_size == 0 &&
            table_size / trailer.offset_size == trailer.object_count);
    require(can_count(trailer.offset_size, trailer.table_offset));
    require(can_count(trailer.reference_size, trailer.object_count));
    return trailer;
}

class binary_reader {
public:
    binary_reader(byte_span read, property_list_options wanted)
        : document{read}
        , options{wanted}
        , trailer{read_trailer(read)}
        , bytes_left{most_overlap * read.size()} {}

    owned_reference read() {
        return retained(read_object(trailer.root, deepest_property_list + 1).reference);
    }

private:
    // How often the objects of a document may share the same bytes before it counts as hostile:
    // valid documents never do, but a few bytes could mean any number of long objects.
    static constexpr std::size_t most_overlap = 16;

    // An object and how many levels of containers it consists of. While it is being read there is
    // no reference yet.
    struct known_object {
        owned_reference reference;
        std::size_t height = 0;
    };

    // The part of an object behind its marker.
    struct object_body {
        std::size_t at;
        std::size_t count;
    };

    static owned_reference retained(owned_reference const & reference) {
        return owned_reference{CFRetain(reference.get())};
    }

    byte_span take(std::size_t at, std::size_t size) {
        require(at <= trailer.table_offset && size <= trailer.table_offset - at);
        require(size <= bytes_left);
        bytes_left -= size;
        return document.subspan(at, size);
    }
    byte_span take(object_body body, std::size_t element_size) {
        require(body.count <= document.size() / element_size);
        return take(body.at, body.count * element_size);
    }

    std::size_t offset_of(std::uint64_t number) const {
        require(number < trailer.object_count);
        auto const entry = document.subspan(
            static_cast<std::size_t>(trailer.table_offset + number * trailer.offset_size),
            trailer.offset_size);
        auto const offset = big_endian(entry);
        require(offset >= header.size() && offset < trailer.table_offset);
        return static_cast<std::size_t>(offset);
    }

    // Objects are known by their places, as several numbers may mean the same place.
    known_object const & read_object(std::uint64_t number, std::size_t levels_left) {
        auto const offset = offset_of(number);
        auto const [entry, is_new] = known_objects.try_emplace(offset);
        auto & known = entry->second;
        if (is_new) {
            read_at(offset, levels_left, known);
        }
        require(known.reference != nullptr && known.height <= levels_left);
        return known;
    }

    void read_at(std::size_t offset, std::size_t levels_left, known_object & known) {
        auto const first = take(offset, 1)[0];
        switch (first & 0xf0U) {
        case marker::array:
        case marker::set:
        case marker::dictionary:
            require(levels_left > 0);
            read_container(offset, levels_left - 1, known);
            break;
        default:
            known.reference.reset(read_leaf(first, offset + 1));
        }
    }

    object_body body_of(std::size_t offset) {
        std::size_t const count = take(offset, 1)[0] & 0x0fU;
        if (count != count_follows) {
            return {offset + 1, count};
        }
        auto const first = take(offset + 1, 1)[0];
        require((first & 0xf0U) == marker::integer && (first & 0x0fU) <= 3);
        auto const size = std::size_t{1} << (first & 0x0fU);
        auto const real_count = big_endian(take(offset + 2, size));
        require(real_count <= document.size());
        return {offset + 2 + size, static_cast<std::size_t>(real_count)};
    }

    CFTypeRef read_leaf(UInt8 first, std::size_t at) {
        switch (first) {
        case marker::null:
            return CFRetain(kCFNull);
        case marker::is_false:
            return CFRetain(kCFBooleanFalse);
        case marker::is_true:
            return CFRetain(kCFBooleanTrue);
        case marker::date:
            return CFDateCreate(kCFAllocatorDefault,
                                std::bit_cast<double>(big_endian(take(at, 8))));
        default:
            break;
        }
        auto const size = first & 0x0fU;
        switch (first & 0xf0U) {
        case marker::integer:
            return read_integer(size, at);
        case marker::real:
            return read_real(size, at);
        case marker::data:
            return read_data(take(body_of(at - 1), 1));
        case marker::ascii_string:
            return read_ascii_string(take(body_of(at - 1), 1));
        case marker::utf16_string:
            return read_utf16_string(take(body_of(at - 1), 2));
        case marker::uid:
            return read_uid(take(at, size + 1));
        default:
            throw malformed{};
        }
    }

    // Shorter integers are unsigned, those of 8 and 16 bytes signed.
    CFNumberRef read_integer(unsigned size, std::size_t at) {
        require(size <= 4);
        if (size < 4) {
            auto const value = big_endian(take(at, std::size_t{1} << size));
            return create_integer(static_cast<std::int64_t>(value));
        }
        int128 const wide{static_cast<std::int64_t>(big_endian(take(at, 8))),
                          big_endian(take(at + 8, 8))};
        auto const narrow = static_cast<std::int64_t>(wide.low);
        return widen(narrow) == wide ? create_integer(narrow) : create_wide_integer(wide);
    }

    CFNumberRef read_real(unsigned size, std::size_t at) {
        require(size == 2 || size == 3);
        auto const bits = big_endian(take(at, std::size_t{1} << size));
        return size == 2 ? create_real(std::bit_cast<float>(static_cast<UInt32>(bits)))
                         : create_real(std::bit_cast<double>(bits));
    }

    CFDataRef read_data(byte_span bytes) {
        return create_data(bytes, options.of_data(bytes.empty()));
    }

    // Bytes beyond ASCII are Latin-1.
    CFStringRef read_ascii_string(byte_span bytes) {
        if (std::ranges::all_of(bytes, [](UInt8 byte) { return byte < 0x80; })) {
            return create_ascii_string(std::string{bytes.begin(), bytes.end()}, options.of_leaf());
        }
        return create_string(std::u16string{bytes.begin(), bytes.end()}, options.of_leaf());
    }

    CFStringRef read_utf16_string(byte_span bytes) {
        std::u16string text(bytes.size() / 2, u'\0');
        for (std::size_t index = 0; index < text.size(); ++index) {
            text[index] = static_cast<char16_t>(big_endian(bytes.subspan(index * 2, 2)));
        }
        return create_string(text, options.of_leaf());
    }

    CFTypeRef read_uid(byte_span bytes) {
        require(bytes.size() <= 8);
        auto const value = big_endian(bytes);
        require(value <= 0xffff'ffff);
        return create<keyed_archiver_uid>(static_cast<UInt32>(value));
    }

    void read_container(std::size_t offset, std::size_t levels_left, known_object & known) {
        auto const type = document[offset] & 0xf0U;
        auto const body = body_of(offset);
        auto const size = trailer.reference_size;
        auto const references = take(body, type == marker::dictionary ? size * 2U : size);
        switch (type) {
        case marker::array:
            read_array(references, levels_left, known);
            break;
        case marker::set:
            read_set(references, levels_left, known);
            break;
        default:
            read_dictionary(references, levels_left, known);
        }
    }

    // Returns the child that the reference at the index means; it belongs to known_objects.
    CFTypeRef child(byte_span references, std::size_t index, std::size_t levels_left,
                    known_object & parent) {
        auto const size = trailer.reference_size;
        auto const & known =
            read_object(big_endian(references.subspan(index * size, size)), levels_left);
        parent.height = std::max(parent.height, known.height + 1);
        return known.reference.get();
    }

    // Returns a key or a member of a set, which cannot be a container: hashes of containers say
    // little, and with a hostile document the table of the collection could compare them for ever.
    CFTypeRef hashed_child(byte_span references, std::size_t index, std::size_t levels_left,
                           known_object & parent) {
        auto const * const object = child(references, index, levels_left, parent);
        require(!is<__CFArray>(object) && !is<__CFDictionary>(object) && !is<__CFSet>(object));
        return object;
    }

    std::size_t count_of(byte_span references) const {
        return references.size() / trailer.reference_size;
    }

    void read_array(byte_span references, std::size_t levels_left, known_object & known) {
        auto const count = count_of(references);
        known.height = 1;
        std::vector<CFTypeRef> elements(count);
        for (std::size_t index = 0; index < count; ++index) {
            elements[index] = child(references, index, levels_left, known);
        }
        std::ranges::for_each(elements, CFRetain);
        auto * const array = create_array_adopting(elements, options.of_container());
        array->can_grow = array->is_mutable;
        known.reference.reset(array);
    }

    void read_set(byte_span references, std::size_t levels_left, known_object & known) {
        auto const count = count_of(references);
        known.height = 1;
        auto * const set = CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks);
        owned_reference owner{set};
        for (std::size_t index = 0; index < count; ++index) {
            CFSetAddValue(set, hashed_child(references, index, levels_left, known));
        }
        set->is_mutable = options.of_container() == mutability::is_mutable;
        known.reference = std::move(owner);
    }

    // The last entry goes in first, so that of equal keys the first one stays.
    void read_dictionary(byte_span references, std::size_t levels_left, known_object & known) {
        auto const count = count_of(references) / 2;
        known.height = 1;
        auto * const dictionary =
            create_object_dictionary(static_cast<CFIndex>(count), options.of_container());
        owned_reference owner{dictionary};
        for (auto index = count; index-- > 0;) {
            auto const * const key = hashed_child(references, index, levels_left, known);
            auto const * const value = child(references, count + index, levels_left, known);
            set_adopting(dictionary, CFRetain(key), CFRetain(value));
        }
        known.reference = std::move(owner);
    }

    byte_span document;
    property_list_options options;
    binary::trailer trailer;
    std::size_t bytes_left; // that objects may still be made from
    std::unordered_map<std::size_t, known_object> known_objects;
};

} // namespace

owned_reference read_binary_property_list(byte_span bytes, property_list_options options) {
    auto const is_binary = bytes.size() >= header.size() &&
                           std::ranges::equal(bytes.first(header_to_recognise.size()),
                                              header_to_recognise, [](UInt8 byte, char wanted) {
                                                  return byte == static_cast<UInt8>(wanted);
                                              });
    if (!is_binary) {
        return nullptr;
    }
    try {
        return binary_reader{bytes, options}.read();
    } catch (malformed const &) {
        return nullptr;
    }
}

} // namespace cf
