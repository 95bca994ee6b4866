#include "tests/unit/simulator/CoreFoundation/property_list/property_lists.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

struct xml_row {
    std::string document;
    std::string_view expected; // the notation of the root, or the debugging text of the error
};

void expect_xml_roots(std::vector<xml_row> const & rows) {
    for (auto const & row : rows) {
        auto const reading = read(row.document);
        EXPECT_EQ(notation(reading.root.get()), row.expected)
            << row.document << "\n"
            << (reading.error ? reading.text() : "");
        EXPECT_EQ(reading.format, kCFPropertyListXMLFormat_v1_0) << row.document;
    }
}

void expect_xml_failures(std::vector<xml_row> const & rows) {
    for (auto const & row : rows) {
        auto const reading = read(row.document);
        EXPECT_EQ(reading.root, nullptr) << row.document;
        ASSERT_NE(reading.error, nullptr) << row.document;
        EXPECT_EQ(reading.text(), row.expected) << row.document;
        EXPECT_EQ(reading.format, -1);
    }
}

std::string element(std::string_view name, std::string_view content) {
    return fmt::format("<{0}>{1}</{0}>", name, content);
}

std::string in_plist(std::string_view content) {
    return element("plist", content);
}

std::string utf16(std::u16string_view text, bool big_endian) {
    std::string bytes;
    for (auto const unit : text) {
        auto const low = static_cast<char>(unit & 0xff);
        auto const high = static_cast<char>(unit >> 8);
        bytes += big_endian ? high : low;
        bytes += big_endian ? low : high;
    }
    return bytes;
}

std::string utf32(std::u32string_view text) {
    std::string bytes;
    for (auto const unit : text) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes += static_cast<char>(unit >> shift);
        }
    }
    return bytes;
}

std::string utf32_big_endian(std::u32string_view text) {
    auto bytes = utf32(text);
    for (std::size_t unit = 0; unit < bytes.size(); unit += 4) {
        std::swap(bytes[unit], bytes[unit + 3]);
        std::swap(bytes[unit + 1], bytes[unit + 2]);
    }
    return bytes;
}

constexpr auto declaration = "<?xml version=\"1.0\"?>"sv;
constexpr auto unexpected_end = "Encountered unexpected EOF"sv;

TEST(XmlReading, AcceptsAnyEnvelope) {
    std::string const dict = "<dict><key>a</key><string>b</string></dict>";
    auto const meaning = "{\"a\": \"b\"}"sv;
    std::vector<xml_row> rows = {
        {std::string{xml_opening} + dict + "</plist>\n", meaning},
        {dict, meaning},
        {in_plist(dict), meaning},
        {"<plist version=\"9\" other='x'>" + dict + "</plist>", meaning},
        {"<!DOCTYPE plist>" + in_plist(dict), meaning},
        {"<!DOCTYPE plist SYSTEM \"a.dtd\">" + in_plist(dict), meaning},
        {std::string{declaration} + in_plist(dict), meaning},
        {" \t\r\n" + in_plist(dict), meaning},
        {in_plist("\r\n<dict>\r\n<key>a</key>\r\n<string>b</string></dict>\r\n"), meaning},
        {in_plist(dict) + "garbage", meaning},
        {in_plist(dict) + '\0', meaning},
        {in_plist(dict) + in_plist("<true/>"), meaning},
        {dict + "garbage", meaning},
        {in_plist(in_plist(dict)), meaning},
        {"<plist><?pi x?>" + dict + "<!-- end --></plist >", meaning},
        {"<string>b</string>", "\"b\""},
        {"<string>a\r\nb</string>", "\"a\r\nb\""},
    };
    expect_xml_roots(rows);
}

TEST(XmlReading, RefusesBrokenEnvelopes) {
    expect_xml_failures({
        {"<plist><dict><key>a</key><string>b</string></dict>", unexpected_end},
        {"<plist><dict><key>a</key><string>b</string>", unexpected_end},
        {"<plist><array><true/>", unexpected_end},
        {"<plist><string>ab", unexpected_end},
        {"<plist><string>ab</str", unexpected_end},
        {"<plist><dict><key>a</key><str", "Value missing for key inside <dict> at line 1"},
        {"<", "No XML content found"},
        {std::string{xml_opening.substr(0, xml_opening.find("<plist"))}, "No XML content found"},
        {"<?xml",
         "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
        {std::string{declaration},
         "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
         "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
        {"<plist></plist>", "Encountered empty plist tag"},
        {"<plist>  </plist>", "Encountered empty plist tag"},
        {"<plist/>", "Encountered empty plist tag"},
        {"<plist><true/><false/></plist>",
         "Encountered unexpected element at line 1 (plist can only include one object)"},
        {"x<plist><true/></plist>", "Unexpected character x at line 1"},
        {"\n\nx<plist><true/></plist>", "Unexpected character x at line 3"},
        {"\r\n\rx<plist><true/></plist>", "Unexpected character x at line 3"},
        {"<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><true/></plist>",
         "Encountered unexpected character [ on line 1 while parsing DTD"},
        {"<html><body/></html>", "Encountered unknown tag html on line 1"},
        {"<plist><true/></plist", unexpected_end},
        {"<plist><true/></array>", "Close tag on line 1 does not match open tag plist"},
    });
    EXPECT_EQ(read("\0<plist><true/></plist>"sv).root, nullptr);
}

TEST(XmlReading, WantsRoomBehindAShortDeclaration) {
    auto const short_one = std::string{declaration} + "<foo/>";
    ASSERT_EQ(short_one.size(), 27U);
    expect_xml_failures({
        {short_one, "End of buffer while looking for encoding name"},
        {short_one + " ", "Encountered unknown tag foo on line 1"},
        {"<?xml version=\"1.0\" encoding=\"UTF", "End of buffer while looking for encoding name"},
    });
    EXPECT_EQ(read(short_one).old_style_text(), "");
    expect_xml_roots({{std::string{declaration} + "<true/>", "true"}});
}

TEST(XmlReading, UnderstandsEncodings) {
    auto const declared = [](std::string_view encoding, std::string_view text) {
        return fmt::format("<?xml version=\"1.0\" encoding=\"{}\"?><string>{}</string>", encoding,
                           text);
    };
    expect_xml_roots({
        {"\xef\xbb\xbf<string>\xc3\xa9</string>", "\"\xc3\xa9\""},
        {utf16(u"\ufeff<string>\u00e9\U0001f600</string>", false), "\"\xc3\xa9\xf0\x9f\x98\x80\""},
        {utf16(u"\ufeff<string>\u00e9\U0001f600</string>", true), "\"\xc3\xa9\xf0\x9f\x98\x80\""},
        {utf32(U"\ufeff<string>\u00e9\U0001f600</string>"), "\"\xc3\xa9\xf0\x9f\x98\x80\""},
        {declared("ISO-8859-1", "\xe9"), "\"\xc3\xa9\""},
        {declared("iso-8859-1", "\xe9"), "\"\xc3\xa9\""},
        {declared("windows-1252", "\x80\xe9"), "\"\xe2\x82\xac\xc3\xa9\""},
        {declared("utf-8", "\xc3\xa9"), "\"\xc3\xa9\""},
        {declared("US-ASCII", "\xe9"), "\"\xc3\xa9\""},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><string>\xe9</string>", "\"\xc3\xa9\""},
        {utf16(u"\ufeff<?xml version=\"1.0\" encoding=\"UTF-16\"?><true/>", false), "true"},
    });
    expect_xml_failures({
        {declared("foo", "x"), "Encountered unknown encoding (foo)"},
        {declared("macintosh", "x"), "Encountered unknown encoding (macintosh)"},
    });
    auto const big_endian = utf32_big_endian(U"\ufeff<true/>");
    EXPECT_EQ(read(big_endian).root, nullptr);
    EXPECT_EQ(read(declared("UTF-16", "x")).root, nullptr);
    for (auto const mark : {"\xef\xbb\xbf"sv, "\xff\xfe"sv, "\xfe\xff"sv, "\xff\xfe\0\0"sv}) {
        auto const reading = read(mark);
        EXPECT_EQ(reading.root, nullptr);
        EXPECT_NE(reading.error, nullptr);
    }
    EXPECT_EQ(read(utf16(u"<true/>", false)).root, nullptr);
    EXPECT_EQ(read(utf16(u"<true/>", true)).root, nullptr);
    EXPECT_EQ(read(utf16(u"\ufeff<string>\xd800</string>", false)).root, nullptr);
}

TEST(XmlReading, RefusesInvalidUtf8) {
    for (auto const bytes : {"\xff"sv, "\x80"sv, "\xc3"sv, "\xe2\x82"sv, "\xc0\x80"sv,
                             "\xed\xa0\x80"sv, "\xf4\x90\x80\x80"sv, "\xf8\x88\x80\x80\x80"sv}) {
        expect_xml_failures({
            {element("string", bytes), "Unable to convert string to correct encoding"},
            {fmt::format("<dict><key>{}</key><true/></dict>", bytes),
             "Unable to convert string to correct encoding"},
        });
    }
}

TEST(XmlReading, ChecksTags) {
    expect_xml_failures({
        {"<String>x</String>", "Encountered unknown tag String on line 1"},
        {"<plist>\n<foo a='b'/></plist>", "Encountered unknown tag foo on line 2"},
        {"<plist>\n<\xff/></plist>", "Encountered unknown tag \xc3\xbf on line 2"},
        {"<plist>< string></string></plist>", "Malformed tag on line 1"},
        {"<plist>\n<string>x</integer></plist>",
         "Close tag on line 2 does not match open tag string"},
        {"<plist><array></dict></plist>", "Close tag on line 1 does not match open tag array"},
        {"<plist><array>text</array></plist>",
         "Encountered unexpected character t on line 1 while looking for open tag"},
        {"<plist><array>\xc3\xa9</array></plist>",
         "Encountered unexpected character \xc3\xa9 on line 1 while looking for open tag"},
        {"<plist><!-- c --", "Unterminated comment started on line 1"},
        {"<plist>\n<!-->", "Unterminated comment started on line 2"},
    });
    EXPECT_EQ(read("<plist><![CDATA[x]]></plist>").root, nullptr);
    expect_xml_roots({
        {"<string a='b'>x</string >", "\"x\""},
        {"<string a='>'>x</string>", "\"'>x\""},
        {"<array><!----><!-- a -- b --><?pi?><true/><!-- c --></array>", "[true]"},
    });
}

TEST(XmlReading, ReadsStrings) {
    expect_xml_roots({
        {"<string>  two\n\tlines  </string>", "\"  two\n\tlines  \""},
        {"<string/>", "\"\""},
        {"<string />", "\"\""},
        {"<string></string>", "\"\""},
        {"<string>a>b]]>c\x01\x1f</string>", "\"a>b]]>c\x01\x1f\""},
        {"<string>a<![CDATA[<&>]]>b</string>", "\"a<&>b\""},
        {"<string><![CDATA[]]><![CDATA[x]]></string>", "\"x\""},
        {"<string>\xc3\xa9\xf0\x9f\x98\x80</string>", "\"\xc3\xa9\xf0\x9f\x98\x80\""},
        {"<key>a</key>", "\"a\""},
        {"<array><key>a</key></array>", "[\"a\"]"},
    });
    expect_xml_failures({
        {"<plist><string>a<!-- c -->b</string></plist>",
         "Encountered improper CDATA opening at line 1"},
        {"<plist><string>a<b/></string></plist>",
         "Encountered unexpected character b on line 1 while looking for close tag"},
        {"<plist><string>a<?pi?></string></plist>",
         "Encountered unexpected character ? on line 1 while looking for close tag"},
        {"<plist><string>a<![CDATA[b</string></plist>",
         "Could not find end of CDATA started on line 1"},
        {"<plist><string>a<![CDAT", unexpected_end},
    });
}

// However it is written, and in whatever encoding; only one, and only at the beginning.
TEST(XmlReading, DropsAMarkAtTheBeginningOfAText) {
    constexpr auto mark = "\xef\xbb\xbf"sv;
    expect_xml_roots({
        {fmt::format("<string>{}a</string>", mark), "\"a\""},
        {fmt::format("<string>{}</string>", mark), "\"\""},
        {fmt::format("<string>{}\xc3\xa9</string>", mark), "\"\xc3\xa9\""},
        {"<string>&#xfeff;a</string>", "\"a\""},
        {fmt::format("<string><![CDATA[{}a]]></string>", mark), "\"a\""},
        {fmt::format("<dict><key>{}k</key><true/></dict>", mark), "{\"k\": true}"},
        {"<dict><key>&#65279;k</key><true/><key>k</key><false/></dict>", "{\"k\": false}"},
        {utf16(u"\ufeff<string>\ufeffa</string>", false), "\"a\""},
        {fmt::format("<string>{0}{0}a</string>", mark), "\"\xef\xbb\xbf"
                                                        "a\""},
        {fmt::format("<string>a{}</string>", mark), "\"a\xef\xbb\xbf\""},
        {fmt::format("<string>a<![CDATA[{}]]></string>", mark), "\"a\xef\xbb\xbf\""},
    });
}

TEST(XmlReading, ReadsEntities) {
    expect_xml_roots({
        {"<string>&amp;&lt;&gt;&quot;&apos;</string>", "\"&<>\"'\""},
        {"<string>&#65;&#x41;&#xe9;&#xE9;</string>", "\"AA\xc3\xa9\xc3\xa9\""},
        {"<string>&#x1F600;&#128512;</string>", "\"\xf0\x9f\x98\x80\xf0\x9f\x98\x80\""},
        {"<string>a&#9;b</string>", "\"a\tb\""},
        {"<string>&#00000065;&#x00000041;</string>", "\"AA\""},
        {"<dict><key>&lt;k&gt;</key><true/></dict>", "{\"<k>\": true}"},
    });
    for (auto const * const nul : {"<string>a&#0;b</string>", "<string>a&#;b</string>"}) {
        auto const reading = read(nul);
        ASSERT_NE(reading.root, nullptr);
        EXPECT_EQ(units(static_cast<CFStringRef>(reading.root.get())), u"a\0b"sv);
    }
    for (auto const * const entity :
         {"&#000000065;", "&#x000000041;", "&#X41;", "&#xd800;", "&#xdfff;", "&#xd83d;&#xde00;",
          "&#x110000;", "&#99999999;", "&#-1;", "&#6 5;", "&", "& ", "&foo;", "&nbsp;", "&amp ",
          "&AMP;"}) {
        expect_xml_failures({{in_plist(element("string", entity)),
                              "Encountered unknown ampersand-escape sequence at line 1"}});
    }
    expect_xml_failures({
        {"<string>&am", unexpected_end},
        {"<string>&", unexpected_end},
        {"<string>&#6", unexpected_end},
    });
}

TEST(XmlReading, ReadsDictionaries) {
    expect_xml_roots({
        {"<dict></dict>", "{}"},
        {"<dict/>", "{}"},
        {"<dict><key></key><true/></dict>", "{\"\": true}"},
        {"<dict><key/><true/></dict>", "{\"\": true}"},
        {"<dict><key>a</key><key>b</key></dict>", "{\"a\": \"b\"}"},
        {"<dict><key>a</key><true/><key>a</key><false/></dict>", "{\"a\": false}"},
        {"<dict><key>a</key><dict><key>b</key><array/></dict></dict>", "{\"a\": {\"b\": []}}"},
        {"<dict><key>CF$UID</key><integer>7</integer></dict>",
         "<CFKeyedArchiverUID PTR [PTR]>{value = 7}"},
        {"<dict><key>CF$UID</key><string>7</string></dict>", "{\"CF$UID\": \"7\"}"},
        {"<dict><key>CF$UID</key><real>7</real></dict>", "{\"CF$UID\": real 7}"},
        {"<dict><key>CF$UID</key><integer>7</integer><key>a</key><true/></dict>",
         "{\"CF$UID\": 7, \"a\": true}"},
    });
    expect_xml_failures({
        {"<plist>\n<dict><key>a</key></dict></plist>",
         "Value missing for key inside <dict> at line 2"},
        {"<plist><dict><key>a</key><key>b</key><string>c</string></dict></plist>",
         "Found non-key inside <dict> at line 1"},
        {"<plist><dict><string>a</string></dict></plist>", "Found non-key inside <dict> at line 1"},
        {"<plist><dict><array/><true/></dict></plist>", "Found non-key inside <dict> at line 1"},
        {"<plist><dict><array></array><true/></dict></plist>",
         "Found non-key inside <dict> at line 1"},
    });
}

TEST(XmlReading, ReadsArrays) {
    expect_xml_roots({
        {"<array></array>", "[]"},
        {"<array/>", "[]"},
        {"<array> <true/> <array><false/></array> </array>", "[true, [false]]"},
    });
}

TEST(XmlReading, ReadsIntegers) {
    xml_row const rows[] = {
        {"0", "0"},
        {"+5", "5"},
        {"-5", "-5"},
        {" \n\t7", "7"},
        {"007", "7"},
        {"0x1F", "31"},
        {"0x1f", "31"},
        {"-0x10", "-16"},
        {"-0", "0"},
        {"9223372036854775807", "9223372036854775807"},
        {"9223372036854775808", "9223372036854775808"},
        {"18446744073709551615", "18446744073709551615"},
        {"0xffffffffffffffff", "18446744073709551615"},
        {"-9223372036854775808", "-9223372036854775808"},
        {"-0x8000000000000000", "-9223372036854775808"},
    };
    for (auto const & row : rows) {
        expect_xml_roots({{element("integer", row.document), row.expected}});
    }
    struct {
        std::string_view text;
        CFNumberType type;
    } const types[] = {
        {"-2", kCFNumberSInt64Type},
        {"-1", kCFNumberSInt32Type},
        {"12", kCFNumberSInt32Type},
        {"13", kCFNumberSInt64Type},
        {"18446744073709551615", kCFNumberSInt64Type},
    };
    for (auto const & row : types) {
        auto const reading = read(element("integer", row.text));
        EXPECT_EQ(CFNumberGetType(static_cast<CFNumberRef>(reading.root.get())), row.type);
    }
}

TEST(XmlReading, RefusesOtherIntegers) {
    xml_row const rows[] = {
        {"7 ", "Unknown character ' ' (0x20) in <integer> on line 1"},
        {"abc", "Unknown character 'a' (0x61) in <integer> on line 1"},
        {"1.5", "Unknown character '.' (0x2e) in <integer> on line 1"},
        {"1,000", "Unknown character ',' (0x2c) in <integer> on line 1"},
        {"&#49;", "Unknown character '&' (0x26) in <integer> on line 1"},
        {"--1", "Unknown character '-' (0x2d) in <integer> on line 1"},
        {"0xg", "Unknown character 'g' (0x67) in <integer> on line 1"},
        {"", "Encountered empty <integer> on line 1"},
        {"-", "Encountered empty <integer> on line 1"},
        {"0x", "Encountered empty <integer> on line 1"},
        {"18446744073709551616", "Integer overflow in <integer> on line 1"},
        {"99999999999999999999999", "Integer overflow in <integer> on line 1"},
        {"0x10000000000000000", "Integer overflow in <integer> on line 1"},
        {"-9223372036854775809", "Integer underflow in <integer> on line 1"},
        {"-99999999999999999999", "Integer underflow in <integer> on line 1"},
    };
    for (auto const & row : rows) {
        expect_xml_failures({{in_plist(element("integer", row.document)), row.expected}});
    }
    expect_xml_failures(
        {{"<integer/>", "Encountered empty <integer> on line 1"}, {"<integer>12", unexpected_end}});
}

TEST(XmlReading, ReadsReals) {
    constexpr auto infinity = std::numeric_limits<double>::infinity();
    struct {
        std::string text;
        double value;
    } const rows[] = {
        {"1.5", 1.5},
        {"2", 2},
        {"+2", 2},
        {"1e10", 1e10},
        {"1E+10", 1e10},
        {"-0.5", -0.5},
        {".5", 0.5},
        {"5.", 5},
        {" \n5", 5},
        {"inf", infinity},
        {"+inf", infinity},
        {"-INF", -infinity},
        {"Infinity", infinity},
        {"+infinity", infinity},
        {"-infinity", -infinity},
        {"1e400", infinity},
        {"-1e400", -infinity},
        {"1e99999999999999999999", infinity},
        {"1e-99999999999999999999", 0},
        {"1e-400", 0},
        {"0.0001e-330", 0},
        {"1" + std::string(400, '0'), infinity},
        {"0." + std::string(400, '0') + "1", 0},
        {"0e400", 0},
        {std::string(400, '0') + "7.5", 7.5},
        {"0.10000000000000001", 0.1},
        {"1.7976931348623157e+308", std::numeric_limits<double>::max()},
        {"4.9406564584124654e-324", 4.9e-324},
    };
    for (auto const & row : rows) {
        auto const reading = read(element("real", row.text));
        ASSERT_NE(reading.root, nullptr) << row.text;
        auto const * const number = static_cast<CFNumberRef>(reading.root.get());
        double value = 0;
        EXPECT_TRUE(CFNumberGetValue(number, kCFNumberFloat64Type, &value));
        EXPECT_EQ(value, row.value) << row.text;
        EXPECT_EQ(CFNumberGetType(number), kCFNumberFloat64Type);
    }
    for (auto const * const text : {"nan", "NaN", "NAN"}) {
        expect_xml_roots({{element("real", text), "real nan"}});
    }
}

TEST(XmlReading, RefusesOtherReals) {
    for (auto const * const text :
         {"1.5 ", "", "abc", "0x10", "1,5", "1e", "e5", ".", "-", "+", "+-1", "--1", "nan(1)",
          "infinit", "1.5f", "1 2", "&#49;", "\xc3\xa9"}) {
        expect_xml_failures(
            {{in_plist(element("real", text)), "Encountered misformatted real on line 1"}});
    }
    expect_xml_failures(
        {{"<real/>", "Encountered empty <real> on line 1"}, {"<real>1.5", unexpected_end}});
}

TEST(XmlReading, ReadsBackRealsExactly) {
    auto const epsilon = std::numeric_limits<double>::epsilon();
    for (auto const value : {0.1, 1.0 / 3, 1e-5, 1e100, 4.9e-324, 1 + epsilon, -123456789.123}) {
        auto const root = real(value);
        auto const document = bytes_of(write(root.get()).document.get());
        EXPECT_TRUE(CFEqual(read(document).root.get(), root.get())) << value;
    }
}

TEST(XmlReading, ReadsBooleans) {
    expect_xml_roots({
        {"<true/>", "true"},
        {"<true></true>", "true"},
        {"<false />", "false"},
        {"<false></false>", "false"},
    });
    expect_xml_failures({
        {"<true> </true>", "Encountered non-empty <true> on line 1"},
        {"<false>x</false>", "Encountered non-empty <false> on line 1"},
        {"<true><true/></true>", "Encountered non-empty <true> on line 1"},
        {"<plist>\n<false><!-- c --></false></plist>", "Encountered non-empty <false> on line 2"},
        {"<true><![CDATA[]]></true>", "Encountered non-empty <true> on line 1"},
        {"<true>", unexpected_end},
        {"<true><", unexpected_end},
        {"<true></", unexpected_end},
    });
}

TEST(XmlReading, ReadsDates) {
    struct {
        std::string_view text;
        double time;
    } const rows[] = {
        {"2001-01-01T00:00:00Z", 0},          {"2000-12-31T23:59:59Z", -1},
        {"1970-01-01T00:00:00Z", -978307200}, {"2023-03-08T20:26:40Z", 700000000},
        {"2001-13-01T00:00:00Z", 31536000},   {"2001-00-01T00:00:00Z", 0},
        {"2001-02-30T00:00:00Z", 60 * 86400}, {"2001-01-01T25:00:00Z", 25 * 3600},
        {"2001-01-01T00:00:60Z", 60},         {"11994-05-13T00:00:00Z", 315360000000},
        {"-29688-04-06T22:13:20Z", -1e12},    {"1-01-01T00:00:00Z", -63113904000},
        {"0002001-01-01T00:00:00Z", 0},
    };
    for (auto const & row : rows) {
        auto const reading = read(element("date", row.text));
        ASSERT_NE(reading.root, nullptr) << row.text;
        EXPECT_EQ(CFDateGetAbsoluteTime(static_cast<CFDateRef>(reading.root.get())), row.time)
            << row.text;
    }
    EXPECT_NE(read(element("date", std::string(100, '9') + "-01-01T00:00:00Z")).root, nullptr);
}

TEST(XmlReading, RefusesOtherDates) {
    for (auto const * const text :
         {"2001-01-01T00:00:00.5Z", "2001-01-01T00:00:00+01:00", "2001-01-01T00:00:00",
          " 2001-01-01T00:00:00Z", "2001-01-01T00:00:00Z ", "2001-1-01T00:00:00Z", "2001-01-01", "",
          "2001-01-01 00:00:00Z", "+2001-01-01T00:00:00Z", "-", "--1-01-01T00:00:00Z",
          "2001-01-01t00:00:00Z", "2001-01-01T00:00:00z"}) {
        expect_xml_failures(
            {{in_plist(element("date", text)), "Could not interpret <date> at line 1"}});
    }
    expect_xml_failures({{"<date/>", "Encountered empty <date> on line 1"}});
}

TEST(XmlReading, ReadsData) {
    expect_xml_roots({
        {"<data>SGVsbG8=</data>", "<48656c6c6f>"},
        {"<data>\n\tSGVs\n\tbG8=\n</data>", "<48656c6c6f>"},
        {"<data>S!G\"V#s.b,G:8;=</data>", "<48656c6c6f>"},
        {"<data>SGVsbG8</data>", "<48656c>"},
        {"<data>====</data>", "<00>"},
        {"<data>SGVsbG8=SGVsbG8=</data>", "<48656c6c6f48656c6c6f>"},
        {"<data>-_-_</data>", "<>"},
        {"<data></data>", "<>"},
        {"<data>AAEC</data>", "<000102>"},
        {"<data>AA==</data>", "<00>"},
        {"<data>+/+/</data>", "<fbffbf>"},
    });
    EXPECT_NE(CFDataGetBytePtr(static_cast<CFDataRef>(read("<data></data>").root.get())), nullptr);
    expect_xml_failures({
        {"<plist>\n<data>\nSG\xc3\xa9Vs</data></plist>",
         "Could not interpret <data> on line 3 (invalid character 0xC3)"},
        {"<data/>", "Encountered empty <data> on line 1"},
        {"<plist><data>AA<!-- c -->==</data></plist>",
         "Encountered unexpected character ! on line 1 while looking for close tag"},
        {"<plist><data><![CDATA[AA==]]></data></plist>",
         "Encountered unexpected character ! on line 1 while looking for close tag"},
        {"<data>SGVs", unexpected_end},
    });
}

TEST(XmlReading, MakesEqualStringsOneObject) {
    auto const reading =
        read("<array><string>one</string><string>one</string><string>\xc3\xa9</string>"
             "<string>&#xe9;</string><dict><key>one</key><true/></dict></array>");
    auto const * const root = static_cast<CFArrayRef>(reading.root.get());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(root, 0), CFArrayGetValueAtIndex(root, 1));
    EXPECT_EQ(CFArrayGetValueAtIndex(root, 2), CFArrayGetValueAtIndex(root, 3));
    EXPECT_NE(CFArrayGetValueAtIndex(root, 0), CFArrayGetValueAtIndex(root, 2));
    void const * key = nullptr;
    CFDictionaryGetKeysAndValues(static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(root, 4)),
                                 &key, nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(root, 0), key);
    EXPECT_EQ(CFGetRetainCount(key), 3);
}

TEST(XmlReading, MakesManyDifferentStrings) {
    std::string document = "<array>";
    for (int count = 0; count < 5000; ++count) {
        document += fmt::format("<string>text {}</string>", count % 2500);
    }
    auto const reading = read(document + "</array>");
    auto const * const root = static_cast<CFArrayRef>(reading.root.get());
    ASSERT_NE(root, nullptr);
    for (CFIndex index = 0; index < 2500; ++index) {
        auto const * const first = CFArrayGetValueAtIndex(root, index);
        ASSERT_EQ(first, CFArrayGetValueAtIndex(root, index + 2500));
        ASSERT_EQ(utf8(static_cast<CFStringRef>(first)), fmt::format("text {}", index));
    }
}

TEST(XmlReading, LetsFilledContainersBeChanged) {
    for (CFOptionFlags options = 0; options <= 7; ++options) {
        auto const reading = read("<dict><key>a</key><array><true/></array></dict>", options);
        auto * const root =
            const_cast<CFMutableDictionaryRef>(static_cast<CFDictionaryRef>(reading.root.get()));
        ASSERT_NE(root, nullptr);
        auto const * const inner = CFDictionaryGetValue(root, string("a").get());
        CFArrayAppendValue(const_cast<CFMutableArrayRef>(static_cast<CFArrayRef>(inner)),
                           kCFBooleanFalse);
        CFDictionarySetValue(root, CFSTR("b"), CFSTR("c"));
        EXPECT_EQ(notation(root), "{\"a\": [true, false], \"b\": \"c\"}");
    }
    auto const empty = read("<dict/>", kCFPropertyListMutableContainers);
    CFDictionarySetValue(
        const_cast<CFMutableDictionaryRef>(static_cast<CFDictionaryRef>(empty.root.get())),
        CFSTR("b"), CFSTR("c"));
    EXPECT_EQ(notation(empty.root.get()), "{\"b\": \"c\"}");
}

TEST(XmlReading, MakesLeavesMutableOnRequest) {
    constexpr auto document = "<array><string>a</string><string>a</string></array>"sv;
    auto const strings_are_one = [&](CFOptionFlags options) {
        auto const reading = read(document, options);
        auto const * const root = static_cast<CFArrayRef>(reading.root.get());
        return CFArrayGetValueAtIndex(root, 0) == CFArrayGetValueAtIndex(root, 1);
    };
    EXPECT_TRUE(strings_are_one(kCFPropertyListImmutable));
    EXPECT_TRUE(strings_are_one(kCFPropertyListMutableContainers));
    EXPECT_FALSE(strings_are_one(kCFPropertyListMutableContainersAndLeaves));
    auto const leaf = read("<string>a</string>", kCFPropertyListMutableContainersAndLeaves);
    auto const * const text = static_cast<CFStringRef>(leaf.root.get());
    EXPECT_NE(adopt(CFStringCreateCopy(kCFAllocatorDefault, text)).get(), text);
}

TEST(XmlReading, MakesDataMutableOnRequest) {
    auto const described = [](CFOptionFlags options) {
        return description(read("<data>AAEC</data>", options).root.get());
    };
    auto const immutable = "<CFData PTR [PTR]>{length = 3, capacity = 3, bytes = 0x000102}"sv;
    EXPECT_EQ(described(kCFPropertyListImmutable), immutable);
    EXPECT_EQ(described(kCFPropertyListMutableContainers), immutable);
    EXPECT_EQ(described(kCFPropertyListMutableContainersAndLeaves),
              "<CFData PTR [PTR]>{length = 3, capacity = 16, bytes = 0x000102}");
}

#if defined(GTEST_HAS_DEATH_TEST) && !defined(_WIN32)
TEST(XmlReadingDeathTest, KeepsEmptyDictionariesAsTheyAre) {
    auto const empty = read("<dict/>");
    EXPECT_DEATH(CFDictionarySetValue(const_cast<CFMutableDictionaryRef>(
                                          static_cast<CFDictionaryRef>(empty.root.get())),
                                      CFSTR("b"), CFSTR("c")),
                 "CFDictionarySetValue");
}
#endif

TEST(XmlReading, LimitsTheDepth) {
    auto const nest = [](std::string_view open, std::string_view inner, std::string_view close,
                         std::size_t depth) {
        return repeated(open, depth) + std::string{inner} + repeated(close, depth);
    };
    constexpr auto too_deep = "Too many nested arrays or dictionaries, failing on line 1"sv;
    for (auto const inner : {""sv, "<array/>"sv, "<true/>"sv}) {
        EXPECT_NE(read(nest("<array>", inner, "</array>", 512)).root, nullptr);
        expect_xml_failures({{nest("<array>", inner, "</array>", 513), too_deep}});
    }
    EXPECT_NE(read(nest("<dict><key/>", "<true/>", "</dict>", 512)).root, nullptr);
    expect_xml_failures({{nest("<dict><key/>", "<true/>", "</dict>", 513), too_deep}});
    for (std::size_t const depth : {1'000U, 100'000U, 1'000'000U}) {
        EXPECT_EQ(read(nest("<array>", "", "</array>", depth)).text(), too_deep);
        EXPECT_EQ(read(repeated("<array>", depth)).text(), too_deep);
    }
    EXPECT_NE(read(nest("<plist>", "<true/>", "</plist>", 1'000'000)).root, nullptr);
    auto const wide = "<array>" + repeated("<array><true/></array>", 2000) + "</array>";
    EXPECT_NE(read(wide).root, nullptr);
}

TEST(XmlReading, ReadsBackWhatWasWritten) {
    auto const document =
        "<dict><key>a&amp;</key><array><string> x </string><integer>-5</integer>"
        "<real>0.1</real><true/><false/><date>2023-03-08T20:26:40Z</date><data>AAEC</data>"
        "<dict/><array/></array><key>CF</key><dict><key>CF$UID</key><integer>9</integer></dict>"
        "</dict>"s;
    auto const first = read(document);
    ASSERT_NE(first.root, nullptr);
    auto const written = bytes_of(write(first.root.get()).document.get());
    auto const second = read(written);
    ASSERT_NE(second.root, nullptr);
    EXPECT_TRUE(CFEqual(first.root.get(), second.root.get()));
    EXPECT_EQ(bytes_of(write(second.root.get()).document.get()), written);
}

// A document in place of which nothing is readable any more must not matter.
TEST(XmlReading, KeepsNothingOfTheDocument) {
    std::string document = "<string>some text of the document</string>";
    auto const borrowed = adopt(CFDataCreateWithBytesNoCopy(
        kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(document.data()),
        static_cast<CFIndex>(document.size()), kCFAllocatorNull));
    auto const root = adopt(
        CFPropertyListCreateWithData(kCFAllocatorDefault, borrowed.get(), 0, nullptr, nullptr));
    EXPECT_EQ(CFGetRetainCount(borrowed.get()), 1);
    document.assign(document.size(), 'z');
    EXPECT_EQ(notation(root.get()), "\"some text of the document\"");
}

// One error inside the other, as the two parsers gave up one after the other.
TEST(Reading, DescribesItsFailure) {
    auto const reading = read("not a plist");
    EXPECT_EQ(reading.root, nullptr);
    EXPECT_EQ(reading.format, -1);
    auto * const error = reading.error.get();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(utf8(CFErrorGetDomain(error)), "NSCocoaErrorDomain");
    EXPECT_EQ(CFErrorGetCode(error), kCFPropertyListReadCorruptError);
    EXPECT_EQ(utf8(adopt(CFErrorCopyDescription(error))),
              "The operation couldn\xe2\x80\x99t be completed. (NSCocoaErrorDomain error 3840.)");
    EXPECT_EQ(CFErrorCopyFailureReason(error), nullptr);
    EXPECT_EQ(
        description(error),
        "Error Domain=NSCocoaErrorDomain Code=3840 \"Unexpected character n at line 1\" "
        "UserInfo={NSDebugDescription=Unexpected character n at line 1, "
        "kCFPropertyListOldStyleParsingError=Error Domain=NSCocoaErrorDomain Code=3840 "
        "\"Expected ';' or '=' after key at line 1\" UserInfo={NSDebugDescription=Expected ';' or "
        "'=' after key at line 1}}");
}

TEST(Reading, ReportsHowTheOldStyleParserTookATag) {
    struct {
        std::string_view document;
        std::string_view text;
        std::string_view old_style_text;
    } const rows[] = {
        {"<plist></plist>", "Encountered empty plist tag",
         "Malformed data byte group at line 1; invalid hex"},
        {"\n<a>", "Encountered unknown tag a on line 2",
         "Malformed data byte group at line 2; uneven length"},
    };
    for (auto const & row : rows) {
        auto const reading = read(row.document);
        ASSERT_NE(reading.error, nullptr);
        EXPECT_EQ(reading.text(), row.text);
        EXPECT_EQ(reading.old_style_text(), row.old_style_text);
    }
}

TEST(Reading, NeedsAnyData) {
    CFErrorRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateWithData(kCFAllocatorDefault, nullptr, 0, nullptr, &error),
              nullptr);
    EXPECT_EQ(debug_text(adopt(error).get()), "Cannot parse a NULL or zero-length data");
    auto const reading = read("");
    EXPECT_EQ(reading.text(), "Cannot parse a NULL or zero-length data");
    EXPECT_EQ(CFDictionaryGetCount(adopt(CFErrorCopyUserInfo(reading.error.get())).get()), 1);
}

TEST(Reading, NeedsNobodyToTakeItsResults) {
    EXPECT_EQ(
        CFPropertyListCreateWithData(kCFAllocatorDefault, data_of("@").get(), 0, nullptr, nullptr),
        nullptr);
    auto * const preset = reinterpret_cast<CFErrorRef>(0x1234);
    auto * error = preset;
    auto const root = adopt(CFPropertyListCreateWithData(
        kCFAllocatorDefault, data_of("<true/>").get(), 0, nullptr, &error));
    EXPECT_EQ(root.get(), kCFBooleanTrue);
    EXPECT_EQ(error, preset);
}

} // namespace
