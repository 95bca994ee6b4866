#include "tests/unit/helpers/allocation_hook.hpp"
#include "tests/unit/simulator/CoreFoundation/property_list/property_lists.hpp"

#include <gtest/gtest.h>

#include <new>

namespace {

struct fault_row {
    cf_owner<CFTypeRef> root;
    std::string_view fault;
};

cf_owner<CFTypeRef> array_of(CFTypeRef element) {
    return nested(1, cf_owner<CFTypeRef>{CFRetain(element)});
}

TEST(Writing, RefusesWhatIsNoPropertyList) {
    void const * null_value = nullptr;
    void const * key = CFSTR("k");
    auto const number_key = dictionary();
    CFDictionarySetValue(number_key.get(), integer(5).get(), CFSTR("v"));
    auto const set = adopt(CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
    auto const error = adopt(CFErrorCreate(kCFAllocatorDefault, CFSTR("d"), 1, nullptr));
    auto const recursive = adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0, nullptr));
    CFArrayAppendValue(recursive.get(), recursive.get());

    fault_row const rows[] = {
        {cf_owner<CFTypeRef>{CFRetain(set.get())},
         "property lists cannot contain objects of type 'CFSet'"},
        {array_of(set.get()), "property lists cannot contain objects of type 'CFSet'"},
        {array_of(error.get()), "property lists cannot contain objects of type 'CFError'"},
        {array_of(kCFNull), "property lists cannot contain objects of type 'CFNull'"},
        {array_of(number_key.get()),
         "property list dictionaries may only have keys which are CFStrings, not 'CFNumber'"},
        {cf_owner<CFTypeRef>{CFDictionaryCreate(kCFAllocatorDefault, &key, &null_value, 1,
                                                &kCFTypeDictionaryKeyCallBacks, nullptr)},
         "property list dictionaries cannot contain NULL values"},
        {cf_owner<CFTypeRef>{CFArrayCreate(kCFAllocatorDefault, &null_value, 1, nullptr)},
         "property list arrays cannot contain NULL"},
        {nullptr, "property lists cannot contain NULL"},
        {cf_owner<CFTypeRef>{CFRetain(recursive.get())},
         "property lists cannot contain recursive container references"},
    };
    for (auto const & row : rows) {
        auto const writing = write(row.root.get());
        EXPECT_EQ(writing.document, nullptr);
        ASSERT_NE(writing.error, nullptr) << row.fault;
        EXPECT_EQ(writing.text(),
                  fmt::format("Property list invalid for format: 100 ({})", row.fault));
    }
}

TEST(Writing, DescribesItsFailure) {
    auto const error =
        write(adopt(CFSetCreateMutable(kCFAllocatorDefault, 0, nullptr)).get()).error;
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(utf8(CFErrorGetDomain(error.get())), "NSCocoaErrorDomain");
    EXPECT_EQ(CFErrorGetCode(error.get()), kCFPropertyListWriteStreamError);
    EXPECT_EQ(utf8(adopt(CFErrorCopyDescription(error.get()))),
              "The operation couldn\xe2\x80\x99t be completed. (NSCocoaErrorDomain error 3851.)");
    EXPECT_EQ(CFErrorCopyFailureReason(error.get()), nullptr);
    EXPECT_EQ(CFDictionaryGetCount(adopt(CFErrorCopyUserInfo(error.get())).get()), 1);
    EXPECT_EQ(description(error.get()),
              "Error Domain=NSCocoaErrorDomain Code=3851 \"Property list invalid for format: 100 "
              "(property lists cannot contain objects of type 'CFSet')\" "
              "UserInfo={NSDebugDescription=Property list invalid for format: 100 (property lists "
              "cannot contain objects of type 'CFSet')}");
}

TEST(Writing, NeedsNobodyToTakeTheError) {
    EXPECT_EQ(CFPropertyListCreateData(kCFAllocatorDefault, kCFNull, kCFPropertyListXMLFormat_v1_0,
                                       0, nullptr),
              nullptr);
}

TEST(Writing, RepeatsAContainerALimitedNumberOfTimesInXml) {
    auto const repeating = [](CFTypeRef element, int times) {
        auto result = array();
        for (; times > 0; --times) {
            CFArrayAppendValue(result.get(), element);
        }
        return result;
    };
    auto const filled = array_of(CFSTR("x"));
    auto const accepted = repeating(filled.get(), 1537);
    auto const refused = repeating(filled.get(), 1538);
    EXPECT_NE(write(accepted.get()).document, nullptr);
    EXPECT_EQ(write(refused.get()).text(),
              "Property list invalid for format: 100 (Too many nested arrays or dictionaries "
              "please use kCFPropertyListBinaryFormat_v1_0 instead which supports references)");
    EXPECT_NE(write(repeating(array().get(), 1538).get()).document, nullptr);
    EXPECT_NE(write(repeating(CFSTR("x"), 1538).get()).document, nullptr);
    auto const distinct = array();
    for (int count = 0; count < 1538; ++count) {
        CFArrayAppendValue(distinct.get(), array_of(CFSTR("x")).get());
    }
    EXPECT_NE(write(distinct.get()).document, nullptr);
}

// The simulator reads it only.
TEST(Writing, RefusesTheBinaryFormat) {
    auto const writing = write(CFSTR("x"), kCFPropertyListBinaryFormat_v1_0);
    EXPECT_EQ(writing.document, nullptr);
    ASSERT_NE(writing.error, nullptr);
    EXPECT_EQ(CFErrorGetCode(writing.error.get()), kCFPropertyListWriteStreamError);
    EXPECT_EQ(writing.text(),
              "The simulator does not write kCFPropertyListBinaryFormat_v1_0 property lists");
}

TEST(Writing, RefusesOtherFormatsOnStandardError) {
    struct {
        CFPropertyListFormat format;
        std::string_view line;
    } const rows[] = {
        {1, "Property list format kCFPropertyListOpenStepFormat not supported for writing\n"},
        {0, "Unknown format option\n"},
        {99, "Unknown format option\n"},
    };
    for (auto const & row : rows) {
        auto * const preset = reinterpret_cast<CFErrorRef>(0x1234);
        auto * error = preset;
        testing::internal::CaptureStderr();
        auto const * const document =
            CFPropertyListCreateData(kCFAllocatorDefault, CFSTR("x"), row.format, 0, &error);
        auto const line = testing::internal::GetCapturedStderr();
        EXPECT_EQ(document, nullptr);
        EXPECT_EQ(error, preset);
        EXPECT_EQ(line, row.line);
    }
}

#ifndef _WIN32 // there the simulator is a DLL, which allocates with its own operators

void refuse_memory() {
    throw std::bad_alloc();
}

TEST(WritingDeathTest, TrapsWithoutMemory) {
    auto const text = string("text");
    EXPECT_DEATH(
        (allocation_hook{1, refuse_memory},
         CFPropertyListCreateData(nullptr, text.get(), kCFPropertyListXMLFormat_v1_0, 0, nullptr)),
        "^CoreFoundation: CFPropertyListCreateData: failed with std::bad_alloc\n$");
}

TEST(ReadingDeathTest, TrapsWithoutMemory) {
    auto const document = data_of("<string>text</string>");
    EXPECT_DEATH((allocation_hook{1, refuse_memory},
                  CFPropertyListCreateWithData(nullptr, document.get(), 0, nullptr, nullptr)),
                 "^CoreFoundation: CFPropertyListCreateWithData: failed with std::bad_alloc\n$");
}

#endif

} // namespace
