#include "simulator/CoreFoundation/binary_writer.hpp"

#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/binary_format.hpp"
#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/dates.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list_uid.hpp"

#include <algorithm>
#include <bit>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace cf {

namespace {

using namespace binary;

bool is_container(CFTypeRef object) {
    return is<__CFArray>(object) || is<__CFDictionary>(object);
}

// Whether two leaves are written alike: numbers that differ in kind are not, though they may be
// equal.
struct SameLeaf {
    bool operator()(CFTypeRef left, CFTypeRef right) const {
        if (!is<__CFNumber>(left) || !is<__CFNumber>(right)) {
            return CFEqual(left, right);
        }
        auto const & one = *static_cast<CFNumberRef>(left);
        auto const & other = *static_cast<CFNumberRef>(right);
        if (one.is_real() || other.is_real()) {
            return one.kind == other.kind && std::bit_cast<std::uint64_t>(one.real) ==
                                                 std::bit_cast<std::uint64_t>(other.real);
        }
        return CFEqual(left, right);
    }
};

struct LeafHash {
    std::size_t operator()(CFTypeRef leaf) const { return CFHash(leaf); }
};

// The sizes in use are powers of two.
UInt8 size_for(std::uint64_t largest) {
    return largest <= 0xff ? 1 : largest <= 0xffff ? 2 : largest <= 0xffff'ffff ? 4 : 8;
}

class BinaryWriter {
public:
    std::string write(CFPropertyListRef root) {
        number_objects(root);
        reference_size_ = size_for(objects_.size());
        bytes_ = header;
        std::vector<std::uint64_t> offsets;
        offsets.reserve(objects_.size());
        for (auto const * const object : objects_) {
            offsets.push_back(bytes_.size());
            write_object(object);
        }
        write_table(offsets);
        return std::move(bytes_);
    }

private:
    // In the order of a walk from the root: a dictionary's keys, then its values.
    void number_objects(CFPropertyListRef root) {
        std::vector<CFTypeRef> pending{root};
        while (!pending.empty()) {
            auto const * const object = pending.back();
            pending.pop_back();
            if (!number(object)) {
                continue;
            }
            auto const begin = static_cast<std::ptrdiff_t>(pending.size());
            append_children(pending, object);
            std::reverse(pending.begin() + begin, pending.end());
        }
    }

    // False if the object, or an equal leaf, has a number already.
    bool number(CFTypeRef object) {
        auto const [known, is_new] = numbers_.try_emplace(object, objects_.size());
        if (!is_new) {
            return false;
        }
        if (!is_container(object)) {
            auto const [same, is_first] = leaves_.insert(object);
            if (!is_first) {
                known->second = numbers_.at(*same);
                return false;
            }
        }
        objects_.push_back(object);
        return true;
    }

    static void append_children(std::vector<CFTypeRef> & children, CFTypeRef object) {
        if (is<__CFArray>(object)) {
            auto const elements = values_of(static_cast<CFArrayRef>(object));
            children.insert(children.end(), elements.begin(), elements.end());
        } else if (is<__CFDictionary>(object)) {
            auto const * const dictionary = static_cast<CFDictionaryRef>(object);
            for_each_entry(dictionary,
                           [&](void const * key, void const *) { children.push_back(key); });
            for_each_entry(dictionary,
                           [&](void const *, void const * value) { children.push_back(value); });
        }
    }

    void write_object(CFTypeRef object) {
        if (is<__CFString>(object)) {
            write_string(contents_of(static_cast<CFStringRef>(object)));
        } else if (is<__CFNumber>(object)) {
            write_number(*static_cast<CFNumberRef>(object));
        } else if (is_container(object)) {
            write_container(object);
        } else if (is<__CFData>(object)) {
            auto const bytes = bytes_of(static_cast<CFDataRef>(object));
            write_marker(Marker::data, bytes.size());
            bytes_.append(bytes.begin(), bytes.end());
        } else if (is<__CFDate>(object)) {
            write_byte(Marker::date);
            write_integer(std::bit_cast<std::uint64_t>(static_cast<CFDateRef>(object)->time), 8);
        } else if (is<KeyedArchiverUid>(object)) {
            auto const value = static_cast<KeyedArchiverUid const *>(object)->value;
            auto const size = size_for(value);
            write_byte(Marker::uid | (size - 1U));
            write_integer(value, size);
        } else {
            write_byte(object == kCFBooleanTrue ? Marker::is_true : Marker::is_false);
        }
    }

    void write_string(StringContents const & text) {
        if (!text.is_wide()) {
            write_marker(Marker::ascii_string, text.length());
            bytes_ += text.ascii();
            return;
        }
        write_marker(Marker::utf16_string, text.length());
        for (auto const unit : text.utf16()) {
            write_integer(unit, 2);
        }
    }

    void write_number(__CFNumber const & number) {
        if (number.kind == kCFNumberFloat32Type) {
            write_byte(Marker::real | 2U);
            write_integer(std::bit_cast<UInt32>(static_cast<float>(number.real)), 4);
        } else if (number.is_real()) {
            write_byte(Marker::real | 3U);
            write_integer(std::bit_cast<std::uint64_t>(number.real), 8);
        } else if (number.is_wide()) {
            write_byte(Marker::integer | 4U);
            write_integer(static_cast<std::uint64_t>(number.wide.high), 8);
            write_integer(number.wide.low, 8);
        } else {
            write_integer_object(static_cast<std::uint64_t>(number.integer));
        }
    }

    // Negative values take 8 bytes, as their upper bits are set.
    void write_integer_object(std::uint64_t value) {
        auto const size = size_for(value);
        write_byte(Marker::integer | static_cast<unsigned>(std::countr_zero(size)));
        write_integer(value, size);
    }

    void write_container(CFTypeRef container) {
        children_.clear();
        append_children(children_, container);
        if (is<__CFArray>(container)) {
            write_marker(Marker::array, children_.size());
        } else {
            write_marker(Marker::dictionary, children_.size() / 2);
        }
        for (auto const * const child : children_) {
            write_integer(numbers_.at(child), reference_size_);
        }
    }

    void write_table(std::vector<std::uint64_t> const & offsets) {
        auto const table_offset = bytes_.size();
        auto const offset_size = size_for(table_offset);
        for (auto const offset : offsets) {
            write_integer(offset, offset_size);
        }
        bytes_.append(trailer_unused, '\0');
        write_byte(offset_size);
        write_byte(reference_size_);
        write_integer(objects_.size(), 8);
        write_integer(0, 8);
        write_integer(table_offset, 8);
    }

    void write_marker(Marker type, std::size_t count) {
        if (count < count_follows) {
            write_byte(type | static_cast<unsigned>(count));
        } else {
            write_byte(type | count_follows);
            write_integer_object(count);
        }
    }

    void write_byte(unsigned byte) { bytes_.push_back(static_cast<char>(byte)); }

    void write_integer(std::uint64_t value, unsigned size) {
        for (auto shift = size * 8; shift > 0; shift -= 8) {
            bytes_.push_back(static_cast<char>(value >> (shift - 8)));
        }
    }

    std::string bytes_;
    UInt8 reference_size_ = 0;
    std::vector<CFTypeRef> objects_; // in the order of their numbers
    std::unordered_map<CFTypeRef, std::size_t> numbers_;
    std::unordered_set<CFTypeRef, LeafHash, SameLeaf> leaves_;
    std::vector<CFTypeRef> children_;
};

} // namespace

std::string write_binary_property_list(CFPropertyListRef root) {
    return BinaryWriter{}.write(root);
}

} // namespace cf
