#include "QNRescue/qnrescue.h"

#include "tests/unit/helpers/objects.hpp"

#include <gtest/gtest.h>

namespace {

using tests::make_array;
using tests::make_dictionary;
using tests::make_error;
using tests::make_set;
using tests::plist;

constexpr long xml = kCFPropertyListXMLFormat_v1_0;
constexpr long binary = kCFPropertyListBinaryFormat_v1_0;

bool valid(CFTypeRef value, long format) {
    return CFPropertyListValidateForSerialization(value, format);
}

TEST(PropertyListValidation, NullIsNot) {
    EXPECT_FALSE(valid(nullptr, xml));
    EXPECT_FALSE(valid(nullptr, binary));
}

TEST(PropertyListValidation, PlainTypesAre) {
    for (auto const * element :
         {"<string>text</string>", "<string/>", "<integer>5</integer>", "<real>0.5</real>",
          "<true/>", "<false/>", "<date>2024-01-02T03:04:05Z</date>", "<data>AAEC</data>",
          "<array/>", "<dict/>"}) {
        for (long const format : {xml, binary, 1L, 0L, -1L}) {
            EXPECT_TRUE(valid(plist(element).get(), format)) << element << ' ' << format;
        }
    }
}

TEST(PropertyListValidation, OtherTypesAreNot) {
    for (long const format : {xml, binary}) {
        EXPECT_FALSE(valid(kCFNull, format));
        EXPECT_FALSE(valid(make_error(CFSTR("d"), 1).get(), format));
    }
}

TEST(PropertyListValidation, SetsAreInAnyFormatButXml) {
    auto const set = make_set({CFSTR("a"), kCFBooleanTrue});
    auto const empty = make_set({});
    EXPECT_FALSE(valid(set.get(), xml));
    EXPECT_FALSE(valid(empty.get(), xml));
    for (long const format : {binary, 1L, 0L, 99L, 101L, -100L}) {
        EXPECT_TRUE(valid(set.get(), format)) << format;
        EXPECT_TRUE(valid(empty.get(), format)) << format;
    }
    EXPECT_FALSE(valid(make_set({CFSTR("a"), kCFNull}).get(), binary));
}

TEST(PropertyListValidation, EveryElementCounts) {
    EXPECT_TRUE(valid(make_array({CFSTR("a"), kCFBooleanTrue}).get(), xml));
    EXPECT_FALSE(valid(make_array({kCFNull, CFSTR("a")}).get(), xml));
    EXPECT_FALSE(valid(make_array({CFSTR("a"), kCFNull}).get(), xml));
    EXPECT_FALSE(valid(make_array({CFSTR("a"), kCFNull, CFSTR("b")}).get(), binary));
}

TEST(PropertyListValidation, EveryValueCounts) {
    EXPECT_TRUE(valid(make_dictionary({{CFSTR("a"), CFSTR("b")}}).get(), xml));
    EXPECT_FALSE(valid(
        make_dictionary({{CFSTR("a"), kCFNull}, {CFSTR("b"), CFSTR("b")}, {CFSTR("c"), CFSTR("d")}})
            .get(),
        xml));
}

TEST(PropertyListValidation, KeysMustBeStrings) {
    auto const number = tests::make_number(5);
    auto const dictionary = make_dictionary({{number.get(), CFSTR("b")}, {CFSTR("a"), CFSTR("b")}});
    EXPECT_FALSE(valid(dictionary.get(), xml));
    EXPECT_FALSE(valid(dictionary.get(), binary));
}

// The order of the keys, which differs with the numbers, makes no difference.
TEST(PropertyListValidation, EveryKeyCounts) {
    for (std::int64_t key = 0; key < 32; ++key) {
        auto const number = tests::make_number(key);
        EXPECT_FALSE(valid(
            make_dictionary(
                {{CFSTR("a"), CFSTR("b")}, {number.get(), CFSTR("b")}, {CFSTR("c"), CFSTR("b")}})
                .get(),
            xml))
            << key;
    }
}

TEST(PropertyListValidation, GoesToAnyDepth) {
    auto const nested = [](CFTypeRef innermost) {
        auto const array = make_array({innermost});
        auto const dictionary = make_dictionary({{CFSTR("k"), array.get()}});
        return make_array({CFSTR("a"), dictionary.get()});
    };
    EXPECT_TRUE(valid(nested(CFSTR("a")).get(), xml));
    EXPECT_FALSE(valid(nested(kCFNull).get(), xml));
    EXPECT_FALSE(valid(nested(make_set({}).get()).get(), xml));
    EXPECT_TRUE(valid(nested(make_set({}).get()).get(), binary));
}

TEST(PropertyListValidation, NullMembersAreNot) {
    void const * values[] = {nullptr};
    auto const array = qnrescue::adopt(CFArrayCreate(kCFAllocatorDefault, values, 1, nullptr));
    EXPECT_FALSE(valid(array.get(), xml));
    auto const set = qnrescue::adopt(CFSetCreateMutable(kCFAllocatorDefault, 0, nullptr));
    CFSetAddValue(set.get(), nullptr);
    EXPECT_FALSE(valid(set.get(), binary));

    void const * keys[] = {nullptr};
    void const * texts[] = {CFSTR("text")};
    auto const null_key =
        qnrescue::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys, texts, 1, nullptr, nullptr));
    EXPECT_FALSE(valid(null_key.get(), xml));
    auto const null_value = qnrescue::adopt(
        CFDictionaryCreate(kCFAllocatorDefault, texts, values, 1, nullptr, nullptr));
    EXPECT_FALSE(valid(null_value.get(), xml));
}

} // namespace
