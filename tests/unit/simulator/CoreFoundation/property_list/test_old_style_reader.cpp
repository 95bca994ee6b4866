#include "tests/unit/simulator/CoreFoundation/property_list/property_lists.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace std::string_view_literals;

namespace {

struct old_style_row {
    std::string_view document;
    std::string_view expected; // the notation of the root, or the debugging text of the error
};

// The document, and the same in UTF-16 where it is ASCII without zeros.
std::vector<std::string> forms(std::string_view document) {
    std::vector<std::string> all{std::string{document}};
    if (std::ranges::all_of(document, [](char c) { return c >= '\1' && c < '\x7f'; })) {
        auto & units = all.emplace_back("\xff\xfe");
        for (auto const character : document) {
            units += {character, '\0'};
        }
    }
    return all;
}

void expect_old_style_roots(std::vector<old_style_row> const & rows) {
    for (auto const & row : rows) {
        for (auto const & document : forms(row.document)) {
            auto const reading = read(document);
            EXPECT_EQ(notation(reading.root.get()), row.expected)
                << document << "\n"
                << (reading.error ? reading.old_style_text() : "");
            EXPECT_EQ(reading.format, kCFPropertyListOpenStepFormat) << document;
        }
    }
}

void expect_old_style_failures(std::vector<old_style_row> const & rows) {
    for (auto const & row : rows) {
        for (auto const & document : forms(row.document)) {
            auto const reading = read(document);
            EXPECT_EQ(reading.root, nullptr) << document;
            ASSERT_NE(reading.error, nullptr) << document;
            EXPECT_EQ(reading.old_style_text(), row.expected) << document;
            EXPECT_EQ(reading.format, -1);
        }
    }
}

TEST(OldStyleReading, ReadsNothingAsAnEmptyDictionary) {
    expect_old_style_roots({
        {" ", "{}"},
        {"\n", "{}"},
        {" \t\r\n \n", "{}"},
        {"/* c */", "{}"},
        {"// hi", "{}"},
        {"// hi\n/* a\nb */ \n//", "{}"},
        {"\xef\xbb\xbf ", "{}"},
        {"\xef\xbb\xbf// hi", "{}"},
        {"\xef\xbb\xbf/* c */", "{}"},
    });
}

TEST(OldStyleReading, ReadsAWordAsAString) {
    for (auto const word :
         {"hello"sv, "x"sv, "123"sv, "-5"sv, "1.5"sv, "/usr/local/bin"sv, "http://a.b/c"sv,
          "HTTP/1.1"sv, "true"sv, "null"sv, "bplist00"sv, "a_$b"sv}) {
        expect_old_style_roots({{word, '"' + std::string{word} + '"'}});
    }
    expect_old_style_roots({
        {"hello\n", "\"hello\""},
        {"hello // c", "\"hello\""},
        {"\xef\xbb\xbfhello", "\"hello\""},
        {"\"hello world\"", "\"hello world\""},
        {"'hello world'", "\"hello world\""},
        {"\"\"", "\"\""},
        {"\"it's\"", "\"it's\""},
        {"\"caf\xc3\xa9\"", "\"caf\xc3\xa9\""},
        {"\"abc\"", "\"abc\""},
        {"12", "\"12\""},
        {"{}", "{}"},
    });
}

TEST(OldStyleReading, RefusesOtherText) {
    constexpr auto no_entry = "Expected ';' or '=' after key at line 1"sv;
    expect_old_style_failures({
        {"not a plist", no_entry},
        {"key: value", no_entry},
        {"a@b", no_entry},
        {"C:\\Users\\x", no_entry},
        {"http://a.b/c?d=e", no_entry},
        {"caf\xc3\xa9", no_entry},
        {"a, b", no_entry},
        {"HTTP/1.1 200 OK", no_entry},
        {"\n\nkey: value", "Expected ';' or '=' after key at line 3"},
        {"@#%^&", "Unexpected character '0x40' at line 1"},
        {"\r\n\r@", "Unexpected character '0x40' at line 3"},
        {"[1,2]", "Unexpected character '0x5b' at line 1"},
        {"[]", "Unexpected character '0x5b' at line 1"},
        {"{\"a\": 1}", no_entry},
        {"hello \xff", "Conversion of string failed."},
        {"\"hello", "Unterminated quoted string starting on line 1"},
        {"{ a = b;\n c = 'x\ny", "Unterminated quoted string starting on line 2"},
        {"\"a\\", "Unterminated quoted string starting on line 1"},
        {"hello\0"sv, no_entry},
    });
    EXPECT_EQ(read("not a plist").text(), "Unexpected character n at line 1");
    for (std::size_t const count : {1U, 2U, 4U, 8U}) {
        EXPECT_EQ(read(std::string(count, '\0')).root, nullptr);
    }
}

TEST(OldStyleReading, ReadsEscapes) {
    expect_old_style_roots({
        {"\"a\\n\\t\\U00e9\\101\\\\\"", "\"a\n\t\xc3\xa9"
                                        "A\\\""},
        {"'\\a\\b\\f\\r\\v\\\"\\'\\q'", "\"\a\b\f\r\v\"'q\""},
        {"\"\\1a\\18\\1011\"", "\"\1a\0018A1\""},
        {"\"\\Ue9x\"", "\"\xc3\xa9x\""},
        {"\"\\Ud83d\\Ude00\"", "\"\xf0\x9f\x98\x80\""},
    });
    auto const lone = read("\"a\\Ud800b\"");
    EXPECT_EQ(units(static_cast<CFStringRef>(lone.root.get())),
              (std::u16string{u'a', 0xd800, u'b'}));
}

TEST(OldStyleReading, ReadsOctalEscapesAsNextStepLetters) {
    expect_old_style_roots({
        {"'\\177'", "\"\x7f\""},
        {"'\\200'", "\"\xc2\xa0\""},
        {"'\\240'", "\"\xc2\xa9\""},
        {"'\\256x'", "\"\xef\xac\x81x\""},
        {"'\\344'", "\"\xc3\xae\""},
        {"'\\375'", "\"\xc3\xbf\""},
        {"'\\377'", "\"\xef\xbf\xbd\""}, // no letter
        {"'\\501'", "\"A\""},            // modulo 256
        {"'\\744'", "\"\xc3\xae\""},
        {"'\\Ue4'", "\"\xc3\xa4\""}, // a code point
    });
}

TEST(OldStyleReading, ReadsData) {
    expect_old_style_roots({
        {"<48656c6c6f>", "<48656c6c6f>"},
        {"<48 656C\n6c6F >", "<48656c6c6f>"},
        {"<>", "<>"},
    });
    expect_old_style_failures({
        {"<486>", "Malformed data byte group at line 1; uneven length"},
        {"<48 6 56>", "Malformed data byte group at line 1; uneven length"},
        {"<zz>", "Malformed data byte group at line 1; invalid hex"},
        {"<\n4z>", "Malformed data byte group at line 2; invalid hex"},
        {"<48", "Expected terminating '>' for data at line 1"},
    });
}

TEST(OldStyleReading, ReadsStringsFiles) {
    expect_old_style_roots({
        {"a = b;", "{\"a\": \"b\"}"},
        {"a;", "{\"a\": \"a\"}"},
        {"/* c */ \"k1\" = \"v1\"; k2 = v2; // end", "{\"k1\": \"v1\", \"k2\": \"v2\"}"},
        {"a = (b, c); d = { e; };", "{\"a\": [\"b\", \"c\"], \"d\": {\"e\": \"e\"}}"},
        {"a = b;%", "{\"a\": \"b\"}"}, // what follows is ignored unless it begins with a key
        {"a = b;}", "{\"a\": \"b\"}"},
        {"a = b; )", "{\"a\": \"b\"}"},
        {"a;;", "{\"a\": \"a\"}"},
        {"a = b; <zz> c", "{\"a\": \"b\"}"},
        {"a = b; c; @ d", "{\"a\": \"b\", \"c\": \"c\"}"},
    });
    expect_old_style_failures({
        {"a = b", "Missing ';' on line 1"},
        {"a=b", "Missing ';' on line 1"},
        {"a = b;\nc = d", "Missing ';' on line 2"},
        {"a = b; c", "Missing ';' on line 1"},
        {"a = b; 'c", "Unterminated quoted string starting on line 1"},
        {"a % b;", "Expected ';' or '=' after key at line 1"},
    });
}

TEST(OldStyleReading, ReadsContainers) {
    expect_old_style_roots({
        {"{ a = b; }", "{\"a\": \"b\"}"},
        {"{}", "{}"},
        {"()", "[]"},
        {"( )", "[]"},
        {"(a, b,)", "[\"a\", \"b\"]"},
        {"(a, (b), {c = <ff>;})", "[\"a\", [\"b\"], {\"c\": <ff>}]"},
        {"{ a = b; a = c; }", "{\"a\": \"c\"}"},
        {"{ a; b; }", "{\"a\": \"a\", \"b\": \"b\"}"},
        {"{ n = 5; r = 1.5; t = true; }", "{\"n\": \"5\", \"r\": \"1.5\", \"t\": \"true\"}"},
        {"{ /* c */ a /* c */ = // c\n b; }", "{\"a\": \"b\"}"},
    });
    expect_old_style_failures({
        {"{ a = b }", "Missing ';' on line 1"},
        {"{ a = b;", "Expected terminating '}' for dictionary at line 1"},
        {"(a, b", "Expected terminating ')' for array at line 1"},
        {"(a b)", "Expected terminating ')' for array at line 1"},
        {"{ a = b; } junk", "Junk after plist at line 1"},
        {"{ a = ; }", "Unexpected character '0x3b' at line 1"},
        {"{ a = ", "Unexpected EOF"},
        {"{ (a) = b; }", "Expected terminating '}' for dictionary at line 1"},
    });
}

TEST(OldStyleReading, LimitsTheDepth) {
    auto const nest = [](std::string_view open, std::string_view close, std::size_t depth) {
        return repeated(open, depth) + "x" + repeated(close, depth);
    };
    EXPECT_NE(read(nest("(", ")", 512)).root, nullptr);
    EXPECT_NE(read(nest("{x=", ";}", 512)).root, nullptr);
    for (std::size_t const depth : {513U, 100'000U}) {
        expect_old_style_failures({
            {nest("(", ")", depth), "Expected terminating ')' for array at line 1"},
            {nest("{x=", ";}", depth), "Too many nested arrays or dictionaries at line 1"},
        });
    }
}

// Without a mark, text with zero bytes at its beginning is taken for UTF-16 of which the first
// character is lost.
TEST(OldStyleReading, GuessesUtf16) {
    expect_old_style_roots({
        {"h\0i\0"sv, "\"i\""},
        {"\xff\xfeh\0i\0"sv, "\"hi\""},
        {"\xfe\xff\0h\0i"sv, "\"hi\""},
    });
}

TEST(OldStyleReading, MakesEqualStringsOneObject) {
    auto const reading = read("(one, 'one', \"\\Ue9\", \"\xc3\xa9\")");
    auto const * const root = static_cast<CFArrayRef>(reading.root.get());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(root, 0), CFArrayGetValueAtIndex(root, 1));
    EXPECT_EQ(CFArrayGetValueAtIndex(root, 2), CFArrayGetValueAtIndex(root, 3));
}

TEST(OldStyleReading, LetsContainersBeChanged) {
    struct {
        std::string_view document;
        std::string_view changed;
    } const rows[] = {
        {"{ a = (b); }", "{\"a\": [\"b\"], \"c\": \"d\"}"},
        {"a = b;", "{\"a\": \"b\", \"c\": \"d\"}"},
        {"{}", "{\"c\": \"d\"}"},
        {" ", "{\"c\": \"d\"}"},
    };
    for (auto const & row : rows) {
        auto const reading = read(row.document);
        auto * const root =
            const_cast<CFMutableDictionaryRef>(static_cast<CFDictionaryRef>(reading.root.get()));
        ASSERT_NE(root, nullptr);
        CFDictionarySetValue(root, CFSTR("c"), CFSTR("d"));
        EXPECT_EQ(notation(root), row.changed);
    }
}

} // namespace
