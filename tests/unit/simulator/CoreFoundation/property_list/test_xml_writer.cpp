#include "tests/unit/simulator/CoreFoundation/property_list/property_lists.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

std::string bytes_from(unsigned first, std::size_t count) {
    std::string bytes;
    for (std::size_t index = 0; index < count; ++index) {
        bytes += static_cast<char>(first + index);
    }
    return bytes;
}

TEST(XmlWriting, WrapsTheRootInAnEnvelope) {
    auto const root = dictionary();
    CFDictionarySetValue(root.get(), CFSTR("Value"), CFSTR("v"));
    CFDictionarySetValue(root.get(), CFSTR("Type"), CFSTR("t"));
    auto const writing = write(root.get());
    auto const document = bytes_of(writing.document.get());
    EXPECT_EQ(xml_opening.size(), 164U);
    EXPECT_EQ(document, std::string{xml_opening} +
                            "<dict>\n\t<key>Type</key>\n\t<string>t</string>\n\t<key>Value</key>\n"
                            "\t<string>v</string>\n</dict>\n</plist>\n");
    EXPECT_EQ(document.size(), 263U);
    EXPECT_EQ(CFGetRetainCount(writing.document.get()), 1);
}

TEST(XmlWriting, SortsKeysByCodeUnit) {
    constexpr std::u16string_view keys[] = {u"",   u"10", u"9",   u"A",          u"B",
                                            u"_x", u"a",  u"a b", u"aa",         u"b",
                                            u"e",  u"z",  u"é",   u"\U0001f600", u"\uff21"};
    auto const root = dictionary();
    for (auto const key : keys) {
        CFDictionarySetValue(root.get(), string(key).get(), kCFBooleanTrue);
    }
    auto const body = xml_body(root.get());
    std::string expected = "<dict>\n";
    for (auto const key : keys) {
        expected += fmt::format("\t<key>{}</key>\n\t<true/>\n", utf8(string(key)));
    }
    EXPECT_EQ(body, expected + "</dict>\n");
}

TEST(XmlWriting, IgnoresItsOptions) {
    auto const plain = bytes_of(write(CFSTR("hi")).document.get());
    for (CFOptionFlags const options : {0U, 1U, 0xffffU}) {
        auto const document = adopt(CFPropertyListCreateData(
            kCFAllocatorDefault, CFSTR("hi"), kCFPropertyListXMLFormat_v1_0, options, nullptr));
        EXPECT_EQ(bytes_of(document.get()), plain);
    }
}

TEST(XmlWriting, LeavesTheErrorAloneOnSuccess) {
    auto * const preset = reinterpret_cast<CFErrorRef>(0x1234);
    auto * error = preset;
    auto const document = adopt(CFPropertyListCreateData(kCFAllocatorDefault, CFSTR("hi"),
                                                         kCFPropertyListXMLFormat_v1_0, 0, &error));
    EXPECT_NE(document, nullptr);
    EXPECT_EQ(error, preset);
}

struct string_row {
    std::u16string text;
    std::string_view written;
};

TEST(XmlWriting, EscapesOnlyWhatItMust) {
    using namespace std::string_view_literals;
    string_row const rows[] = {
        {u"", ""},
        {u"a&b<c>d\"e'f", "a&amp;b&lt;c&gt;d\"e'f"},
        {u"x]]>y", "x]]&gt;y"},
        {u"é&ü<", "\xc3\xa9&amp;\xc3\xbc&lt;"},
        {u"café", "caf\xc3\xa9"},
        {u"\U0001f600", "\xf0\x9f\x98\x80"},
        {u"l1\nl2\tT\rR", "l1\nl2\tT\rR"},
        {u"  both  ", "  both  "},
        {u"\x01\x08\x0b\x1f\x7f", "\x01\x08\x0b\x1f\x7f"},
        {std::u16string{u"a\0b", 3}, "a\0b"sv},
        {u"\ufffe\uffff\ufeff\u0085", "\xef\xbf\xbe\xef\xbf\xbf\xef\xbb\xbf\xc2\x85"},
    };
    for (auto const & row : rows) {
        auto const text = string(row.text);
        EXPECT_EQ(xml_body(text.get()), fmt::format("<string>{}</string>\n", row.written));
        auto const root = dictionary();
        CFDictionarySetValue(root.get(), text.get(), kCFBooleanTrue);
        EXPECT_EQ(xml_body(root.get()),
                  fmt::format("<dict>\n\t<key>{}</key>\n\t<true/>\n</dict>\n", row.written));
    }
}

TEST(XmlWriting, LosesTextAfterALoneSurrogate) {
    auto letters = std::u16string(200, u'a');
    for (std::size_t index = 0; index < letters.size(); ++index) {
        letters[index] = static_cast<char16_t>(u'a' + index % 26);
    }
    std::string const all{letters.begin(), letters.end()};
    letters[10] = 0xd800;
    auto const first_64 = all.substr(0, 10);
    string_row const rows[] = {
        {{u'a', 0xd800, u'b'}, "a"},
        {{u'a', 0xdc00, u'b'}, "a"},
        {{u'a', 0xd800}, "a"},
        {{u'a', 0xd800, u'b', u'&', u'c', u'é', u'd'},
         "a&amp;c\xc3\xa9"
         "d"},
        {{u'x', u'é', u'y', 0xdc00, u'b', u'<', u'z'}, "x&lt;z"},
    };
    for (auto const & row : rows) {
        auto const text = string(row.text);
        EXPECT_EQ(xml_body(text.get()), fmt::format("<string>{}</string>\n", row.written));
        auto const map = dictionary();
        CFDictionarySetValue(map.get(), text.get(), kCFBooleanTrue);
        EXPECT_EQ(xml_body(map.get()),
                  fmt::format("<dict>\n\t<key>{}</key>\n\t<true/>\n</dict>\n", row.written));
    }
    EXPECT_EQ(xml_body(string(letters).get()),
              fmt::format("<string>{}{}</string>\n", first_64, all.substr(64)));
}

TEST(XmlWriting, KeepsSurrogatePairsWhole) {
    for (std::size_t before = 60; before < 70; ++before) {
        auto const text = std::u16string(before, u'é') + u"\U0001f600" + u"z";
        EXPECT_EQ(
            xml_body(string(text).get()),
            fmt::format("<string>{}\xf0\x9f\x98\x80z</string>\n", repeated("\xc3\xa9", before)));
    }
}

TEST(XmlWriting, WritesIntegersSigned) {
    struct {
        cf_owner<CFNumberRef> value;
        std::string_view written;
    } const rows[] = {
        {integer(0), "0"},
        {integer(1), "1"},
        {integer(-1), "-1"},
        {integer(127), "127"},
        {integer(2147483648), "2147483648"},
        {integer(std::numeric_limits<std::int64_t>::max()), "9223372036854775807"},
        {integer(-std::numeric_limits<std::int64_t>::max()), "-9223372036854775807"},
        {integer(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
        {number(kCFNumberSInt8Type, std::uint8_t{0x80}), "-128"},
        {number(kCFNumberSInt8Type, std::uint8_t{0xff}), "-1"},
        {number(kCFNumberCharType, std::uint8_t{77}), "77"},
        {number(kCFNumberSInt16Type, std::uint16_t{0x8000}), "-32768"},
        {number(kCFNumberShortType, std::uint16_t{0xffff}), "-1"},
        {number(kCFNumberSInt32Type, std::uint32_t{0x80000000}), "-2147483648"},
        {number(kCFNumberIntType, std::int32_t{5000}), "5000"},
        {number(kCFNumberLongType, std::int64_t{-5000}), "-5000"},
        {number(kCFNumberLongLongType, std::int64_t{1} << 40), "1099511627776"},
        {number(kCFNumberCFIndexType, std::int64_t{5000}), "5000"},
        {number(kCFNumberNSIntegerType, std::int64_t{-1} << 40), "-1099511627776"},
        {wide_integer(0, ~std::uint64_t{0}), "18446744073709551615"},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(xml_body(row.value.get()), fmt::format("<integer>{}</integer>\n", row.written));
    }
}

TEST(XmlWriting, WritesRealsWithSeventeenDigits) {
    struct {
        cf_owner<CFNumberRef> value;
        std::string_view written;
    } const rows[] = {
        {real(0), "0.0"},
        {real(-0.0), "0.0"},
        {real(std::numeric_limits<double>::quiet_NaN()), "nan"},
        {real(infinity), "+infinity"},
        {real(-infinity), "-infinity"},
        {real(1), "1"},
        {real(0.5), "0.5"},
        {real(0.1), "0.10000000000000001"},
        {real(1e100), "1e+100"},
        {real(-1.5), "-1.5"},
        {real(1.0 / 3), "0.33333333333333331"},
        {real(100), "100"},
        {real(1e15), "1000000000000000"},
        {real(1e16), "10000000000000000"},
        {real(1e17), "1e+17"},
        {real(1e-5), "1.0000000000000001e-05"},
        {real(123456789.123), "123456789.123"},
        {real(std::numeric_limits<double>::max()), "1.7976931348623157e+308"},
        {real(4.9e-324), "4.9406564584124654e-324"},
        {number(kCFNumberFloat32Type, 0.1F), "0.10000000149011612"},
        {number(kCFNumberFloat32Type, 1.0F / 3), "0.3333333432674408"},
        {number(kCFNumberFloat32Type, 1e10F), "10000000000"},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(xml_body(row.value.get()), fmt::format("<real>{}</real>\n", row.written));
    }
}

TEST(XmlWriting, WritesBooleans) {
    EXPECT_EQ(xml_body(kCFBooleanTrue), "<true/>\n");
    EXPECT_EQ(xml_body(kCFBooleanFalse), "<false/>\n");
}

TEST(XmlWriting, RoundsDatesDownToTheSecond) {
    struct {
        double time;
        std::string_view written;
    } const rows[] = {
        {0, "2001-01-01T00:00:00Z"},
        {0.999999, "2001-01-01T00:00:00Z"},
        {-0.5, "2000-12-31T23:59:59Z"},
        {700000000.25, "2023-03-08T20:26:40Z"},
        {-978307200, "1970-01-01T00:00:00Z"},
        {-63113904000, "0001-01-01T00:00:00Z"},
        {-63113904000 - 86400, "0000-12-31T00:00:00Z"},
        {-63145526400, "0000-01-01T00:00:00Z"},
        {315360000000, "11994-05-13T00:00:00Z"},
        {-1e12, "-29688-04-06T22:13:20Z"},
    };
    for (auto const & row : rows) {
        auto const date = adopt(CFDateCreate(kCFAllocatorDefault, row.time));
        EXPECT_EQ(xml_body(date.get()), fmt::format("<date>{}</date>\n", row.written)) << row.time;
    }
}

TEST(XmlWriting, WritesSomethingForImpossibleDates) {
    for (auto const time : {std::numeric_limits<double>::quiet_NaN(), infinity, -infinity, 1e300}) {
        auto const date = adopt(CFDateCreate(kCFAllocatorDefault, time));
        auto const body = xml_body(date.get());
        EXPECT_TRUE(body.starts_with("<date>") && body.ends_with("Z</date>\n")) << body;
    }
}

TEST(XmlWriting, BreaksDataIntoLines) {
    struct {
        std::size_t indent;
        std::string bytes;
        std::string_view written;
    } const rows[] = {
        {1, "", "\t<data>\n\t</data>\n"},
        {0, "", "<data>\n</data>\n"},
        {1, bytes_from(0, 1), "\t<data>\n\tAA==\n\t</data>\n"},
        {1, bytes_from(0, 3), "\t<data>\n\tAAEC\n\t</data>\n"},
        {1, bytes_from(0, 60),
         "\t<data>\n"
         "\tAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEy\n"
         "\tMzQ1Njc4OTo7\n"
         "\t</data>\n"},
        {1, bytes_from(0, 51),
         "\t<data>\n"
         "\tAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEy\n"
         "\t</data>\n"},
        {0, bytes_from(0, 60),
         "<data>\nAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4\n"
         "OTo7\n</data>\n"},
    };
    for (auto const & row : rows) {
        auto body = xml_body(nested(row.indent, data_of(row.bytes)).get());
        auto const start = row.indent == 0 ? 0 : std::string_view{"<array>\n"}.size();
        auto const end = row.indent == 0 ? 0 : std::string_view{"</array>\n"}.size();
        EXPECT_EQ(body.substr(start, body.size() - start - end), row.written);
    }
}

TEST(XmlWriting, ShortensLinesOfDataWithTheIndent) {
    constexpr std::size_t characters[] = {76, 68, 60, 52, 44, 36, 28, 20, 12, 12, 12};
    for (std::size_t indent = 0; indent < std::size(characters); ++indent) {
        SCOPED_TRACE(indent);
        auto const body = xml_body(nested(indent, data_of(bytes_from(0, 200))).get());
        auto const tabs = std::min<std::size_t>(indent, 8);
        auto const tag = std::string(indent, '\t') + "<data>\n";
        auto const line = body.substr(body.find(tag) + tag.size());
        EXPECT_NE(body.find(tag), std::string::npos);
        EXPECT_EQ(line.find('\n'), tabs + characters[indent]);
        EXPECT_EQ(line.find_first_not_of('\t'), tabs);
        EXPECT_NE(body.find(fmt::format("\n{:\t>{}}</data>\n", "", indent)), std::string::npos);
    }
}

TEST(XmlWriting, EndsDataWithAShorterLine) {
    auto const body = xml_body(nested(1, data_of(bytes_from(0, 200))).get());
    EXPECT_NE(body.find("\n\tmZqbnJ2en6ChoqOkpaanqKmqq6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsc=\n"
                        "\t</data>\n"),
              std::string::npos)
        << body;
}

TEST(XmlWriting, NestsContainers) {
    EXPECT_EQ(xml_body(array().get()), "<array/>\n");
    EXPECT_EQ(xml_body(dictionary().get()), "<dict/>\n");

    auto const numbers = array();
    CFArrayAppendValue(numbers.get(), integer(1).get());
    CFArrayAppendValue(numbers.get(), array().get());
    auto const inner = dictionary();
    CFDictionarySetValue(inner.get(), CFSTR("sub"), dictionary().get());
    CFDictionarySetValue(inner.get(), CFSTR("k<&>"), kCFBooleanTrue);
    auto const value = array();
    CFArrayAppendValue(value.get(), CFSTR("x"));
    CFArrayAppendValue(value.get(), numbers.get());
    CFArrayAppendValue(value.get(), inner.get());
    auto const root = dictionary();
    CFDictionarySetValue(root.get(), CFSTR("Value"), value.get());
    EXPECT_EQ(xml_body(root.get()),
              "<dict>\n\t<key>Value</key>\n\t<array>\n\t\t<string>x</string>\n\t\t<array>\n"
              "\t\t\t<integer>1</integer>\n\t\t\t<array/>\n\t\t</array>\n\t\t<dict>\n"
              "\t\t\t<key>k&lt;&amp;&gt;</key>\n\t\t\t<true/>\n\t\t\t<key>sub</key>\n"
              "\t\t\t<dict/>\n\t\t</dict>\n\t</array>\n</dict>\n");
}

// Unlike the real library, which writes recursively: how deep depends on the stack there.
TEST(XmlWriting, KnowsNoLimitOfDepth) {
    auto const root = nested(9'999, cf_owner<CFTypeRef>{array().release()});
    EXPECT_EQ(bytes_of(write(root.get()).document.get()).size(), 100'150'166U);
}

} // namespace
