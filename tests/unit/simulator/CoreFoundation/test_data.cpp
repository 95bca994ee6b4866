#include "simulator/CoreFoundation/data.hpp"
#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>

namespace {

cf_owner<CFDataRef> counting_data(std::size_t length) {
    std::vector<UInt8> bytes(length);
    std::iota(bytes.begin(), bytes.end(), UInt8{0});
    return adopt(CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(length)));
}

TEST(Data, CopiesItsBytes) {
    UInt8 bytes[] = {1, 2, 3};
    auto const data = adopt(CFDataCreate(nullptr, bytes, 3));
    bytes[0] = 99;
    EXPECT_EQ(CFDataGetLength(data.get()), 3);
    EXPECT_EQ(CFDataGetBytePtr(data.get())[0], 1);
}

TEST(Data, RefersToForeignBytesWithoutACopy) {
    UInt8 bytes[] = {1, 2, 3};
    auto const data = adopt(CFDataCreateWithBytesNoCopy(nullptr, bytes, 3, kCFAllocatorNull));
    bytes[0] = 99;
    EXPECT_EQ(CFDataGetBytePtr(data.get()), bytes);
    EXPECT_EQ(CFDataGetBytePtr(data.get())[0], 99);
}

// The address sanitizer notices bytes that are not freed.
TEST(Data, FreesAdoptedBytes) {
    auto * const bytes = static_cast<UInt8 *>(std::calloc(3, 1));
    auto const data = adopt(CFDataCreateWithBytesNoCopy(nullptr, bytes, 3, nullptr));
    EXPECT_EQ(CFDataGetBytePtr(data.get()), bytes);
}

TEST(Data, CanBeEmpty) {
    UInt8 const byte = 0;
    for (auto const & data :
         {adopt(CFDataCreate(nullptr, &byte, 0)), adopt(CFDataCreate(nullptr, nullptr, 0)),
          adopt(CFDataCreateWithBytesNoCopy(nullptr, nullptr, 0, nullptr))}) {
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(CFDataGetLength(data.get()), 0);
        EXPECT_EQ(CFDataGetBytePtr(data.get()), nullptr);
    }
    EXPECT_EQ(CFDataCreate(nullptr, &byte, -1), nullptr);
}

TEST(Data, EqualsByBytes) {
    auto const one = counting_data(5);
    auto const same = counting_data(5);
    EXPECT_TRUE(CFEqual(one.get(), same.get()));
    EXPECT_EQ(CFHash(one.get()), CFHash(same.get()));
    EXPECT_FALSE(CFEqual(one.get(), counting_data(4).get()));
}

TEST(Data, DescribesItself) {
    struct {
        std::size_t length;
        char const * bytes;
    } const rows[] = {
        {0, "0x"},
        {3, "0x000102"},
        {24, "0x000102030405060708090a0b0c0d0e0f1011121314151617"},
        {25, "0x000102030405060708090a0b0c0d0e0f ... 1112131415161718"},
    };
    for (auto const & row : rows) {
        auto const length = std::to_string(row.length);
        EXPECT_EQ(description(counting_data(row.length).get()),
                  "<CFData PTR [PTR]>{length = " + length + ", capacity = " + length +
                      ", bytes = " + row.bytes + "}");
    }
}

// No public function shows this, since none here changes data.
TEST(Data, IsMutableAsAWrittenPropertyList) {
    auto const document = adopt(CFPropertyListCreateData(
        nullptr, kCFBooleanTrue, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    ASSERT_NE(document, nullptr);
    EXPECT_TRUE(document->is_mutable);
    EXPECT_FALSE(counting_data(3)->is_mutable);
}

TEST(Date, DescribesItself) {
    struct {
        double time;
        char const * text;
    } const rows[] = {{0, "0"}, {0.5, "0.5"}, {700000000, "700000000"}};
    for (auto const & row : rows) {
        EXPECT_EQ(description(adopt(CFDateCreate(nullptr, row.time)).get()),
                  std::string{"<CFDate PTR [PTR]>{time = "} + row.text + "}");
    }
}

TEST(Constant, DescribesItself) {
    EXPECT_EQ(description(kCFBooleanTrue), "<CFBoolean PTR [PTR]>{value = true}");
    EXPECT_EQ(description(kCFBooleanFalse), "<CFBoolean PTR [PTR]>{value = false}");
    EXPECT_EQ(description(kCFNull), "<CFNull PTR [PTR]>");
    EXPECT_EQ(utf8(adopt(CFCopyDescription(kCFAllocatorNull))).rfind("<CFAllocator 0x", 0), 0u);
}

} // namespace
