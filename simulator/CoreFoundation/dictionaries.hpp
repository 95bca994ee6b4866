// Dictionaries inside.
#pragma once

#include "simulator/CoreFoundation/hash_table.hpp"
#include "simulator/CoreFoundation/strings.hpp"

struct __CFDictionary : cf::Object {
    static cf::Type const class_type;

    cf::HashTable entries;
    bool is_mutable;

    __CFDictionary(cf::ElementCallbacks const & keys, cf::ElementCallbacks const & values,
                   cf::Mutability mutability)
        : Object{class_type}
        , entries{keys, values}
        , is_mutable{mutability == cf::Mutability::is_mutable} {}
};

namespace cf {

// Calls visit(key, value) for every entry, in the dictionary's order.
template <class Visit>
void for_each_entry(CFDictionaryRef dictionary, Visit && visit) {
    dictionary->entries.for_each(std::forward<Visit>(visit));
}

// A new dictionary of objects with room for that many entries, to be filled with set_adopting.
CFMutableDictionaryRef create_object_dictionary(CFIndex room, Mutability mutability);

// Takes over the caller's references to key and value, also in an immutable dictionary: only for
// whoever creates it. Of equal keys the last one stays.
inline void set_adopting(CFMutableDictionaryRef dictionary, CFTypeRef key, CFTypeRef value) {
    dictionary->entries.set_adopting(key, value);
}

} // namespace cf
