// The table behind dictionaries and sets: open addressing with linear probing. The order of the
// entries is that of their slots, hence of their hashes.
#pragma once

#include "simulator/CoreFoundation/element_callbacks.hpp"

#include <utility>
#include <vector>

namespace cf {

class HashTable {
public:
    struct Slot {
        void const * key = nullptr;
        void const * value = nullptr;
        CFHashCode hash = 0; // 0: the slot is free
    };

    HashTable(ElementCallbacks const & keys, ElementCallbacks const & values)
        : keys_{keys}
        , values_{values} {}

    ElementCallbacks const & keys() const { return keys_; }
    ElementCallbacks const & values() const { return values_; }
    std::size_t count() const { return count_; }

    // The entry with an equal key, or null.
    Slot const * find(void const * key) const;

    // Retains key and value. `add` leaves an existing entry alone, `set` replaces its key and
    // value.
    void add(void const * key, void const * value);
    void set(void const * key, void const * value);

    // Takes over the caller's references; of equal keys the last one stays.
    void set_adopting(void const * key, void const * value);

    // Makes room for that many entries; a hint, limited to what is sensible.
    void reserve(CFIndex entries);

    // Retains every key and value of a table with the same callbacks; the order stays.
    void copy_from(HashTable const & other);

    void release_all(DoomedObjects & doomed);

    // Calls visit(key, value) for every entry.
    template <class Visit>
    void for_each(Visit && visit) const {
        for (auto const & slot : slots_) {
            if (slot.hash != 0) {
                visit(slot.key, slot.value);
            }
        }
    }

private:
    CFHashCode hash_of(void const * key) const;
    std::size_t locate(void const * key, CFHashCode hash) const;
    std::pair<Slot &, CFHashCode> slot_for(void const * key);
    void resize(std::size_t slots);

    ElementCallbacks keys_;
    ElementCallbacks values_;
    std::vector<Slot> slots_; // a power of two of them, or none
    std::size_t count_ = 0;
};

// True if both tables have equal keys with equal values.
bool equal(HashTable const & left, HashTable const & right);

} // namespace cf
