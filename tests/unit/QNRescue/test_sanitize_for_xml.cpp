#include "QNRescue/sanitize_for_xml.hpp"

#include "QNRescue/qnrescue.h"
#include "tests/unit/helpers/objects.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace qnrescue;
using tests::equal;
using tests::make_array;
using tests::make_dictionary;
using tests::make_error;
using tests::make_set;
using tests::make_string;
using tests::plist;

constexpr auto answer_null = static_cast<on_error>(2);
constexpr on_error all_modes[] = {on_error::skip, on_error::raise, answer_null,
                                  static_cast<on_error>(-1)};

constexpr auto error_dictionary = "<dict><key>Domain</key><string>d</string>"
                                  "<key>Code</key><integer>7</integer>"
                                  "<key>Description</key><string>text</string>"
                                  "<key>FailureReason</key><string>reason</string></dict>";

cf_owner<CFErrorRef> some_error() {
    return make_error(CFSTR("d"), 7, CFSTR("text"), CFSTR("reason"));
}

TEST(SanitizeForXml, ReturnsPlainValuesThemselves) {
    for (auto const * element :
         {"<string>a text that is no constant</string>", "<integer>123456</integer>",
          "<real>0.25</real>", "<date>2024-01-02T03:04:05Z</date>", "<data>AAECAwQF</data>"}) {
        auto const value = plist(element);
        auto const before = CFGetRetainCount(value.get());
        for (auto const mode : all_modes) {
            auto const converted = sanitize_for_xml(value.get(), mode);
            EXPECT_EQ(converted.get(), value.get());
            EXPECT_EQ(CFGetRetainCount(value.get()), before + 1) << element;
        }
        EXPECT_EQ(CFGetRetainCount(value.get()), before);
    }
    EXPECT_EQ(sanitize_for_xml(kCFBooleanTrue, on_error::skip).get(), kCFBooleanTrue);
}

TEST(SanitizeForXml, CopiesContainers) {
    auto const value = plist("<dict><key>a</key><array><integer>1</integer><dict/><array/>"
                             "<true/></array><key>b</key><string>text</string></dict>");
    for (auto const mode : all_modes) {
        auto const converted = sanitize_for_xml(value.get(), mode);
        EXPECT_NE(converted.get(), value.get());
        EXPECT_TRUE(equal(converted.get(), value.get()));
        EXPECT_EQ(CFGetRetainCount(converted.get()), 1);
    }
}

TEST(SanitizeForXml, MayBeChangedWithoutTheOriginal) {
    auto const inner = plist("<array><integer>1</integer></array>");
    auto const unchanged = plist("<array><integer>1</integer></array>");
    auto const array = make_array({inner.get()});
    auto const dictionary = make_dictionary({{CFSTR("k"), inner.get()}});
    auto const array_copy = sanitize_for_xml(array.get(), on_error::skip);
    auto const dictionary_copy = sanitize_for_xml(dictionary.get(), on_error::skip);
    auto const append = [](CFTypeRef container) {
        CFArrayAppendValue(static_cast<CFMutableArrayRef>(const_cast<void *>(container)),
                           kCFBooleanTrue);
    };
    append(array_copy.get());
    append(CFArrayGetValueAtIndex(static_cast<CFArrayRef>(array_copy.get()), 0));
    append(CFDictionaryGetValue(static_cast<CFDictionaryRef>(dictionary_copy.get()), CFSTR("k")));
    CFDictionarySetValue(
        static_cast<CFMutableDictionaryRef>(const_cast<void *>(dictionary_copy.get())), CFSTR("m"),
        kCFBooleanTrue);
    EXPECT_TRUE(equal(inner.get(), unchanged.get()));
    EXPECT_TRUE(
        equal(array_copy.get(),
              plist("<array><array><integer>1</integer><true/></array><true/></array>").get()));
    EXPECT_TRUE(equal(dictionary_copy.get(),
                      plist("<dict><key>k</key><array><integer>1</integer><true/></array>"
                            "<key>m</key><true/></dict>")
                          .get()));
}

TEST(SanitizeForXml, KeepsTheOrderOfElements) {
    auto const value = plist("<array><integer>3</integer><integer>1</integer>"
                             "<integer>2</integer></array>");
    EXPECT_TRUE(equal(sanitize_for_xml(value.get(), on_error::raise).get(), value.get()));
}

TEST(SanitizeForXml, TurnsErrorsIntoTheirDictionaries) {
    auto const error = some_error();
    for (auto const mode : all_modes) {
        EXPECT_TRUE(
            equal(sanitize_for_xml(error.get(), mode).get(), plist(error_dictionary).get()));
        auto const in_array = sanitize_for_xml(make_array({error.get()}).get(), mode);
        EXPECT_TRUE(equal(in_array.get(),
                          plist("<array>" + std::string(error_dictionary) + "</array>").get()));
        auto const in_dictionary =
            sanitize_for_xml(make_dictionary({{CFSTR("Error"), error.get()}}).get(), mode);
        EXPECT_TRUE(equal(
            in_dictionary.get(),
            plist("<dict><key>Error</key>" + std::string(error_dictionary) + "</dict>").get()));
    }
    EXPECT_EQ(CFGetRetainCount(error.get()), 1);
}

TEST(SanitizeForXml, SkipLeavesOutElements) {
    auto const set = make_set({CFSTR("x")});
    auto const value = make_array({kCFNull, CFSTR("a"), set.get(), CFSTR("b"), kCFNull});
    auto const converted = sanitize_for_xml(value.get(), on_error::skip);
    EXPECT_TRUE(
        equal(converted.get(), plist("<array><string>a</string><string>b</string></array>").get()));
}

TEST(SanitizeForXml, SkipLeavesOutEntries) {
    auto const number = tests::make_number(5);
    auto const set = make_set({CFSTR("x")});
    auto const value = make_dictionary({{number.get(), CFSTR("number key")},
                                        {CFSTR("null"), kCFNull},
                                        {CFSTR("set"), set.get()},
                                        {CFSTR("kept"), kCFBooleanTrue}});
    EXPECT_FALSE(
        CFPropertyListValidateForSerialization(value.get(), kCFPropertyListXMLFormat_v1_0));
    auto const converted = sanitize_for_xml(value.get(), on_error::skip);
    EXPECT_TRUE(equal(converted.get(), plist("<dict><key>kept</key><true/></dict>").get()));
    EXPECT_TRUE(
        CFPropertyListValidateForSerialization(converted.get(), kCFPropertyListXMLFormat_v1_0));
}

TEST(SanitizeForXml, SkipKeepsContainersThatBecomeEmpty) {
    auto const inner = make_array({kCFNull});
    auto const value = make_dictionary({{CFSTR("a"), inner.get()}});
    auto const converted = sanitize_for_xml(value.get(), on_error::skip);
    EXPECT_TRUE(equal(converted.get(), plist("<dict><key>a</key><array/></dict>").get()));
}

// What no mode can convert as a whole, by where the bad part is.
std::vector<cf_owner<CFTypeRef>> failing_containers() {
    auto const number = tests::make_number(5);
    auto const inner_array = make_array({CFSTR("a"), kCFNull});
    auto const inner_dictionary = make_dictionary({{CFSTR("a"), kCFNull}});
    std::vector<cf_owner<CFTypeRef>> containers;
    containers.push_back(make_array({CFSTR("a"), kCFNull, CFSTR("b")}));
    containers.push_back(make_dictionary({{CFSTR("a"), kCFNull}, {CFSTR("b"), CFSTR("c")}}));
    containers.push_back(make_dictionary({{number.get(), CFSTR("c")}, {CFSTR("b"), CFSTR("c")}}));
    containers.push_back(make_array({inner_array.get()}));
    containers.push_back(make_array({inner_dictionary.get()}));
    containers.push_back(make_dictionary({{CFSTR("k"), inner_array.get()}}));
    return containers;
}

TEST(SanitizeForXml, RaiseThrowsForAnyBadPart) {
    for (auto const & container : failing_containers()) {
        try {
            sanitize_for_xml(container.get(), on_error::raise);
            FAIL();
        } catch (std::runtime_error const & exception) {
            EXPECT_STREQ(exception.what(), "Could not convert to xml plist");
        }
    }
}

TEST(SanitizeForXml, OtherModesAnswerNullForAnyBadPart) {
    for (auto const & container : failing_containers()) {
        EXPECT_FALSE(sanitize_for_xml(container.get(), answer_null));
        EXPECT_FALSE(sanitize_for_xml(container.get(), static_cast<on_error>(-1)));
        EXPECT_TRUE(sanitize_for_xml(container.get(), on_error::skip));
    }
}

// Containers without callbacks can hold null.
TEST(SanitizeForXml, NullMembersAreBadParts) {
    void const * nulls[] = {nullptr};
    void const * texts[] = {CFSTR("text")};
    auto const array = adopt(CFArrayCreate(kCFAllocatorDefault, nulls, 1, nullptr));
    auto const null_key =
        adopt(CFDictionaryCreate(kCFAllocatorDefault, nulls, texts, 1, nullptr, nullptr));
    auto const null_value =
        adopt(CFDictionaryCreate(kCFAllocatorDefault, texts, nulls, 1, nullptr, nullptr));
    EXPECT_TRUE(
        equal(sanitize_for_xml(array.get(), on_error::skip).get(), plist("<array/>").get()));
    for (auto const & dictionary : {null_key.get(), null_value.get()}) {
        EXPECT_TRUE(
            equal(sanitize_for_xml(dictionary, on_error::skip).get(), plist("<dict/>").get()));
    }
    for (CFTypeRef const container :
         {CFTypeRef{array.get()}, CFTypeRef{null_key.get()}, CFTypeRef{null_value.get()}}) {
        EXPECT_FALSE(sanitize_for_xml(container, answer_null));
        EXPECT_THROW(sanitize_for_xml(container, on_error::raise), std::runtime_error);
    }
}

TEST(SanitizeForXml, UnsupportedTypesAtTheTopAreNull) {
    auto const set = make_set({CFSTR("x")});
    for (CFTypeRef const value : {static_cast<CFTypeRef>(nullptr), static_cast<CFTypeRef>(kCFNull),
                                  static_cast<CFTypeRef>(set.get())}) {
        EXPECT_FALSE(sanitize_for_xml(value, on_error::skip));
        EXPECT_FALSE(sanitize_for_xml(value, answer_null));
        EXPECT_THROW(sanitize_for_xml(value, on_error::raise), std::runtime_error);
    }
}

TEST(SanitizeForXml, ReleasesWhatItDoesNotAnswer) {
    auto const text = make_string("a text that is no constant");
    auto const error = some_error();
    auto const bad = make_array({text.get(), error.get(), kCFNull, text.get()});
    auto const before = CFGetRetainCount(text.get());
    EXPECT_FALSE(sanitize_for_xml(bad.get(), answer_null));
    EXPECT_THROW(sanitize_for_xml(bad.get(), on_error::raise), std::runtime_error);
    sanitize_for_xml(bad.get(), on_error::skip).reset();
    EXPECT_EQ(CFGetRetainCount(text.get()), before);
    EXPECT_EQ(CFGetRetainCount(bad.get()), 1);
}

} // namespace
