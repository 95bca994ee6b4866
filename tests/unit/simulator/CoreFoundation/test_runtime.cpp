#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

constexpr CFIndex immortal = 0x0fffffffffffffff;

cf_owner<CFErrorRef> error() {
    return adopt(CFErrorCreate(kCFAllocatorDefault, CFSTR("domain"), 1, nullptr));
}

TEST(Object, HasAType) {
    auto const text = string("x");
    auto const five = integer(5);
    auto const date = adopt(CFDateCreate(nullptr, 0));
    auto const data = adopt(CFDataCreate(nullptr, nullptr, 0));
    auto const list = array();
    auto const map = dictionary();
    auto const set = adopt(CFSetCreateMutable(nullptr, 0, &kCFTypeSetCallBacks));
    auto const fault = error();
    struct {
        CFTypeRef object;
        CFTypeID type;
        CFTypeID id;
        char const * name;
    } const rows[] = {
        {text.get(), CFStringGetTypeID(), 7, "CFString"},
        {kCFNull, CFNullGetTypeID(), 16, "CFNull"},
        {set.get(), CFSetGetTypeID(), 17, "CFSet"},
        {map.get(), CFDictionaryGetTypeID(), 18, "CFDictionary"},
        {list.get(), CFArrayGetTypeID(), 19, "CFArray"},
        {data.get(), CFDataGetTypeID(), 20, "CFData"},
        {kCFBooleanTrue, CFBooleanGetTypeID(), 21, "CFBoolean"},
        {five.get(), CFNumberGetTypeID(), 22, "CFNumber"},
        {fault.get(), CFErrorGetTypeID(), 27, "CFError"},
        {date.get(), CFDateGetTypeID(), 42, "CFDate"},
        {kCFAllocatorNull, 2, 2, "CFAllocator"},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(CFGetTypeID(row.object), row.id);
        EXPECT_EQ(row.type, row.id);
    }
}

TEST(Object, StartsWithOneReferenceAndCountsExactly) {
    auto const text = string("counted");
    EXPECT_EQ(CFGetRetainCount(text.get()), 1);
    for (int i = 0; i < 100'000; ++i) {
        EXPECT_EQ(CFRetain(text.get()), text.get());
    }
    EXPECT_EQ(CFGetRetainCount(text.get()), 100'001);
    for (int i = 0; i < 100'000; ++i) {
        CFRelease(text.get());
    }
    EXPECT_EQ(CFGetRetainCount(text.get()), 1);
    EXPECT_EQ(CFGetRetainCount(error().get()), 1);
}

TEST(Object, IsImmortalAsAConstant) {
    auto const not_a_number = real(std::numeric_limits<double>::quiet_NaN());
    CFTypeRef const constants[] = {
        kCFBooleanTrue,    kCFBooleanFalse,    kCFNull,
        CFSTR("immortal"), not_a_number.get(), kCFErrorLocalizedDescriptionKey,
        kCFAllocatorNull,
    };
    for (auto const * const constant : constants) {
        EXPECT_EQ(CFGetRetainCount(constant), immortal);
        for (int i = 0; i < 1000; ++i) {
            CFRelease(constant);
        }
        for (int i = 0; i < 500; ++i) {
            CFRetain(constant);
        }
        EXPECT_EQ(CFGetRetainCount(constant), immortal);
    }
    EXPECT_EQ(utf8(CFSTR("immortal")), "immortal");
}

TEST(Object, EqualsOnlyItsOwnType) {
    auto const five = integer(5);
    auto const text = string("5");
    auto const list = array();
    auto const map = dictionary();
    EXPECT_FALSE(CFEqual(five.get(), text.get()));
    EXPECT_FALSE(CFEqual(list.get(), map.get()));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_TRUE(CFEqual(kCFNull, kCFNull));
}

TEST(Object, IsRetainedAndReleasedByManyThreads) {
    auto const text = string("shared");
    auto const list = array();
    CFArrayAppendValue(list.get(), text.get());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20'000; ++i) {
                CFRetain(text.get());
                CFRetain(list.get());
                auto const constant = CFSTR("a constant of many threads");
                EXPECT_EQ(CFHash(constant), CFHash(CFSTR("a constant of many threads")));
                CFHash(text.get());
                CFRelease(list.get());
                CFRelease(text.get());
            }
        });
    }
    for (auto & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(CFGetRetainCount(text.get()), 2);
    EXPECT_EQ(CFGetRetainCount(list.get()), 1);
}

// Each thread gives up its own reference; the last one, whichever, destroys the array.
TEST(Object, IsDestroyedOnceByWhicheverThreadIsLast) {
    static std::atomic<int> destroyed;
    constexpr CFArrayCallBacks callbacks{
        0, nullptr, [](CFAllocatorRef, void const *) { ++destroyed; }, nullptr, nullptr};
    constexpr int rounds = 200;
    destroyed = 0;
    for (int round = 0; round < rounds; ++round) {
        void const * value = &destroyed;
        auto const * const list = CFArrayCreate(nullptr, &value, 1, &callbacks);
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            CFRetain(list);
            threads.emplace_back([list] { CFRelease(list); });
        }
        CFRelease(list);
        for (auto & thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(destroyed, rounds);
}

TEST(ConstantString, IsOneObjectForAllThreads) {
    constexpr int texts = 300;
    std::vector<std::vector<CFStringRef>> seen(4, std::vector<CFStringRef>(texts));
    std::vector<std::thread> threads;
    for (auto & mine : seen) {
        threads.emplace_back([&mine] {
            for (std::size_t i = 0; i < mine.size(); ++i) {
                mine[i] = __CFStringMakeConstantString(("text " + std::to_string(i)).c_str());
            }
        });
    }
    for (auto & thread : threads) {
        thread.join();
    }
    for (auto const & others : seen) {
        EXPECT_EQ(others, seen[0]);
    }
    EXPECT_EQ(utf8(seen[0][299]), "text 299");
}

// The depth is the simulator's: the real library releases recursively, and ends a stack of 1 MiB
// between 2,000 and 3,000 levels.
TEST(Object, CanBeNestedDeeplyAndReleased) {
    auto inner = array();
    for (int i = 0; i < 300'000; ++i) {
        auto outer = array();
        CFArrayAppendValue(outer.get(), inner.get());
        inner = std::move(outer);
    }
    EXPECT_EQ(CFArrayGetCount(inner.get()), 1);
}

} // namespace
