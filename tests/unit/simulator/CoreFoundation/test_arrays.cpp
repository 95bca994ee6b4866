#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(Array, OwnsItsValues) {
    auto const text = string("x");
    auto list = array();
    CFArrayAppendValue(list.get(), text.get());
    CFArrayAppendValue(list.get(), text.get());
    EXPECT_EQ(CFGetRetainCount(text.get()), 3);
    EXPECT_EQ(CFArrayGetCount(list.get()), 2);
    EXPECT_EQ(CFArrayGetValueAtIndex(list.get(), 1), text.get());
    EXPECT_EQ(CFHash(list.get()), 2u);
    list.reset();
    EXPECT_EQ(CFGetRetainCount(text.get()), 1);
}

TEST(Array, TakesCapacityAsAHint) {
    for (CFIndex const capacity : {-1, 0, 1, 1 << 30}) {
        auto const list = adopt(CFArrayCreateMutable(nullptr, capacity, &kCFTypeArrayCallBacks));
        for (int i = 0; i < 50; ++i) {
            CFArrayAppendValue(list.get(), kCFNull);
        }
        EXPECT_EQ(CFArrayGetCount(list.get()), 50);
    }
}

TEST(Array, GrowsEvenIfCreatedImmutable) {
    void const * values[] = {kCFBooleanTrue};
    auto const list = adopt(CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks));
    CFArrayAppendValue(const_cast<CFMutableArrayRef>(list.get()), kCFNull);
    EXPECT_EQ(CFArrayGetCount(list.get()), 2);
}

TEST(Array, EqualsByValues) {
    auto const one = array();
    auto const other = array();
    EXPECT_TRUE(CFEqual(one.get(), other.get()));
    CFArrayAppendValue(one.get(), integer(1000).get());
    EXPECT_FALSE(CFEqual(one.get(), other.get()));
    CFArrayAppendValue(other.get(), real(1000).get());
    EXPECT_TRUE(CFEqual(one.get(), other.get()));
    EXPECT_EQ(CFHash(one.get()), CFHash(other.get()));
}

TEST(Array, AppliesAFunctionToARange) {
    void const * values[] = {CFSTR("a"), CFSTR("b"), CFSTR("c")};
    auto const list = adopt(CFArrayCreate(nullptr, values, 3, &kCFTypeArrayCallBacks));
    std::string seen;
    CFArrayApplyFunction(
        list.get(), {1, 2},
        [](void const * value, void * context) {
            *static_cast<std::string *>(context) += utf8(static_cast<CFStringRef>(value));
        },
        &seen);
    EXPECT_EQ(seen, "bc");
}

// An array with other callbacks can make an object of anything.
TEST(Array, CallsTheCallbacksItWasGiven) {
    static std::vector<std::string> calls;
    calls.clear();
    static int const value = 0;
    constexpr CFArrayCallBacks callbacks{
        0,
        [](CFAllocatorRef, void const * element) {
            calls.emplace_back(element == &value ? "retain" : "?");
            return element;
        },
        [](CFAllocatorRef, void const * element) {
            calls.emplace_back(element == &value ? "release" : "?");
        },
        [](void const *) { return CFSTR("described"); },
        [](void const *, void const *) {
            calls.emplace_back("equal");
            return Boolean{1};
        },
    };
    void const * values[] = {&value};
    auto one = adopt(CFArrayCreate(nullptr, values, 1, &callbacks));
    static int const other_value = 0;
    values[0] = &other_value;
    constexpr CFArrayCallBacks only_equal{0, nullptr, nullptr, nullptr, callbacks.equal};
    auto const other = adopt(CFArrayCreate(nullptr, values, 1, &only_equal));
    EXPECT_TRUE(CFEqual(one.get(), other.get()));
    EXPECT_EQ(description(one.get()),
              "<CFArray PTR [PTR]>{type = immutable, count = 1, values = (\n\t0 : described\n)}");
    CFRetain(one.get());
    CFRelease(one.get());
    EXPECT_EQ(calls, (std::vector<std::string>{"retain", "equal"}));
    one.reset();
    EXPECT_EQ(calls.back(), "release");
    EXPECT_EQ(calls.size(), 3u);
}

TEST(Array, HoldsAnythingWithoutCallbacks) {
    auto const list = adopt(CFArrayCreateMutable(nullptr, 0, nullptr));
    CFArrayAppendValue(list.get(), nullptr);
    CFArrayAppendValue(list.get(), reinterpret_cast<void const *>(1));
    EXPECT_EQ(CFArrayGetCount(list.get()), 2);
    EXPECT_EQ(utf8(adopt(CFCopyDescription(list.get())))
                  .substr(utf8(adopt(CFCopyDescription(list.get()))).find("{type")),
              "{type = mutable-small, count = 2, values = (\n\t0 : <0x0>\n\t1 : <0x1>\n)}");
}

TEST(Array, DescribesItself) {
    auto const list = array();
    EXPECT_EQ(description(list.get()),
              "<CFArray PTR [PTR]>{type = mutable-small, count = 0, values = ()}");
    CFArrayAppendValue(list.get(), CFSTR("x"));
    auto const inner = array();
    CFArrayAppendValue(inner.get(), kCFBooleanTrue);
    CFArrayAppendValue(list.get(), inner.get());
    EXPECT_EQ(description(list.get()),
              "<CFArray PTR [PTR]>{type = mutable-small, count = 2, values = (\n"
              "\t0 : <CFString PTR [PTR]>{contents = \"x\"}\n"
              "\t1 : <CFArray PTR [PTR]>{type = mutable-small, count = 1, values = (\n"
              "\t0 : <CFBoolean PTR [PTR]>{value = true}\n"
              ")}\n"
              ")}");
}

} // namespace
