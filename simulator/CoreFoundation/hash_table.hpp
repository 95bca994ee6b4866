// The table behind dictionaries and sets: open addressing with linear probing. The order of the
// entries is that of their slots, hence of their hashes.
#pragma once

#include "simulator/CoreFoundation/element_callbacks.hpp"

#include <utility>
#include <vector>

namespace cf {

class hash_table {
public:
    struct table_slot {
        void const * key = nullptr;
        void const * value = nullptr;
        CFHashCode hash = 0; // 0: the slot is free
    };

    hash_table(element_callbacks const & keys, element_callbacks const & values)
        : key_callbacks{keys}
        , value_callbacks{values} {}

    element_callbacks const & keys() const { return key_callbacks; }
    element_callbacks const & values() const { return value_callbacks; }
    std::size_t count() const { return taken; }

    // Returns the entry with an equal key, or null.
    table_slot const * find(void const * key) const;

    // Retains key and value. `add` leaves an existing entry alone, `set` replaces its key and
    // value.
    void add(void const * key, void const * value);
    void set(void const * key, void const * value);

    // Takes over the caller's references; of equal keys the last one stays.
    void set_adopting(void const * key, void const * value);

    // Reserves space for that many entries, but not for more than is sensible.
    void reserve(CFIndex entries);

    // Copies and retains every key and value of a table with the same callbacks, in the same order.
    void copy_from(hash_table const & other);

    void release_all(doomed_objects & doomed);

    // Calls visit(key, value) for every entry.
    template <typename Visit>
    void for_each(Visit && visit) const {
        for (auto const & slot : table) {
            if (slot.hash != 0) {
                visit(slot.key, slot.value);
            }
        }
    }

private:
    CFHashCode hash_of(void const * key) const;
    std::size_t locate(void const * key, CFHashCode hash) const;
    std::pair<table_slot &, CFHashCode> slot_for(void const * key);
    void resize(std::size_t slots);

    element_callbacks key_callbacks;
    element_callbacks value_callbacks;
    std::vector<table_slot> table; // their number is a power of two, or 0
    std::size_t taken = 0;
};

// Returns whether both tables have equal keys with equal values.
bool equal(hash_table const & left, hash_table const & right);

} // namespace cf
