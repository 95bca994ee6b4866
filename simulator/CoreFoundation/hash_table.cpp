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

// Mixes the bits, because some hashes are plain counts or addresses, and never answers 0.
CFHashCode HashTable::hash_of(void const * key) const {
    constexpr CFHashCode odd = 0x9e3779b97f4a7c15;
    constexpr CFHashCode in_use = CFHashCode{1} << 63;
    auto const hash = keys_.hash(key);
    auto const mixed = (hash ^ hash >> 32) * odd;
    return (mixed ^ mixed >> 32) | in_use;
}

// The slot of the entry with this key or, without one, the free slot where it belongs.
std::size_t HashTable::locate(void const * key, CFHashCode hash) const {
    auto const mask = slots_.size() - 1;
    auto index = hash & mask;
    while (slots_[index].hash != 0 &&
           (slots_[index].hash != hash || !keys_.equal(slots_[index].key, key))) {
        index = (index + 1) & mask;
    }
    return index;
}

HashTable::Slot const * HashTable::find(void const * key) const {
    if (count_ == 0) {
        return nullptr;
    }
    auto const & slot = slots_[locate(key, hash_of(key))];
    return slot.hash != 0 ? &slot : nullptr;
}

// The entry with this key, or a free slot that only lacks key and value; its hash tells which.
std::pair<HashTable::Slot &, CFHashCode> HashTable::slot_for(void const * key) {
    if (is_full(count_ + 1, slots_.size())) {
        resize(std::max(fewest_slots, slots_.size() * 2));
    }
    auto const hash = hash_of(key);
    return {slots_[locate(key, hash)], hash};
}

void HashTable::add(void const * key, void const * value) {
    auto const [slot, hash] = slot_for(key);
    if (slot.hash == 0) {
        slot = {keys_.retain(key), values_.retain(value), hash};
        ++count_;
    }
}

void HashTable::set(void const * key, void const * value) {
    set_adopting(keys_.retain(key), values_.retain(value));
}

void HashTable::set_adopting(void const * key, void const * value) {
    auto const [slot, hash] = slot_for(key);
    auto const old = std::exchange(slot, {key, value, hash});
    if (old.hash == 0) {
        ++count_;
    } else {
        keys_.release(old.key);
        values_.release(old.value);
    }
}

void HashTable::resize(std::size_t slots) {
    auto const old = std::exchange(slots_, guarded([&] { return std::vector<Slot>(slots); }));
    auto const mask = slots - 1;
    for (auto const & slot : old) {
        if (slot.hash != 0) {
            auto index = slot.hash & mask;
            while (slots_[index].hash != 0) {
                index = (index + 1) & mask;
            }
            slots_[index] = slot;
        }
    }
}

void HashTable::reserve(CFIndex entries) {
    auto const wanted = static_cast<std::size_t>(std::clamp<CFIndex>(entries, 0, most_reserved));
    auto const slots = std::bit_ceil(wanted * 4 / 3 + 1);
    if (wanted > 0 && slots > slots_.size()) {
        resize(std::max(fewest_slots, slots));
    }
}

void HashTable::copy_from(HashTable const & other) {
    guarded([&] { slots_ = other.slots_; });
    count_ = other.count_;
    for (auto & slot : slots_) {
        if (slot.hash != 0) {
            slot.key = keys_.retain(slot.key);
            slot.value = values_.retain(slot.value);
        }
    }
}

void HashTable::release_all(DoomedObjects & doomed) {
    for_each([&](void const * key, void const * value) {
        keys_.release(key, doomed);
        values_.release(value, doomed);
    });
}

bool equal(HashTable const & left, HashTable const & right) {
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
