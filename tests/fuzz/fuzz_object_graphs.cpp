// Object graphs made from the input, deep, wide and shared, with every type: the tool's check and
// its conversion agree with what was put in.
#include "QNRescue/qnrescue.h"
#include "QNRescue/sanitize_for_xml.hpp"
#include "platform/cf_collections.hpp"
#include "platform/cf_strings.hpp"
#include "tests/fuzz/require.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using namespace qnrescue;

struct node {
    cf_owner<CFTypeRef> object;
    bool is_xml;         // allowed in an XML property list
    bool is_other;       // allowed in one of another format
    bool is_convertible; // needs no part left out, and becomes something at all
    std::size_t size;    // of the tree that it expands to
};

// XML repeats what is shared; graphs that expand to larger trees take their time, and no more.
constexpr std::size_t largest_tree = 4'000;

class graph {
public:
    explicit graph(std::span<std::uint8_t const> bytes)
        : input(bytes) {}

    // The last object made, if there is one.
    node const * build() {
        while (!input.empty()) {
            step(take());
        }
        return nodes.empty() ? nullptr : &nodes.back();
    }

private:
    std::uint8_t take() {
        if (input.empty()) {
            return 0;
        }
        auto const byte = input.front();
        input = input.subspan(1);
        return byte;
    }

    // An object made before, the last ones being the more likely.
    node const & pick() { return nodes[nodes.size() - 1 - take() % nodes.size()]; }

    void step(std::uint8_t byte) {
        constexpr std::size_t leaf_kinds = 8;
        auto const kind = byte % (leaf_kinds + 5);
        if (kind < leaf_kinds || nodes.empty()) {
            add_leaf(kind % leaf_kinds);
        } else if (kind == leaf_kinds) {
            add_array(byte / 16);
        } else if (kind == leaf_kinds + 1) {
            add_dictionary(byte / 16);
        } else if (kind == leaf_kinds + 2) {
            add_set(byte / 16);
        } else {
            nest(take() * std::size_t{8});
        }
    }

    void add_leaf(std::size_t kind) {
        std::uint8_t const bytes[] = {take(), take()};
        double const number = bytes[0];
        switch (kind) {
        case 0:
            return add_plain(adopt(CFStringCreateWithBytes(
                kCFAllocatorDefault, bytes, std::size(bytes), kCFStringEncodingUTF16, false)));
        case 1:
            return add_plain(
                adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &number)));
        case 2:
            return add_plain(retain(bytes[0] % 2 == 0 ? kCFBooleanTrue : kCFBooleanFalse));
        case 3:
            return add_plain(adopt(CFDateCreate(kCFAllocatorDefault, number)));
        case 4:
            return add_plain(adopt(CFDataCreate(kCFAllocatorDefault, bytes, std::size(bytes))));
        case 5:
            nodes.push_back({retain(kCFNull), false, false, false, 1});
            return;
        case 6:
            nodes.push_back(
                {adopt(CFErrorCreate(kCFAllocatorDefault, CFSTR("fuzz"), bytes[0], nullptr)), false,
                 false, true, 5});
            return;
        default:
            return add_plain(make_cfstring("key"));
        }
    }

    void add_plain(cf_owner<CFTypeRef> object) {
        nodes.push_back({std::move(object), true, true, true, 1});
    }

    // Takes a member into what is known of its container; false where that grows too large.
    static bool include(node & container, node const & member) {
        container.is_xml = container.is_xml && member.is_xml;
        container.is_other = container.is_other && member.is_other;
        container.is_convertible = container.is_convertible && member.is_convertible;
        container.size += member.size;
        return container.size <= largest_tree;
    }

    void add_array(std::size_t count) {
        auto array = make_mutable_array();
        node made{nullptr, true, true, true, 1};
        for (std::size_t i = 0; i < count; ++i) {
            auto const & member = pick();
            if (!include(made, member)) {
                return;
            }
            CFArrayAppendValue(array.get(), member.object.get());
        }
        made.object = std::move(array);
        nodes.push_back(std::move(made));
    }

    // A key that is no string spoils a dictionary.
    void add_dictionary(std::size_t count) {
        auto dictionary = make_mutable_dictionary();
        node made{nullptr, true, true, true, 1};
        for (std::size_t i = 0; i < count; ++i) {
            auto const & key = pick();
            auto const & member = pick();
            if (is_a(key.object.get(), CFArrayGetTypeID()) ||
                is_a(key.object.get(), CFDictionaryGetTypeID()) ||
                is_a(key.object.get(), CFSetGetTypeID()) ||
                CFDictionaryGetValue(dictionary.get(), key.object.get()) != nullptr) {
                continue; // costly to compare, or a replacement of what is counted already
            }
            bool const is_text = is_a(key.object.get(), CFStringGetTypeID());
            node const entry{nullptr, member.is_xml && is_text, member.is_other && is_text,
                             member.is_convertible && is_text, member.size};
            if (!include(made, entry)) {
                return;
            }
            CFDictionarySetValue(dictionary.get(), key.object.get(), member.object.get());
        }
        made.object = std::move(dictionary);
        nodes.push_back(std::move(made));
    }

    void add_set(std::size_t count) {
        auto set = adopt(CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
        node made{nullptr, true, true, true, 1};
        for (std::size_t i = 0; i < count; ++i) {
            auto const & member = pick();
            if (member.size > 1) {
                continue;
            }
            include(made, member);
            CFSetAddValue(set.get(), member.object.get());
        }
        made.is_xml = made.is_convertible = false;
        made.object = std::move(set);
        nodes.push_back(std::move(made));
    }

    void nest(std::size_t depth) {
        auto & last = nodes.back();
        depth = std::min(depth, largest_tree - std::min(largest_tree, last.size));
        for (std::size_t i = 0; i < depth; ++i) {
            auto array = make_mutable_array();
            CFArrayAppendValue(array.get(), last.object.get());
            last.object = std::move(array);
        }
        last.size += depth;
    }

    std::span<std::uint8_t const> input;
    std::vector<node> nodes;
};

bool is_xml(CFTypeRef value) {
    return CFPropertyListValidateForSerialization(value, kCFPropertyListXMLFormat_v1_0);
}

std::optional<cf_owner<CFTypeRef>> strictly_converted(CFTypeRef value) {
    try {
        return sanitize_for_xml(value, on_error::raise);
    } catch (std::runtime_error const &) {
        return std::nullopt;
    }
}

bool is_container(CFTypeRef value) {
    return is_a(value, CFArrayGetTypeID()) || is_a(value, CFDictionaryGetTypeID());
}

void check(node const & root) {
    auto const value = root.object.get();
    require(is_xml(value) == root.is_xml, "validation for XML");
    require(CFPropertyListValidateForSerialization(value, kCFPropertyListBinaryFormat_v1_0) ==
                root.is_other,
            "validation for other formats");

    auto const strict = strictly_converted(value);
    require(strict.has_value() == root.is_convertible, "strict conversion");
    require(!strict || is_xml(strict->get()), "what is strictly converted is valid");

    auto const lax = sanitize_for_xml(value, on_error::skip);
    require((lax != nullptr) == (root.is_convertible || is_container(value)), "lax conversion");
    require(!lax || is_xml(lax.get()), "what is converted is valid");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size) {
    graph made({bytes, size});
    if (auto const * const root = made.build()) {
        check(*root);
    }
    return 0;
}
