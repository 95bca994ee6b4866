// Returns which objects a reader creates mutable.
#pragma once

#include "simulator/CoreFoundation/strings.hpp"

namespace cf {

struct property_list_options {
    CFOptionFlags flags = kCFPropertyListImmutable;

    // In a binary document. In an old-style one every container is mutable.
    mutability of_container() const {
        return flags == kCFPropertyListImmutable ? mutability::immutable : mutability::is_mutable;
    }
    // In an XML document only empty containers are really immutable.
    mutability of_xml_container(bool is_empty) const {
        return is_empty ? of_container() : mutability::is_mutable;
    }
    mutability of_leaf() const {
        return (flags & kCFPropertyListMutableContainersAndLeaves) != 0 ? mutability::is_mutable
                                                                        : mutability::immutable;
    }
    // Empty data has a byte pointer only if it is mutable, and what was read has one.
    mutability of_data(bool is_empty) const {
        return is_empty ? mutability::is_mutable : of_leaf();
    }
};

// The deepest nesting of containers that a reader accepts.
inline constexpr std::size_t deepest_property_list = 512;

} // namespace cf
