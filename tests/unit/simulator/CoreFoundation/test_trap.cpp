// What must end the process: one line on standard error that names the function and the fault.
#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <span>

namespace {

// Objects that the cases below misuse; made where they are used, since each case dies.
CFMutableDictionaryRef full_dictionary() {
    auto map = dictionary();
    CFDictionarySetValue(map.get(), CFSTR("k"), CFSTR("v"));
    return map.release();
}

CFMutableDictionaryRef immutable_dictionary() {
    auto const map = dictionary();
    return const_cast<CFMutableDictionaryRef>(CFDictionaryCreateCopy(nullptr, map.get()));
}

CFMutableArrayRef full_array() {
    auto list = array();
    CFArrayAppendValue(list.get(), CFSTR("v"));
    return list.release();
}

template <class Reference>
Reference as(CFTypeRef object) {
    return static_cast<Reference>(const_cast<void *>(object));
}

// A mutable array with only one of the callbacks of objects.
CFMutableArrayRef half_an_array(bool retains) {
    CFArrayCallBacks callbacks{};
    if (retains) {
        callbacks.retain = kCFTypeArrayCallBacks.retain;
    } else {
        callbacks.release = kCFTypeArrayCallBacks.release;
    }
    return CFArrayCreateMutable(nullptr, 0, &callbacks);
}

struct trap_call {
    char const * line; // what standard error shows, behind the library's name
    void (*misuse)();
};

void const * nothing[] = {nullptr};

trap_call const traps[] = {
    {"CFRetain: the object is null", [] { CFRetain(nullptr); }},
    {"CFRelease: the object is null", [] { CFRelease(nullptr); }},
    {"CFHash: the object is null", [] { CFHash(nullptr); }},
    {"CFEqual: the object is null", [] { CFEqual(nullptr, CFSTR("x")); }},
    {"CFEqual: the object is null", [] { CFEqual(CFSTR("x"), nullptr); }},
    {"CFEqual: the object is null", [] { CFEqual(nullptr, nullptr); }},
    {"CFGetRetainCount: the object is null", [] { CFGetRetainCount(nullptr); }},
    {"CFGetTypeID: the object is null", [] { CFGetTypeID(nullptr); }},
    {"CFStringGetLength: the CFString is null", [] { CFStringGetLength(nullptr); }},
    {"CFStringGetLength: the argument is a CFNull, not a CFString",
     [] { CFStringGetLength(as<CFStringRef>(kCFNull)); }},
    {"CFStringCreateCopy: the CFString is null", [] { CFStringCreateCopy(nullptr, nullptr); }},
    {"CFStringFind: the CFString is null", [] { CFStringFind(CFSTR("x"), nullptr, 0); }},
    {"CFStringFind: the CFString is null", [] { CFStringFind(nullptr, CFSTR("x"), 0); }},
    {"CFNumberCreate: the value is null",
     [] { CFNumberCreate(nullptr, kCFNumberSInt32Type, nullptr); }},
    {"CFNumberGetValue: the CFNumber is null",
     [] { CFNumberGetValue(nullptr, kCFNumberSInt32Type, nullptr); }},
    {"CFRelease: a shared number was released more often than it was retained",
     [] {
         auto const * const five = integer(5).release();
         CFRelease(five);
         CFRelease(five);
     }},
    {"CFDateGetAbsoluteTime: the CFDate is null", [] { CFDateGetAbsoluteTime(nullptr); }},
    {"CFDataGetLength: the CFData is null", [] { CFDataGetLength(nullptr); }},
    {"CFDataGetBytePtr: the CFData is null", [] { CFDataGetBytePtr(nullptr); }},
    {"CFDataCreate: the bytes are null", [] { CFDataCreate(nullptr, nullptr, 1); }},
    {"CFArrayGetCount: the CFArray is null", [] { CFArrayGetCount(nullptr); }},
    {"CFArrayGetValueAtIndex: the CFArray is null", [] { CFArrayGetValueAtIndex(nullptr, 0); }},
    {"CFArrayAppendValue: the CFArray is null", [] { CFArrayAppendValue(nullptr, kCFNull); }},
    {"CFArrayGetValueAtIndex: the index -1 is outside an array of 1",
     [] { CFArrayGetValueAtIndex(full_array(), -1); }},
    {"CFArrayGetValueAtIndex: the index 1 is outside an array of 1",
     [] { CFArrayGetValueAtIndex(full_array(), 1); }},
    {"CFArrayApplyFunction: the range 1.1 is outside an array of 1",
     [] {
         CFArrayApplyFunction(
             full_array(), {1, 1}, [](void const *, void *) {}, nullptr);
     }},
    {"CFArrayAppendValue: a collection of objects cannot hold null",
     [] { CFArrayAppendValue(full_array(), nullptr); }},
    {"CFArrayCreate: a collection of objects cannot hold null",
     [] { CFArrayCreate(nullptr, nothing, 1, &kCFTypeArrayCallBacks); }},
    {"CFDictionaryGetCount: the CFDictionary is null", [] { CFDictionaryGetCount(nullptr); }},
    {"CFDictionaryGetValue: the CFDictionary is null",
     [] { CFDictionaryGetValue(nullptr, CFSTR("k")); }},
    {"CFDictionarySetValue: the CFDictionary is null",
     [] { CFDictionarySetValue(nullptr, CFSTR("k"), CFSTR("v")); }},
    {"CFDictionaryCreateCopy: the CFDictionary is null",
     [] { CFDictionaryCreateCopy(nullptr, nullptr); }},
    {"CFDictionarySetValue: a collection of objects cannot hold null",
     [] { CFDictionarySetValue(full_dictionary(), CFSTR("k"), nullptr); }},
    {"CFDictionarySetValue: a collection of objects cannot hold null",
     [] { CFDictionarySetValue(full_dictionary(), nullptr, CFSTR("v")); }},
    {"CFDictionaryCreate: a collection of objects cannot hold null",
     [] {
         void const * key = CFSTR("k");
         CFDictionaryCreate(nullptr, &key, nothing, 1, &kCFTypeDictionaryKeyCallBacks,
                            &kCFTypeDictionaryValueCallBacks);
     }},
    {"CFDictionaryGetValue: a collection of objects cannot hold null",
     [] { CFDictionaryGetValue(full_dictionary(), nullptr); }},
    {"CFDictionarySetValue: the dictionary is immutable",
     [] { CFDictionarySetValue(immutable_dictionary(), CFSTR("k"), CFSTR("v")); }},
    {"CFSetGetCount: the CFSet is null", [] { CFSetGetCount(nullptr); }},
    {"CFSetAddValue: a collection of objects cannot hold null",
     [] { CFSetAddValue(CFSetCreateMutable(nullptr, 0, &kCFTypeSetCallBacks), nullptr); }},
    {"CFArrayAppendValue: a collection of objects cannot hold null",
     [] { CFArrayAppendValue(half_an_array(true), nullptr); }},
    {"CFArrayAppendValue: a collection of objects cannot hold null",
     [] { CFArrayAppendValue(half_an_array(false), nullptr); }},
    {"CFArrayGetValueAtIndex: the index 0 is outside an array of 0",
     [] { CFArrayGetValueAtIndex(array().release(), 0); }},
    {"CFArrayCreate: failed with .+",
     [] { CFArrayCreate(nullptr, nullptr, std::numeric_limits<CFIndex>::max(), nullptr); }},
    {"CFDictionaryCreate: a collection of objects cannot hold null",
     [] {
         void const * value = CFSTR("v");
         CFDictionaryCreate(nullptr, nothing, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                            &kCFTypeDictionaryValueCallBacks);
     }},
    {"CFDictionaryCreateMutableCopy: the CFDictionary is null",
     [] { CFDictionaryCreateMutableCopy(nullptr, 0, nullptr); }},
    {"CFErrorCreate: the CFString is null", [] { CFErrorCreate(nullptr, nullptr, 1, nullptr); }},
    {"CFErrorCopyDescription: the CFError is null", [] { CFErrorCopyDescription(nullptr); }},
    {"CFErrorGetCode: the CFError is null", [] { CFErrorGetCode(nullptr); }},
};

TEST(TrapDeathTest, EndsTheProcessWithOneLine) {
#ifdef _WIN32
    auto const cases = std::span{traps}.first(2); // each starts a process
#else
    auto const cases = std::span{traps};
#endif
    for (auto const & trap : cases) {
        EXPECT_DEATH(trap.misuse(), std::string{"^CoreFoundation: "} + trap.line + "\n$");
    }
}

TEST(Trap, IsNotSetForNullInAnEmptyDictionary) {
    auto const empty = dictionary();
    EXPECT_EQ(CFDictionaryGetValue(empty.get(), nullptr), nullptr);
}

} // namespace
