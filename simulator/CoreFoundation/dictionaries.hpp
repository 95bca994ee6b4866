// How dictionaries are stored.
#pragma once

#include "simulator/CoreFoundation/hash_table.hpp"
#include "simulator/CoreFoundation/strings.hpp"

struct __CFDictionary : cf::object {
    static cf::object_type const class_type;

    cf::hash_table entries;
    bool is_mutable;

    __CFDictionary(cf::element_callbacks const & keys, cf::element_callbacks const & values,
                   cf::mutability wanted)
        : object{class_type}
        , entries{keys, values}
        , is_mutable{wanted == cf::mutability::is_mutable} {}
};

namespace cf {

// Calls visit(key, value) for every entry, in the dictionary's order.
template <typename Visit>
void for_each_entry(CFDictionaryRef dictionary, Visit && visit) {
    dictionary->entries.for_each(std::forward<Visit>(visit));
}

// Creates a dictionary of objects with space for that many entries, to be filled with set_adopting.
CFMutableDictionaryRef create_object_dictionary(CFIndex room, mutability wanted);

// Takes over the caller's references to key and value, also in an immutable dictionary: only for
// whoever creates it. Of equal keys the last one stays.
inline void set_adopting(CFMutableDictionaryRef dictionary, CFTypeRef key, CFTypeRef value) {
    dictionary->entries.set_adopting(key, value);
}

} // namespace cf
