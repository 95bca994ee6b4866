#include "QNRescue/error_domain.hpp"

#include "platform/cf_strings.hpp"
#include "tests/unit/helpers/objects.hpp"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <utility>

namespace {

using namespace qnrescue;
using tests::equal;
using tests::plist;
using tests::said_by;
using tests::tool_error;

constexpr std::array<std::pair<Error, char const *>, 9> descriptions{{
    {Error::none, "No error"},
    {Error::unknown, "Unknown error"},
    {Error::invalid_argument, "Invalid argument"},
    {Error::bad_command, "Bad command"},
    {Error::bad_ecid, "Bad ECID specified"},
    {Error::bad_state, "Device is in bad state"},
    {Error::recovery_command_failed, "Recovery mode command failed"},
    {Error::restore_timeout, "Restore did not complete before timeout expired"},
    {Error::read_error, "Read error"},
}};

TEST(ErrorDescription, OfEachCode) {
    CFIndex number = 0;
    for (auto const & [code, text] : descriptions) {
        EXPECT_EQ(static_cast<CFIndex>(code), number++);
        EXPECT_EQ(MakeString(ErrorDescription(code)), text);
    }
}

TEST(ErrorDescription, OfCodesOutsideTheTable) {
    for (CFIndex const code : {CFIndex{9}, CFIndex{42}, CFIndex{-1}, CFIndex{1} << 32,
                               std::numeric_limits<CFIndex>::min()}) {
        EXPECT_EQ(MakeString(ErrorDescription(static_cast<Error>(code))), "Unknown error");
    }
}

TEST(ErrorDescription, IsConstant) {
    EXPECT_EQ(ErrorDescription(Error::bad_state), ErrorDescription(Error::bad_state));
    EXPECT_EQ(ErrorDescription(Error::unknown), ErrorDescription(static_cast<Error>(42)));
}

TEST(CreateDomainError, CarriesDomainCodeAndTexts) {
    for (auto const & [code, text] : descriptions) {
        auto const error = CreateDomainError(code, "the reason");
        EXPECT_EQ(MakeString(CFErrorGetDomain(error.get())), "qnrescue");
        EXPECT_EQ(said_by(error), (tool_error{static_cast<CFIndex>(code), "the reason"}));
        EXPECT_EQ(MakeString(adopt(CFErrorCopyDescription(error.get())).get()), text);
        auto const user_info = adopt(CFErrorCopyUserInfo(error.get()));
        EXPECT_EQ(CFDictionaryGetCount(user_info.get()), 2);
    }
}

TEST(CreateDomainError, IsTheOnlyOwner) {
    EXPECT_EQ(CFGetRetainCount(CreateDomainError(Error::bad_state, "reason").get()), 1);
}

std::string reason_of(std::string const & reason) {
    return said_by(CreateDomainError(Error::unknown, reason)).reason;
}

TEST(CreateDomainError, TakesTheReasonAsUtf8) {
    std::string const letters = "caf\xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x93\xb1 <&\">\n";
    EXPECT_EQ(reason_of(letters), letters);
    EXPECT_EQ(reason_of(""), "");
}

TEST(CreateDomainError, LeavesOutOfTheReasonWhatIsNotUtf8) {
    EXPECT_EQ(reason_of("a\xff"
                        "b"),
              "ab");
    EXPECT_EQ(reason_of("a\xc3"
                        "bc"),
              "ac");
}

TEST(DictionaryFromError, HoldsAllFourKeysOfAToolError) {
    auto const error = CreateDomainError(Error::bad_ecid, "no such device");
    auto const dictionary = DictionaryFromError(error.get());
    EXPECT_TRUE(equal(dictionary.get(), plist("<dict>"
                                              "<key>Domain</key><string>qnrescue</string>"
                                              "<key>Code</key><integer>4</integer>"
                                              "<key>Description</key>"
                                              "<string>Bad ECID specified</string>"
                                              "<key>FailureReason</key>"
                                              "<string>no such device</string>"
                                              "</dict>")
                                            .get()));
    EXPECT_EQ(CFGetRetainCount(dictionary.get()), 1);
}

TEST(DictionaryFromError, KeepsCodesOf64Bits) {
    CFIndex const code = (CFIndex{1} << 40) + 7;
    auto const dictionary =
        DictionaryFromError(tests::make_error(CFSTR("d"), code, CFSTR("text")).get());
    auto const number =
        static_cast<CFNumberRef>(CFDictionaryGetValue(dictionary.get(), CFSTR("Code")));
    CFIndex read = 0;
    ASSERT_TRUE(CFNumberGetValue(number, kCFNumberCFIndexType, &read));
    EXPECT_EQ(read, code);
}

TEST(DictionaryFromError, HasThreeKeysWithoutAFailureReason) {
    auto const dictionary =
        DictionaryFromError(tests::make_error(CFSTR("foreign"), -5, CFSTR("text")).get());
    EXPECT_TRUE(equal(dictionary.get(), plist("<dict><key>Domain</key><string>foreign</string>"
                                              "<key>Code</key><integer>-5</integer>"
                                              "<key>Description</key><string>text</string></dict>")
                                            .get()));
}

TEST(DictionaryFromError, AlwaysHasADescription) {
    auto const dictionary = DictionaryFromError(tests::make_error(CFSTR("foreign"), 5).get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 3);
    auto const description =
        static_cast<CFStringRef>(CFDictionaryGetValue(dictionary.get(), CFSTR("Description")));
    EXPECT_NE(MakeString(description).find("foreign error 5"), std::string::npos);
}

// Any object may be where a text should be.
cf_owner<CFErrorRef> error_without_texts(CFTypeRef description, CFTypeRef failure_reason) {
    auto const texts =
        tests::make_dictionary({{kCFErrorLocalizedDescriptionKey, description},
                                {kCFErrorLocalizedFailureReasonKey, failure_reason}});
    return adopt(CFErrorCreate(kCFAllocatorDefault, CFSTR("foreign"), 5, texts.get()));
}

TEST(DictionaryFromError, LeavesOutTextsThatAreNoStrings) {
    auto const number = tests::make_number(std::int64_t{1} << 40); // small ones may be shared
    for (CFTypeRef const other :
         {static_cast<CFTypeRef>(kCFNull), static_cast<CFTypeRef>(number.get())}) {
        EXPECT_TRUE(equal(
            DictionaryFromError(error_without_texts(other, CFSTR("reason")).get()).get(),
            plist("<dict><key>Domain</key><string>foreign</string><key>Code</key>"
                  "<integer>5</integer><key>FailureReason</key><string>reason</string></dict>")
                .get()));
        EXPECT_TRUE(
            equal(DictionaryFromError(error_without_texts(CFSTR("text"), other).get()).get(),
                  plist("<dict><key>Domain</key><string>foreign</string><key>Code</key>"
                        "<integer>5</integer><key>Description</key><string>text</string></dict>")
                      .get()));
    }
    EXPECT_EQ(CFGetRetainCount(number.get()), 1);
}

TEST(DictionaryFromError, LeavesItsArgumentAlone) {
    auto const error = CreateDomainError(Error::bad_ecid, "reason");
    DictionaryFromError(error.get());
    EXPECT_EQ(CFGetRetainCount(error.get()), 1);
}

TEST(DictionaryFromError, IsNullForNull) {
    EXPECT_FALSE(DictionaryFromError(nullptr));
}

TEST(GetCode, IsZeroForNull) {
    EXPECT_EQ(GetCode(nullptr), 0);
}

TEST(GetCode, PassesToolCodesThroughWhateverTheirDomain) {
    for (CFIndex code = 0; code <= 8; ++code) {
        EXPECT_EQ(GetCode(tests::make_error(CFSTR("qnrescue"), code).get()), code);
        EXPECT_EQ(GetCode(tests::make_error(CFSTR("foreign"), code).get()), code);
    }
}

TEST(GetCode, FoldsEverythingElseToOne) {
    for (CFIndex const code :
         {CFIndex{9}, CFIndex{100}, CFIndex{-1}, CFIndex{256}, CFIndex{1} << 32,
          (CFIndex{1} << 32) + 3, (CFIndex{1} << 63) + 3, std::numeric_limits<CFIndex>::max(),
          std::numeric_limits<CFIndex>::min()}) {
        EXPECT_EQ(GetCode(tests::make_error(CFSTR("qnrescue"), code).get()), 1) << code;
    }
}

} // namespace
