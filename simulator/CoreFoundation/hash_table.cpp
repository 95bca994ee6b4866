#include "simulator/CoreFoundation/hash_table.hpp"

#include <algorithm>
#include <bit>
#include <utility>

namespace cf {

namespace {

constexpr std::size_t fewest_slots = 8;
constexpr CFIndex most_reserved = 4096;

// At most three quarters of the slots are taken, so that every search ends at a free one.
constexpr bool is_full(std::size_t entries, std::size_t slots) {
    return entries * 4 >= slots * 3;
}

} // namespace

// Mixes the bits, because some hashes are plain counts or addresses, and never returns 0.
CFHashCode hash_table::hash_of(void const * key) const {
    constexpr CFHashCode odd = 0x9e3779b97f4a7c15;
    constexpr CFHashCode in_use = CFHashCode{1} << 63;
    auto const hash = key_callbacks.hash(key);
    auto const mixed = (hash ^ hash >> 32) * odd;
    return (mixed ^ mixed >> 32) | in_use;
}

// Returns the index of the slot with this key or, without one, of the free slot where it belongs.
std::size_t hash_table::locate(void const * key, CFHashCode hash) const {
    auto const mask = table.size() - 1;
    auto index = hash & mask;
    while (table[index].hash != 0 &&
           (table[index].hash != hash || !key_callbacks.equal(table[index].key, key))) {
        index = (index + 1) & mask;
    }
    return index;
}

hash_table::table_slot const * hash_table::find(void const * key) const {
    if (taken == 0) {
        return nullptr;
    }
    auto const & slot = table[locate(key, hash_of(key))];
    return slot.hash != 0 ? &slot : nullptr;
}

// Returns the slot with this key, or a free one, and the key's hash.
std::pair<hash_table::table_slot &, CFHashCode> hash_table::slot_for(void const * key) {
    if (is_full(taken + 1, table.size())) {
        resize(std::max(fewest_slots, table.size() * 2));
    }
    auto const hash = hash_of(key);
    return {table[locate(key, hash)], hash};
}

void hash_table::add(void const * key, void const * value) {
    auto const [slot, hash] = slot_for(key);
    if (slot.hash == 0) {
        slot = {key_callbacks.retain(key), value_callbacks.retain(value), hash};
        ++taken;
    }
}

void hash_table::set(void const * key, void const * value) {
    set_adopting(key_callbacks.retain(key), value_callbacks.retain(value));
}

void hash_table::set_adopting(void const * key, void const * value) {
    auto const [slot, hash] = slot_for(key);
    auto const old = std::exchange(slot, {key, value, hash});
    if (old.hash == 0) {
        ++taken;
    } else {
        key_callbacks.release(old.key);
        value_callbacks.release(old.value);
    }
}

void hash_table::resize(std::size_t slots) {
    auto const old = std::exchange(table, guarded([&] { return std::vector<table_slot>(slots); }));
    auto const mask = slots - 1;
    for (auto const & slot : old) {
        if (slot.hash != 0) {
            auto index = slot.hash & mask;
            while (table[index].hash != 0) {
                index = (index + 1) & mask;
            }
            table[index] = slot;
        }
    }
}

void hash_table::reserve(CFIndex entries) {
    auto const wanted = static_cast<std::size_t>(std::clamp<CFIndex>(entries, 0, most_reserved));
    auto const slots = std::bit_ceil(wanted * 4 / 3 + 1);
    if (wanted > 0 && slots > table.size()) {
        resize(std::max(fewest_slots, slots));
    }
}

void hash_table::copy_from(hash_table const & other) {
    guarded([&] { table = other.table; });
    taken = other.taken;
    for (auto & slot : table) {
        if (slot.hash != 0) {
            slot.key = key_callbacks.retain(slot.key);
            slot.value = value_callbacks.retain(slot.value);
        }
    }
}

void hash_table::release_all(doomed_objects & doomed) {
    for_each([&](void const * key, void const * value) {
        key_callbacks.release(key, doomed);
        value_callbacks.release(value, doomed);
    });
}

bool equal(hash_table const & left, hash_table const & right) {
    if (left.count() != right.count()) {
        return false;
    }
    bool all_equal = true;
    left.for_each([&](void const * key, void const * value) {
        auto const * const other = all_equal ? right.find(key) : nullptr;
        all_equal = other != nullptr && left.values().equal(value, other->value);
    });
    return all_equal;
}

} // namespace cf
