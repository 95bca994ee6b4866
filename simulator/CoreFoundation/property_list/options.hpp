// What the options of CFPropertyListCreateWithData mean for the objects that a reader creates.
#pragma once

#include "simulator/CoreFoundation/strings.hpp"

namespace cf {

struct PropertyListOptions {
    CFOptionFlags flags = kCFPropertyListImmutable;

    // In a binary document. In an old-style one every container is mutable.
    Mutability of_container() const {
        return flags == kCFPropertyListImmutable ? Mutability::immutable : Mutability::is_mutable;
    }
    // In an XML document only empty containers are really immutable.
    Mutability of_xml_container(bool is_empty) const {
        return is_empty ? of_container() : Mutability::is_mutable;
    }
    Mutability of_leaf() const {
        return (flags & kCFPropertyListMutableContainersAndLeaves) != 0 ? Mutability::is_mutable
                                                                        : Mutability::immutable;
    }
    // Empty data has a byte pointer only if it is mutable, and what was read has one.
    Mutability of_data(bool is_empty) const {
        return is_empty ? Mutability::is_mutable : of_leaf();
    }
};

// The deepest nesting of containers that a reader accepts.
inline constexpr std::size_t deepest_property_list = 512;

} // namespace cf
