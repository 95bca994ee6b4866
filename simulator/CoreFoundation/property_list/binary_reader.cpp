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

using Bytes = std::span<UInt8 const>;

struct Malformed {};

void require(bool condition) {
    if (!condition) {
        throw Malformed{};
    }
}

std::uint64_t big_endian(Bytes bytes) {
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

Trailer read_trailer(Bytes document) {
    require(document.size() > header.size() + trailer_size);
    auto const bytes = document.last(trailer_size);
    Trailer const trailer{bytes[6], bytes[7], big_endian(bytes.subspan(8, 8)),
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

class BinaryReader {
public:
    BinaryReader(Bytes document, PropertyListOptions options)
        : document_{document}
        , options_{options}
        , trailer_{read_trailer(document)}
        , bytes_left_{most_overlap * document.size()} {}

    OwnedReference read() {
        return retained(read_object(trailer_.root, deepest_property_list + 1).reference);
    }

private:
    // How often the objects of a document may cover the same bytes before it counts as hostile:
    // sound documents never do, but a few bytes could stand for any number of long objects.
    static constexpr std::size_t most_overlap = 16;

    // An object and how many levels of containers it consists of. While it is being read there is
    // no reference yet.
    struct Known {
        OwnedReference reference;
        std::size_t height = 0;
    };

    // The part of an object behind its marker.
    struct Body {
        std::size_t at;
        std::size_t count;
    };

    static OwnedReference retained(OwnedReference const & reference) {
        return OwnedReference{CFRetain(reference.get())};
    }

    Bytes take(std::size_t at, std::size_t size) {
        require(at <= trailer_.table_offset && size <= trailer_.table_offset - at);
        require(size <= bytes_left_);
        bytes_left_ -= size;
        return document_.subspan(at, size);
    }
    Bytes take(Body body, std::size_t element_size) {
        require(body.count <= document_.size() / element_size);
        return take(body.at, body.count * element_size);
    }

    std::size_t offset_of(std::uint64_t number) const {
        require(number < trailer_.object_count);
        auto const entry = document_.subspan(
            static_cast<std::size_t>(trailer_.table_offset + number * trailer_.offset_size),
            trailer_.offset_size);
        auto const offset = big_endian(entry);
        require(offset >= header.size() && offset < trailer_.table_offset);
        return static_cast<std::size_t>(offset);
    }

    // Objects are known by their places, as several numbers may stand for the same place.
    Known const & read_object(std::uint64_t number, std::size_t levels_left) {
        auto const offset = offset_of(number);
        auto const [entry, is_new] = known_.try_emplace(offset);
        auto & known = entry->second;
        if (is_new) {
            read_at(offset, levels_left, known);
        }
        require(known.reference != nullptr && known.height <= levels_left);
        return known;
    }

    void read_at(std::size_t offset, std::size_t levels_left, Known & known) {
        auto const marker = take(offset, 1)[0];
        switch (marker & 0xf0U) {
        case Marker::array:
        case Marker::set:
        case Marker::dictionary:
            require(levels_left > 0);
            read_container(offset, levels_left - 1, known);
            break;
        default:
            known.reference.reset(read_leaf(marker, offset + 1));
        }
    }

    Body body_of(std::size_t offset) {
        std::size_t const count = take(offset, 1)[0] & 0x0fU;
        if (count != count_follows) {
            return {offset + 1, count};
        }
        auto const marker = take(offset + 1, 1)[0];
        require((marker & 0xf0U) == Marker::integer && (marker & 0x0fU) <= 3);
        auto const size = std::size_t{1} << (marker & 0x0fU);
        auto const real_count = big_endian(take(offset + 2, size));
        require(real_count <= document_.size());
        return {offset + 2 + size, static_cast<std::size_t>(real_count)};
    }

    CFTypeRef read_leaf(UInt8 marker, std::size_t at) {
        switch (marker) {
        case Marker::null:
            return CFRetain(kCFNull);
        case Marker::is_false:
            return CFRetain(kCFBooleanFalse);
        case Marker::is_true:
            return CFRetain(kCFBooleanTrue);
        case Marker::date:
            return CFDateCreate(kCFAllocatorDefault,
                                std::bit_cast<double>(big_endian(take(at, 8))));
        default:
            break;
        }
        auto const size = marker & 0x0fU;
        switch (marker & 0xf0U) {
        case Marker::integer:
            return read_integer(size, at);
        case Marker::real:
            return read_real(size, at);
        case Marker::data:
            return read_data(take(body_of(at - 1), 1));
        case Marker::ascii_string:
            return read_ascii_string(take(body_of(at - 1), 1));
        case Marker::utf16_string:
            return read_utf16_string(take(body_of(at - 1), 2));
        case Marker::uid:
            return read_uid(take(at, size + 1));
        default:
            throw Malformed{};
        }
    }

    // Shorter integers are unsigned, those of 8 and 16 bytes signed.
    CFNumberRef read_integer(unsigned size, std::size_t at) {
        require(size <= 4);
        if (size < 4) {
            auto const value = big_endian(take(at, std::size_t{1} << size));
            return create_integer(static_cast<std::int64_t>(value));
        }
        Int128 const wide{static_cast<std::int64_t>(big_endian(take(at, 8))),
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

    CFDataRef read_data(Bytes bytes) { return create_data(bytes, options_.of_data(bytes.empty())); }

    // Bytes beyond ASCII are Latin-1.
    CFStringRef read_ascii_string(Bytes bytes) {
        if (std::ranges::all_of(bytes, [](UInt8 byte) { return byte < 0x80; })) {
            return create_ascii_string(std::string{bytes.begin(), bytes.end()}, options_.of_leaf());
        }
        return create_string(std::u16string{bytes.begin(), bytes.end()}, options_.of_leaf());
    }

    CFStringRef read_utf16_string(Bytes bytes) {
        std::u16string text(bytes.size() / 2, u'\0');
        for (std::size_t index = 0; index < text.size(); ++index) {
            text[index] = static_cast<char16_t>(big_endian(bytes.subspan(index * 2, 2)));
        }
        return create_string(text, options_.of_leaf());
    }

    CFTypeRef read_uid(Bytes bytes) {
        require(bytes.size() <= 8);
        auto const value = big_endian(bytes);
        require(value <= 0xffff'ffff);
        return create<KeyedArchiverUid>(static_cast<UInt32>(value));
    }

    void read_container(std::size_t offset, std::size_t levels_left, Known & known) {
        auto const type = document_[offset] & 0xf0U;
        auto const body = body_of(offset);
        auto const size = trailer_.reference_size;
        auto const references = take(body, type == Marker::dictionary ? size * 2U : size);
        switch (type) {
        case Marker::array:
            read_array(references, levels_left, known);
            break;
        case Marker::set:
            read_set(references, levels_left, known);
            break;
        default:
            read_dictionary(references, levels_left, known);
        }
    }

    // The child that the reference at the index means; it belongs to known_.
    CFTypeRef child(Bytes references, std::size_t index, std::size_t levels_left, Known & parent) {
        auto const size = trailer_.reference_size;
        auto const & known =
            read_object(big_endian(references.subspan(index * size, size)), levels_left);
        parent.height = std::max(parent.height, known.height + 1);
        return known.reference.get();
    }

    // A key or a member of a set: no container, for hashes of containers say little, and a hostile
    // document could let the table of the collection compare them for ever.
    CFTypeRef hashed_child(Bytes references, std::size_t index, std::size_t levels_left,
                           Known & parent) {
        auto const * const object = child(references, index, levels_left, parent);
        require(!is<__CFArray>(object) && !is<__CFDictionary>(object) && !is<__CFSet>(object));
        return object;
    }

    std::size_t count_of(Bytes references) const {
        return references.size() / trailer_.reference_size;
    }

    void read_array(Bytes references, std::size_t levels_left, Known & known) {
        auto const count = count_of(references);
        known.height = 1;
        std::vector<CFTypeRef> elements(count);
        for (std::size_t index = 0; index < count; ++index) {
            elements[index] = child(references, index, levels_left, known);
        }
        std::ranges::for_each(elements, CFRetain);
        auto * const array = create_array_adopting(elements, options_.of_container());
        array->can_grow = array->is_mutable;
        known.reference.reset(array);
    }

    void read_set(Bytes references, std::size_t levels_left, Known & known) {
        auto const count = count_of(references);
        known.height = 1;
        auto * const set = CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks);
        OwnedReference owner{set};
        for (std::size_t index = 0; index < count; ++index) {
            CFSetAddValue(set, hashed_child(references, index, levels_left, known));
        }
        set->is_mutable = options_.of_container() == Mutability::is_mutable;
        known.reference = std::move(owner);
    }

    // The last entry goes in first, so that of equal keys the first one stays.
    void read_dictionary(Bytes references, std::size_t levels_left, Known & known) {
        auto const count = count_of(references) / 2;
        known.height = 1;
        auto * const dictionary =
            create_object_dictionary(static_cast<CFIndex>(count), options_.of_container());
        OwnedReference owner{dictionary};
        for (auto index = count; index-- > 0;) {
            auto const * const key = hashed_child(references, index, levels_left, known);
            auto const * const value = child(references, count + index, levels_left, known);
            set_adopting(dictionary, CFRetain(key), CFRetain(value));
        }
        known.reference = std::move(owner);
    }

    Bytes document_;
    PropertyListOptions options_;
    Trailer trailer_;
    std::size_t bytes_left_; // that objects may still be made from
    std::unordered_map<std::size_t, Known> known_;
};

} // namespace

OwnedReference read_binary_property_list(Bytes bytes, PropertyListOptions options) {
    auto const is_binary = bytes.size() >= header.size() &&
                           std::ranges::equal(bytes.first(header_to_recognise.size()),
                                              header_to_recognise, [](UInt8 byte, char wanted) {
                                                  return byte == static_cast<UInt8>(wanted);
                                              });
    if (!is_binary) {
        return nullptr;
    }
    try {
        return BinaryReader{bytes, options}.read();
    } catch (Malformed const &) {
        return nullptr;
    }
}

} // namespace cf
