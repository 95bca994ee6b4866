// What the platform library and this declaration of it must agree on: sizes and values.
#include "platform/CoreFoundation.h"

#include <gtest/gtest.h>

namespace {

static_assert(sizeof(Boolean) == 1);
static_assert(sizeof(UniChar) == 2);
static_assert(sizeof(CFStringEncoding) == 4);
static_assert(sizeof(CFIndex) == 8 && sizeof(CFTypeID) == 8);
static_assert(sizeof(CFHashCode) == 8 && sizeof(CFOptionFlags) == 8);
static_assert(sizeof(CFNumberType) == 8 && sizeof(CFPropertyListFormat) == 8);
static_assert(sizeof(CFRange) == 16);
static_assert(sizeof(CFDictionaryKeyCallBacks) == 48);
static_assert(sizeof(CFDictionaryValueCallBacks) == 40);
static_assert(sizeof(CFArrayCallBacks) == 40);
static_assert(sizeof(CFSetCallBacks) == 48);

static_assert(kCFNotFound == -1);
static_assert(kCFStringEncodingMacRoman == 0);
static_assert(kCFStringEncodingUTF16 == 256);
static_assert(kCFStringEncodingISOLatin1 == 513);
static_assert(kCFStringEncodingASCII == 1536);
static_assert(kCFStringEncodingUTF8 == 134217984);
static_assert(kCFCompareCaseInsensitive == 1);
static_assert(kCFCompareBackwards == 4);
static_assert(kCFCompareAnchored == 8);

static_assert(kCFNumberSInt8Type == 1 && kCFNumberSInt16Type == 2);
static_assert(kCFNumberSInt32Type == 3 && kCFNumberSInt64Type == 4);
static_assert(kCFNumberFloat32Type == 5 && kCFNumberFloat64Type == 6);
static_assert(kCFNumberCharType == 7 && kCFNumberShortType == 8);
static_assert(kCFNumberIntType == 9 && kCFNumberLongType == 10);
static_assert(kCFNumberLongLongType == 11 && kCFNumberFloatType == 12);
static_assert(kCFNumberDoubleType == 13 && kCFNumberCFIndexType == 14);
static_assert(kCFNumberNSIntegerType == 15 && kCFNumberCGFloatType == 16);

static_assert(kCFPropertyListOpenStepFormat == 1);
static_assert(kCFPropertyListXMLFormat_v1_0 == 100);
static_assert(kCFPropertyListBinaryFormat_v1_0 == 200);
static_assert(kCFPropertyListImmutable == 0);
static_assert(kCFPropertyListMutableContainers == 1);
static_assert(kCFPropertyListMutableContainersAndLeaves == 2);
static_assert(kCFPropertyListReadCorruptError == 3840);
static_assert(kCFPropertyListWriteStreamError == 3851);

TEST(Declarations, HaveConstantsOfTheseValues) {
    EXPECT_EQ(kCFAllocatorDefault, nullptr);
    EXPECT_NE(kCFAllocatorNull, nullptr);
    EXPECT_EQ(kCFTypeArrayCallBacks.version, 0);
    EXPECT_EQ(kCFTypeSetCallBacks.version, 0);
    EXPECT_EQ(kCFTypeDictionaryKeyCallBacks.version, 0);
    EXPECT_EQ(kCFTypeDictionaryValueCallBacks.version, 0);
}

} // namespace
