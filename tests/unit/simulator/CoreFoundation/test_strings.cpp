#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <limits>

using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

constexpr CFStringEncoding utf16_little_endian = 0x14000100;
constexpr CFStringEncoding utf16_big_endian = 0x10000100;
constexpr CFStringEncoding utf32 = 0x0c000100;
constexpr CFStringEncoding windows_latin1 = 0x0500;

cf_owner<CFStringRef> decoded(std::string_view bytes, CFStringEncoding encoding, bool external) {
    return adopt(CFStringCreateWithBytes(nullptr, reinterpret_cast<UInt8 const *>(bytes.data()),
                                         static_cast<CFIndex>(bytes.size()), encoding, external));
}

TEST(String, RefusesInvalidUtf8) {
    std::string_view const invalid[] = {
        "\xff",
        "\x80",
        "a\x80z",
        "\xc3",
        "\xe2\x82",
        "\xc0\x80",
        "\xe0\x80\x80",
        "\xed\xa0\x80",
        "\xed\xa0\x80\xed\xb0\x80",
        "\xf4\x90\x80\x80",
        "\xf8\x88\x80\x80\x80",
        "long enough to be read by words \xc3",
    };
    for (auto const bytes : invalid) {
        EXPECT_EQ(decoded(bytes, kCFStringEncodingUTF8, false), nullptr) << bytes;
        EXPECT_EQ(decoded(bytes, kCFStringEncodingUTF8, true), nullptr) << bytes;
    }
}

TEST(String, IsDecodedFromBytes) {
    struct {
        std::string_view bytes;
        CFStringEncoding encoding;
        bool external;
        std::u16string_view text;
    } const rows[] = {
        {"abc", kCFStringEncodingUTF8, false, u"abc"},
        {"caf\xc3\xa9", kCFStringEncodingUTF8, false, u"caf\u00e9"},
        {"\xf0\x9f\x98\x80", kCFStringEncodingUTF8, false, u"\U0001f600"},
        {"\xef\xbb\xbf", kCFStringEncodingUTF8, false, u""},
        {"\xef\xbb\xbf", kCFStringEncodingUTF8, true, u""},
        {"\xef\xbb\xbfx", kCFStringEncodingUTF8, false, u"x"},
        {"\xef\xbb\xbfx", kCFStringEncodingUTF8, true, u"x"},
        {"x\xef\xbb\xbf", kCFStringEncodingUTF8, true, u"x\ufeff"},
        {"a\0b"sv, kCFStringEncodingUTF8, false, u"a\0b"sv},
        {"\xef\xbf\xbe", kCFStringEncodingUTF8, false, u"\xfffe"},
        {"", kCFStringEncodingUTF8, false, u""},
        {"\xff\xfe\x61\0"sv, kCFStringEncodingUTF16, false, u"\xfeff\x61"},
        {"\xff\xfe\x61\0"sv, kCFStringEncodingUTF16, true, u"a"},
        {"\xfe\xff\0\x61"sv, kCFStringEncodingUTF16, true, u"a"},
        {"\0\x61"sv, kCFStringEncodingUTF16, true, u"a"},
        {"\xff\xfe\x61\0"sv, utf16_little_endian, true, u"\xfeff\x61"},
        {"\x61\0\x62"sv, utf16_little_endian, false, u"a"},
        {"\0\x61"sv, utf16_big_endian, false, u"a"},
        {"\xff\xfe\0\0\0\xf6\x01\0"sv, utf32, true, u"\U0001f600"},
        {"a\xff", kCFStringEncodingASCII, false, u"a\u00ff"},
        {"\xff", kCFStringEncodingISOLatin1, false, u"\u00ff"},
        {"\xff", kCFStringEncodingMacRoman, false, u"\u02c7"},
        {"\x80", windows_latin1, false, u"\u20ac"},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(units(decoded(row.bytes, row.encoding, row.external).get()), row.text)
            << row.bytes;
    }
    EXPECT_EQ(decoded("abc", 0xffffffff, false), nullptr);
    EXPECT_EQ(decoded("abc", 0x12345, false), nullptr);
    EXPECT_EQ(CFStringGetLength(
                  adopt(CFStringCreateWithBytes(nullptr, nullptr, 0, kCFStringEncodingUTF8, false))
                      .get()),
              0);
}

TEST(String, ReturnsTheMostBytesItCanNeed) {
    constexpr auto largest = std::numeric_limits<CFIndex>::max();
    struct {
        CFIndex length;
        CFStringEncoding encoding;
        CFIndex size;
    } const rows[] = {
        {0, kCFStringEncodingUTF8, 0},
        {7, kCFStringEncodingUTF8, 21},
        {7, kCFStringEncodingUTF16, 14},
        {7, utf32, 28},
        {7, kCFStringEncodingASCII, 7},
        {7, kCFStringEncodingISOLatin1, 7},
        {7, kCFStringEncodingMacRoman, 7},
        {7, windows_latin1, 7},
        {largest, kCFStringEncodingUTF8, kCFNotFound},
        {largest / 2, kCFStringEncodingUTF8, kCFNotFound},
        {largest, kCFStringEncodingUTF16, kCFNotFound},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(CFStringGetMaximumSizeForEncoding(row.length, row.encoding), row.size);
    }
}

TEST(String, FillsABufferOnlyIfAllFits) {
    struct {
        std::u16string_view text;
        CFIndex size;
        CFStringEncoding encoding;
        bool fits;
        std::string_view bytes; // with the terminator, if it fits
    } const rows[] = {
        {u"abc", 4, kCFStringEncodingUTF8, true, "abc\0"sv},
        {u"abc", 9, kCFStringEncodingUTF8, true, "abc\0"sv},
        {u"abc", 3, kCFStringEncodingUTF8, false, ""},
        {u"abc", 1, kCFStringEncodingUTF8, false, ""},
        {u"", 1, kCFStringEncodingUTF8, true, "\0"sv},
        {u"a\u00e9z", 4, kCFStringEncodingUTF8, false, ""},
        {u"a\u00e9z", 5, kCFStringEncodingUTF8, true, "a\xc3\xa9z\0"sv},
        {u"\U0001f600", 5, kCFStringEncodingUTF8, true, "\xf0\x9f\x98\x80\0"sv},
        {u"a\0b"sv, 9, kCFStringEncodingUTF8, true, "a\0b\0"sv},
        {u"a\xd800z"sv, 9, kCFStringEncodingUTF8, false, ""},
        {u"a\xdc00z"sv, 9, kCFStringEncodingUTF8, false, ""},
        {u"a\xd800"sv, 9, kCFStringEncodingUTF8, false, ""},
        {u"\u00e9", 9, kCFStringEncodingASCII, false, ""},
        {u"\u00e9", 9, kCFStringEncodingISOLatin1, true, "\xe9\0"sv},
        {u"\u02c7", 9, kCFStringEncodingMacRoman, true, "\xff\0"sv},
        {u"\u20ac", 9, kCFStringEncodingISOLatin1, false, ""},
        {u"abc", 9, kCFStringEncodingASCII, true, "abc\0"sv},
    };
    for (auto const & row : rows) {
        char buffer[10];
        std::fill(std::begin(buffer), std::end(buffer), 'x');
        EXPECT_EQ(CFStringGetCString(string(row.text).get(), buffer, row.size, row.encoding),
                  row.fits);
        if (row.fits) {
            EXPECT_EQ((std::string_view{buffer, row.bytes.size()}), row.bytes);
        } else {
            EXPECT_EQ(buffer[0], '\0');
        }
        EXPECT_EQ(buffer[row.size], 'x');
    }
}

TEST(String, LeavesABufferOfNoSizeAlone) {
    char buffer = 'x';
    EXPECT_FALSE(CFStringGetCString(CFSTR("abc"), &buffer, 0, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(CFSTR(""), &buffer, 0, kCFStringEncodingUTF8));
    EXPECT_EQ(buffer, 'x');
}

TEST(String, IsFoundByUnit) {
    constexpr CFStringCompareFlags insensitive = kCFCompareCaseInsensitive;
    constexpr CFStringCompareFlags backwards = kCFCompareBackwards;
    constexpr CFStringCompareFlags anchored = kCFCompareAnchored;
    struct {
        std::u16string_view text;
        std::u16string_view sought;
        CFStringCompareFlags options;
        CFIndex location;
    } const rows[] = {
        {u"abcabc", u"abc", 0, 0},
        {u"xyabc", u"abc", 0, 2},
        {u"abc", u"d", 0, kCFNotFound},
        {u"abc", u"abcd", 0, kCFNotFound},
        {u"abc", u"", 0, kCFNotFound},
        {u"", u"", 0, kCFNotFound},
        {u"", u"a", 0, kCFNotFound},
        {u"abcabc", u"abc", backwards, 3},
        {u"xABC", u"abc", 0, kCFNotFound},
        {u"xABC", u"abc", insensitive, 1},
        {u"x\u00c9\u0416", u"\u00e9\u0436", insensitive, 1},
        {u"xabc", u"abc", anchored, kCFNotFound},
        {u"abcx", u"abc", anchored, 0},
        {u"abcx", u"abc", anchored | backwards, kCFNotFound},
        {u"xabc", u"abc", anchored | backwards, 1},
        {u"e\u0301", u"\u00e9", 0, kCFNotFound},
        {u"\U0001f600b", u"b", 0, 2},
    };
    for (auto const & row : rows) {
        auto const found =
            CFStringFind(string(row.text).get(), string(row.sought).get(), row.options);
        EXPECT_EQ(found.location, row.location);
        EXPECT_EQ(found.length,
                  row.location == kCFNotFound ? 0 : static_cast<CFIndex>(row.sought.size()));
    }
}

TEST(String, EqualsLiterally) {
    EXPECT_FALSE(CFEqual(string(u"\u00e9").get(), string(u"e\u0301").get()));
    auto const from_utf8 = string("caf\xc3\xa9");
    auto const from_utf16 = string(u"caf\u00e9");
    EXPECT_TRUE(CFEqual(from_utf8.get(), from_utf16.get()));
    EXPECT_EQ(CFHash(from_utf8.get()), CFHash(from_utf16.get()));
    auto const ascii_from_utf16 = string(u"abc");
    EXPECT_TRUE(CFEqual(ascii_from_utf16.get(), CFSTR("abc")));
    EXPECT_EQ(CFHash(ascii_from_utf16.get()), CFHash(CFSTR("abc")));
}

TEST(String, CountsUnits) {
    EXPECT_EQ(CFStringGetLength(string(u"\U0001f600").get()), 2);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string(u"\U0001f600").get(), 1), 0xde00);
    EXPECT_EQ(CFStringGetCharacterAtIndex(CFSTR("abc"), 1), u'b');
    EXPECT_EQ(CFStringGetCharacterAtIndex(CFSTR("abc"), 3), 0);
    EXPECT_EQ(CFStringGetCharacterAtIndex(CFSTR("abc"), -1), 0);
}

TEST(String, IsItsOwnCopy) {
    auto const text = string("abc");
    auto const copy = adopt(CFStringCreateCopy(nullptr, text.get()));
    EXPECT_EQ(copy, text);
    EXPECT_EQ(CFGetRetainCount(text.get()), 2);
    EXPECT_EQ(adopt(CFStringCreateCopy(nullptr, CFSTR("abc"))).get(), CFSTR("abc"));
}

TEST(String, IsCopiedIfItCanChange) {
    std::string_view const document = "<plist><array><string>abc</string></array></plist>";
    auto const data = adopt(CFDataCreate(nullptr, reinterpret_cast<UInt8 const *>(document.data()),
                                         static_cast<CFIndex>(document.size())));
    auto const list = adopt(static_cast<CFArrayRef>(CFPropertyListCreateWithData(
        nullptr, data.get(), kCFPropertyListMutableContainersAndLeaves, nullptr, nullptr)));
    ASSERT_NE(list, nullptr);
    auto const text = static_cast<CFStringRef>(CFArrayGetValueAtIndex(list.get(), 0));
    auto const copy = adopt(CFStringCreateCopy(nullptr, text));
    EXPECT_NE(copy.get(), text);
    EXPECT_TRUE(CFEqual(copy.get(), text));
    EXPECT_EQ(adopt(CFStringCreateCopy(nullptr, copy.get())), copy);
}

TEST(ConstantString, IsUniquePerText) {
    auto const text = "caf"s + "e";
    EXPECT_EQ(__CFStringMakeConstantString(text.c_str()), CFSTR("cafe"));
    EXPECT_NE(CFSTR("cafe"), CFSTR("caf"));
    EXPECT_EQ(CFStringGetLength(CFSTR("")), 0);
}

TEST(ConstantString, IsReadAsMacRomanWithAWarning) {
    testing::internal::CaptureStderr();
    auto const text = CFSTR("caf\xc3\xa9");
    auto const warning = testing::internal::GetCapturedStderr();
    EXPECT_EQ(units(text), u"caf\u221a\u00a9");
    EXPECT_NE(warning.find("MacRoman"), std::string::npos);
    EXPECT_EQ(CFSTR("caf\xc3\xa9"), text);
}

TEST(String, DescribesItself) {
    EXPECT_EQ(description(CFSTR("abc")), "<CFString PTR [PTR]>{contents = \"abc\"}");
    EXPECT_EQ(description(string("\"\n\xc3\xa9").get()),
              "<CFString PTR [PTR]>{contents = \"\"\n\xc3\xa9\"}");
    EXPECT_EQ(units(adopt(CFCopyDescription(string(u"\xd800").get())).get()).back(), u'}');
    EXPECT_EQ(CFCopyDescription(nullptr), nullptr);
}

} // namespace
