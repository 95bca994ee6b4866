#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace {

std::string numbered_key(int number) {
    return std::string{"k"}.append(std::to_string(number));
}

auto count_of(CFTypeRef object) {
    return CFGetRetainCount(object);
}

struct value_pair {
    cf_owner<CFStringRef> k1 = string("the key");
    cf_owner<CFStringRef> k2 = string("the key");
    cf_owner<CFStringRef> v1 = string("value 1");
    cf_owner<CFStringRef> v2 = string("value 2");

    std::vector<CFIndex> counts() const {
        return {count_of(k1.get()), count_of(k2.get()), count_of(v1.get()), count_of(v2.get())};
    }
};

using callback_counts = std::vector<CFIndex>;

TEST(Dictionary, ReplacesTheKeyWithTheValue) {
    value_pair const pair;
    auto map = dictionary();
    CFDictionarySetValue(map.get(), pair.k1.get(), pair.v1.get());
    EXPECT_EQ(pair.counts(), (callback_counts{2, 1, 2, 1}));
    CFDictionarySetValue(map.get(), pair.k2.get(), pair.v2.get());
    EXPECT_EQ(pair.counts(), (callback_counts{1, 2, 1, 2}));
    EXPECT_EQ(CFDictionaryGetCount(map.get()), 1);
    CFDictionarySetValue(map.get(), pair.k2.get(), pair.v2.get());
    EXPECT_EQ(pair.counts(), (callback_counts{1, 2, 1, 2}));
    map.reset();
    EXPECT_EQ(pair.counts(), (callback_counts{1, 1, 1, 1}));
}

TEST(Dictionary, TakesTheFirstOfEqualKeysWhenCreated) {
    value_pair const pair;
    void const * keys[] = {pair.k1.get(), CFSTR("b"), pair.k2.get()};
    void const * values[] = {pair.v1.get(), CFSTR("2"), pair.v2.get()};
    auto const map =
        adopt(CFDictionaryCreate(nullptr, keys, values, 3, &kCFTypeDictionaryKeyCallBacks,
                                 &kCFTypeDictionaryValueCallBacks));
    EXPECT_EQ(CFDictionaryGetCount(map.get()), 2);
    EXPECT_EQ(CFDictionaryGetValue(map.get(), pair.k2.get()), pair.v1.get());
    EXPECT_EQ(pair.counts(), (callback_counts{2, 1, 2, 1}));
}

TEST(Dictionary, FindsByEquality) {
    auto const map = dictionary();
    EXPECT_EQ(CFDictionaryGetValue(map.get(), nullptr), nullptr);
    CFDictionarySetValue(map.get(), integer(5).get(), CFSTR("five"));
    EXPECT_EQ(CFDictionaryGetValue(map.get(), real(5).get()), CFSTR("five"));
    EXPECT_EQ(CFDictionaryGetValue(map.get(), integer(5).get()), CFSTR("five"));
    EXPECT_EQ(CFDictionaryGetValue(map.get(), CFSTR("5")), nullptr);
}

TEST(Dictionary, TakesCapacityAsAHint) {
    for (CFIndex const capacity : {-1, 0, 10, 1 << 30}) {
        auto const map = adopt(CFDictionaryCreateMutable(
            nullptr, capacity, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        for (int i = 0; i < 50; ++i) {
            CFDictionarySetValue(map.get(), string(numbered_key(i)).get(), kCFNull);
        }
        EXPECT_EQ(CFDictionaryGetCount(map.get()), 50);
    }
}

TEST(Dictionary, TreatsPlainPointersByIdentityWithoutCallbacks) {
    auto const map = adopt(CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
    auto const key = string("key");
    auto const equal_key = string("key");
    CFDictionarySetValue(map.get(), key.get(), nullptr);
    CFDictionarySetValue(map.get(), nullptr, key.get());
    EXPECT_EQ(CFDictionaryGetCount(map.get()), 2);
    EXPECT_EQ(CFDictionaryGetValue(map.get(), nullptr), key.get());
    EXPECT_EQ(CFDictionaryGetValue(map.get(), equal_key.get()), nullptr);
    CFDictionarySetValue(map.get(), key.get(), equal_key.get());
    EXPECT_EQ(CFDictionaryGetCount(map.get()), 2);
    EXPECT_EQ(CFDictionaryGetValue(map.get(), key.get()), equal_key.get());
    EXPECT_EQ(CFDictionaryGetValue(map.get(), equal_key.get()), nullptr);
    EXPECT_EQ(count_of(key.get()), 1);
}

std::vector<std::string> keys_of(CFDictionaryRef map) {
    std::vector<std::string> keys;
    CFDictionaryApplyFunction(
        map,
        [](void const * key, void const *, void * context) {
            static_cast<std::vector<std::string> *>(context)->push_back(
                utf8(static_cast<CFStringRef>(key)));
        },
        &keys);
    return keys;
}

TEST(Dictionary, GivesItsEntriesInOneOrderOfItsOwn) {
    auto const map = dictionary();
    std::vector<std::string> inserted;
    for (int i = 0; i < 20; ++i) {
        inserted.push_back(numbered_key(i));
        CFDictionarySetValue(map.get(), string(inserted.back()).get(), string("v").get());
    }
    auto const order = keys_of(map.get());
    EXPECT_NE(order, inserted);
    EXPECT_FALSE(std::ranges::is_sorted(order));
    auto sorted = order;
    std::ranges::sort(sorted);
    std::ranges::sort(inserted);
    EXPECT_EQ(sorted, inserted);

    void const * keys[20];
    void const * values[20];
    CFDictionaryGetKeysAndValues(map.get(), keys, values);
    CFDictionaryGetKeysAndValues(map.get(), nullptr, nullptr);
    for (std::size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(utf8(static_cast<CFStringRef>(keys[i])), order[i]);
        EXPECT_EQ(CFDictionaryGetValue(map.get(), keys[i]), values[i]);
    }
    EXPECT_EQ(keys_of(adopt(CFDictionaryCreateCopy(nullptr, map.get())).get()), order);
    EXPECT_EQ(keys_of(adopt(CFDictionaryCreateMutableCopy(nullptr, 0, map.get())).get()), order);
    EXPECT_EQ(CFHash(map.get()), 20u);
}

TEST(Dictionary, IsCopiedShallowly) {
    auto const original = dictionary();
    auto const list = array();
    CFDictionarySetValue(original.get(), CFSTR("list"), list.get());
    auto const copy = adopt(CFDictionaryCreateMutableCopy(nullptr, 1, original.get()));
    EXPECT_EQ(count_of(list.get()), 3);
    EXPECT_EQ(CFDictionaryGetValue(copy.get(), CFSTR("list")), list.get());
    CFDictionarySetValue(copy.get(), CFSTR("another"), kCFNull);
    EXPECT_EQ(CFDictionaryGetCount(original.get()), 1);
    auto const immutable = adopt(CFDictionaryCreateCopy(nullptr, original.get()));
    auto const again = adopt(CFDictionaryCreateCopy(nullptr, immutable.get()));
    EXPECT_NE(immutable.get(), again.get());
    EXPECT_TRUE(CFEqual(immutable.get(), again.get()));
    EXPECT_FALSE(CFEqual(copy.get(), original.get()));
}

TEST(Dictionary, EqualsByEntries) {
    auto const one = dictionary();
    auto const other = dictionary();
    CFDictionarySetValue(one.get(), CFSTR("a"), integer(1000).get());
    CFDictionarySetValue(one.get(), CFSTR("b"), integer(2000).get());
    CFDictionarySetValue(other.get(), CFSTR("b"), integer(2000).get());
    CFDictionarySetValue(other.get(), CFSTR("a"), real(1000).get());
    EXPECT_TRUE(CFEqual(one.get(), other.get()));
    CFDictionarySetValue(other.get(), CFSTR("a"), integer(1001).get());
    EXPECT_FALSE(CFEqual(one.get(), other.get()));
    auto const third = dictionary();
    CFDictionarySetValue(third.get(), CFSTR("b"), integer(2000).get());
    CFDictionarySetValue(third.get(), CFSTR("c"), integer(1000).get());
    EXPECT_FALSE(CFEqual(one.get(), third.get()));
}

// A hash that makes the keys collide, so that each is one of a long run of the table.
TEST(Dictionary, SurvivesCollisions) {
    CFDictionaryKeyCallBacks colliding = kCFTypeDictionaryKeyCallBacks;
    colliding.hash = [](void const * key) { return CFHash(key) % 3; };
    auto const map =
        adopt(CFDictionaryCreateMutable(nullptr, 0, &colliding, &kCFTypeDictionaryValueCallBacks));
    std::map<std::int64_t, std::int64_t> expected;
    std::uint32_t random = 1;
    for (std::int64_t step = 0; step < 100; ++step) {
        random = random * 1664525 + 1013904223;
        auto const key = std::int64_t{1000} + (random >> 24) % 50;
        CFDictionarySetValue(map.get(), integer(key).get(), integer(step).get());
        expected[key] = step;
    }
    ASSERT_EQ(CFDictionaryGetCount(map.get()), static_cast<CFIndex>(expected.size()));
    for (std::int64_t key = 1000; key < 1050; ++key) {
        auto const * const value = CFDictionaryGetValue(map.get(), integer(key).get());
        auto const wanted = expected.find(key);
        ASSERT_EQ(value != nullptr, wanted != expected.end());
        if (value != nullptr) {
            EXPECT_TRUE(CFEqual(value, integer(wanted->second).get()));
        }
    }
}

TEST(Dictionary, StoresWhatTheRetainCallbackReturns) {
    static int released = 0;
    released = 0;
    CFDictionaryKeyCallBacks copying = kCFTypeDictionaryKeyCallBacks;
    copying.retain = [](CFAllocatorRef, void const * key) -> void const * {
        return CFCopyDescription(key);
    };
    CFDictionaryValueCallBacks const plain{
        0, nullptr, [](CFAllocatorRef, void const *) { ++released; }, nullptr, nullptr};
    auto map = adopt(CFDictionaryCreateMutable(nullptr, 0, &copying, &plain));
    int value = 0;
    CFDictionarySetValue(map.get(), kCFBooleanTrue, &value);
    void const * key = nullptr;
    CFDictionaryGetKeysAndValues(map.get(), &key, nullptr);
    EXPECT_EQ(CFGetTypeID(key), CFStringGetTypeID());
    CFDictionarySetValue(map.get(), kCFBooleanTrue, &value);
    EXPECT_EQ(released, 1);
    map.reset();
    EXPECT_EQ(released, 2);
}

TEST(Dictionary, DescribesItself) {
    auto const map = dictionary();
    EXPECT_EQ(description(map.get()),
              "<CFBasicHash PTR [PTR]>{type = mutable dict, count = 0,\nentries =>\n}\n");
    CFDictionarySetValue(map.get(), CFSTR("k"), CFSTR("v"));
    auto const entries = "count = 1,\nentries =>\n\t0 : <CFString PTR [PTR]>{contents = \"k\"} = "
                         "<CFString PTR [PTR]>{contents = \"v\"}\n}\n";
    EXPECT_EQ(description(map.get()),
              std::string{"<CFBasicHash PTR [PTR]>{type = mutable dict, "} + entries);
    EXPECT_EQ(description(adopt(CFDictionaryCreateCopy(nullptr, map.get())).get()),
              std::string{"<CFBasicHash PTR [PTR]>{type = immutable dict, "} + entries);
}

} // namespace
