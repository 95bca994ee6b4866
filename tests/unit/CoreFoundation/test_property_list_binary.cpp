#include "tests/unit/CoreFoundation/test_property_list.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <limits>

namespace {

std::string binary(CFTypeRef root) {
    auto const writing = write(root, kCFPropertyListBinaryFormat_v1_0);
    return writing.document == nullptr ? writing.text() : bytes_of(writing.document.get());
}

std::string big_endian(std::uint64_t value, std::size_t size = 8) {
    std::string bytes;
    for (auto shift = size * 8; shift > 0; shift -= 8) {
        bytes += static_cast<char>(value >> (shift - 8));
    }
    return bytes;
}

// A document of objects given in hexadecimal digits, the first of them the root.
std::string document_of(std::vector<std::string_view> const & objects) {
    std::string document = "bplist00";
    std::string table;
    for (auto const object : objects) {
        table += big_endian(document.size(), 2);
        document += from_hexadecimal(object);
    }
    auto const table_offset = document.size();
    return document + table + std::string(6, '\0') + "\x02\x01" + big_endian(objects.size()) +
           big_endian(0) + big_endian(table_offset);
}

// The bytes of the only object of a document.
std::string only_object(CFTypeRef object) {
    auto const document = binary(object);
    return hexadecimal(document.substr(8, document.size() - 8 - 1 - 32));
}

TEST(BinaryWriting, WritesHeaderTableAndTrailer) {
    EXPECT_EQ(hexadecimal(binary(kCFBooleanTrue)),
              hexadecimal("bplist00") + "09" + "08" + "000000000000" + "01" + "01" +
                  "0000000000000001" + "0000000000000000" + "0000000000000009");
}

TEST(BinaryWriting, WritesEachKindOfLeaf) {
    struct {
        Owned<CFTypeRef> object;
        std::string_view written;
    } const rows[] = {
        {Owned<CFTypeRef>{CFRetain(kCFBooleanFalse)}, "08"},
        {integer(0), "1000"},
        {integer(255), "10ff"},
        {integer(256), "110100"},
        {integer(65535), "11ffff"},
        {integer(65536), "1200010000"},
        {integer(4294967295), "12ffffffff"},
        {integer(4294967296), "130000000100000000"},
        {integer(-1), "13ffffffffffffffff"},
        {integer(-2), "13fffffffffffffffe"},
        {wide_integer(0, ~std::uint64_t{0}), "140000000000000000ffffffffffffffff"},
        {real(1.5), "233ff8000000000000"},
        {number(kCFNumberFloat32Type, 1.5F), "223fc00000"},
        {own(CFDateCreate(kCFAllocatorDefault, 0.25)), "333fd0000000000000"},
        {data_of("\x01\x02"), "420102"},
        {data_of("0123456789abcde"), "4f100f303132333435363738396162636465"},
        {string("abc"), "53616263"},
        {string(""), "50"},
        {string("0123456789abcde"), "5f100f303132333435363738396162636465"},
        {string(u"aé"), "62006100e9"},
        {string(std::u16string{u'a', 0xd800, u'b'}), "630061d8000062"},
        {array(), "a0"},
        {dictionary(), "d0"},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(only_object(row.object.get()), row.written);
    }
}

TEST(BinaryWriting, SharesEqualLeaves) {
    auto const root = array();
    CFArrayAppendValue(root.get(), string("x").get());
    CFArrayAppendValue(root.get(), string("x").get());
    CFArrayAppendValue(root.get(), integer(1).get());
    EXPECT_EQ(hexadecimal(binary(root.get())).substr(16, 16), "a301010251781001");

    CFArrayAppendValue(root.get(), real(1).get());
    CFArrayAppendValue(root.get(), number(kCFNumberFloat32Type, 1.0F).get());
    CFArrayAppendValue(root.get(), number(kCFNumberSInt8Type, std::int8_t{1}).get());
    EXPECT_EQ(read_notation(binary(root.get())), "[\"x\", \"x\", 1, real 1, float 1, 1]");
}

TEST(BinaryWriting, WritesContainersThatAreSharedOnce) {
    Owned<CFTypeRef> object{string("leaf").release()};
    for (int level = 0; level < 60; ++level) {
        auto const twice = array();
        CFArrayAppendValue(twice.get(), object.get());
        CFArrayAppendValue(twice.get(), object.get());
        object.reset(CFRetain(twice.get()));
    }
    auto const document = binary(object.get());
    EXPECT_LT(document.size(), 300U + 32U);
    EXPECT_NE(read(document).root, nullptr);
}

TEST(BinaryWriting, NumbersKeysBeforeValues) {
    auto const root = dictionary();
    CFDictionarySetValue(root.get(), CFSTR("k"), CFSTR("v"));
    EXPECT_EQ(hexadecimal(binary(root.get())).substr(16, 14), "d10102516b5176");
}

TEST(BinaryWriting, KnowsNoLimitOfDepth) {
    auto const root = nested(9'999, Owned<CFTypeRef>{array().release()});
    EXPECT_EQ(binary(root.get()).size(), 50'038U);
}

TEST(BinaryReading, ReadsBackWhatWasWritten) {
    auto const root = dictionary();
    auto const add = [&](char const * key, Owned<CFTypeRef> value) {
        CFDictionarySetValue(root.get(), string(key).get(), value.get());
    };
    add("string", string("text"));
    add("wide", string(u"caf\u00e9 \U0001f600"));
    add("lone", string(std::u16string{u'a', 0xd800, u'b'}));
    add("long", string(std::string(300, 'x')));
    add("data", data_of(std::string(70000, '\xab')));
    add("date", own(CFDateCreate(kCFAllocatorDefault, 700000000.25)));
    add("float", number(kCFNumberFloat32Type, 0.1F));
    add("double", real(-0.1));
    add("negative zero", real(-0.0));
    add("byte", integer(200));
    add("negative", integer(std::numeric_limits<std::int64_t>::min()));
    add("large", wide_integer(0, ~std::uint64_t{0}));
    add("true", Owned<CFTypeRef>{CFRetain(kCFBooleanTrue)});
    auto const many = array();
    for (std::int64_t value = 0; value < 1000; ++value) {
        CFArrayAppendValue(many.get(), integer(value).get());
    }
    add("many", Owned<CFTypeRef>{CFRetain(many.get())});

    auto const reading = read(binary(root.get()));
    ASSERT_NE(reading.root, nullptr);
    EXPECT_EQ(reading.format, kCFPropertyListBinaryFormat_v1_0);
    EXPECT_TRUE(CFEqual(reading.root.get(), root.get()));
    auto const * const back = static_cast<CFNumberRef>(CFDictionaryGetValue(
        static_cast<CFDictionaryRef>(reading.root.get()), string("float").get()));
    EXPECT_EQ(CFNumberGetType(back), kCFNumberFloat32Type);
}

TEST(BinaryReading, ReadsEachKindOfObject) {
    struct {
        std::vector<std::string_view> objects;
        std::string_view meaning;
    } const rows[] = {
        {{"00"}, "null"},
        {{"08"}, "false"},
        {{"09"}, "true"},
        {{"10ff"}, "255"},
        {{"11ffff"}, "65535"},
        {{"12ffffffff"}, "4294967295"},
        {{"13ffffffffffffffff"}, "-1"},
        {{"1400000000000000000000000000000005"}, "5"},
        {{"14ffffffffffffffffffffffffffffffff"}, "-1"},
        {{"140000000000000000ffffffffffffffff"}, "18446744073709551615"},
        {{"223fc00000"}, "float 1.5"},
        {{"233ff8000000000000"}, "real 1.5"},
        {{"333fd0000000000000"}, "@0.25"},
        {{"420102"}, "<0102>"},
        {{"4f10020102"}, "<0102>"},
        {{"4f130000000000000002 0102"}, "<0102>"},
        {{"53616263"}, "\"abc\""},
        {{"5261e9"}, "\"a\xc3\xa9\""},
        {{"62006100e9"}, "\"a\xc3\xa9\""},
        {{"8005"}, "<CFKeyedArchiverUID PTR [PTR]>{value = 5}"},
        {{"810100"}, "<CFKeyedArchiverUID PTR [PTR]>{value = 256}"},
        {{"8700000000ffffffff"}, "<CFKeyedArchiverUID PTR [PTR]>{value = 4294967295}"},
        {{"a0"}, "[]"},
        {{"a20101", "5161"}, "[\"a\", \"a\"]"},
        {{"a20101", "00"}, "[null, null]"},
        {{"a30102 02", "a102", "5161"}, "[[\"a\"], \"a\", \"a\"]"},
        {{"c0"}, "set()"},
        {{"c20101", "5161"}, "set(\"a\")"},
        {{"d0"}, "{}"},
        {{"d10102", "516b", "00"}, "{\"k\": null}"},
        {{"d10102", "1005", "5176"}, "{5: \"v\"}"},
        {{"d20103 0204", "516b", "1001", "516b", "1002"}, "{\"k\": 1}"},
    };
    for (auto const & row : rows) {
        auto const reading = read(document_of(row.objects));
        EXPECT_EQ(notation(reading.root.get()), row.meaning);
        EXPECT_EQ(reading.format, kCFPropertyListBinaryFormat_v1_0) << row.meaning;
    }
}

TEST(BinaryReading, RefusesUnsoundObjects) {
    std::vector<std::string_view> const rows[] = {
        {"01"},
        {"0c"},
        {"0e"},
        {"0f"},
        {"15"},
        {"1f"},
        {"20"},
        {"2400000000"},
        {"30"},
        {"3400000000000000 00"},
        {"70"},
        {"90"},
        {"b0"},
        {"e0"},
        {"f0"},
        {"880000000000000000 01"},
        {"870000000100000000"},
        {"11ff"},                 // ends in its middle
        {"5361"},                 // so does its text
        {"4f"},                   // and its count
        {"4f233ff8000000000000"}, // a count that is no integer
        {"4f14 00000000000000000000000000000001 00"},
        {"4f13ffffffffffffffff"}, // a count beyond everything
        {"5f13ffffffffffffffff"},
        {"6f13ffffffffffffffff"},
        {"6f138000000000000000"},
        {"af13ffffffffffffffff"},
        {"df138000000000000000"},
        {"a101"},         // no such object
        {"a100"},         // itself
        {"a101", "a100"}, // itself by a detour
        {"d10100", "516b"},
        {"d10101", "a0"}, // a key that is a container
        {"d10101", "d0"},
        {"c101", "a0"},
    };
    for (auto const & objects : rows) {
        auto const reading = read(document_of(objects));
        EXPECT_EQ(reading.root, nullptr) << objects.front();
        EXPECT_EQ(reading.format, -1);
        EXPECT_NE(reading.error, nullptr);
    }
}

TEST(BinaryReading, RecognisesAnyMinorVersion) {
    auto document = document_of({"5161"});
    for (auto const version : {'\0', '\x01', '0', '1', '9', 'Z', '\xff'}) {
        document[7] = version;
        auto const reading = read(document);
        EXPECT_EQ(notation(reading.root.get()), "\"a\"");
        EXPECT_EQ(reading.format, kCFPropertyListBinaryFormat_v1_0);
    }
    document[6] = '1';
    EXPECT_EQ(read(document).root, nullptr);
    document = document_of({"5161"});
    document[0] = 'B';
    EXPECT_EQ(read(document).root, nullptr);
}

// The fields of the trailer, counted from its beginning.
TEST(BinaryReading, RefusesAnUnsoundTrailer) {
    auto const sound = document_of({"a101", "5161"});
    ASSERT_NE(read(sound).root, nullptr);
    auto const trailer = sound.size() - 32;
    struct {
        std::size_t at;
        std::string_view bytes;
    } const rows[] = {
        {6, "00"}, // bytes of an offset
        {6, "01"},
        {6, "03"},
        {6, "09"},
        {6, "ff"},
        {7, "00"}, // bytes of a reference
        {7, "09"},
        {8, "0000000000000000"}, // the number of objects
        {8, "0000000000000001"},
        {8, "0000000000000003"},
        {8, "8000000000000002"},
        {16, "0000000000000002"}, // the root
        {16, "ffffffffffffffff"},
        {24, "0000000000000000"}, // where the table begins
        {24, "0000000000000008"},
        {24, "000000000000000b"},
        {24, "000000000000000d"},
        {24, "ffffffffffffffff"},
    };
    for (auto const & row : rows) {
        auto document = sound;
        auto const bytes = from_hexadecimal(row.bytes);
        document.replace(trailer + row.at, bytes.size(), bytes);
        EXPECT_EQ(read(document).root, nullptr) << row.at << ": " << row.bytes;
    }
    auto document = sound;
    document.replace(0, 6, "bplist");
    document[trailer] = document[trailer + 5] = '\x7f'; // unused
    EXPECT_NE(read(document).root, nullptr);
}

TEST(BinaryReading, RefusesOffsetsOutsideTheObjects) {
    for (auto const offset : {0, 7, 12, 13, 14, 100, 0xffff}) {
        auto document = document_of({"a101", "5161"});
        document.replace(12 + 2, 2, big_endian(static_cast<std::uint64_t>(offset), 2));
        EXPECT_EQ(read(document).root, nullptr) << offset;
    }
}

TEST(BinaryReading, NeedsTheDocumentToEndWithTheTrailer) {
    auto const root = dictionary();
    CFDictionarySetValue(root.get(), CFSTR("Type"), CFSTR("value"));
    auto const sound = binary(root.get());
    ASSERT_NE(read(sound).root, nullptr);
    for (auto const & document :
         {sound + '\0', sound + '\n', sound.substr(0, sound.size() - 1), "\xef\xbb\xbf" + sound}) {
        auto const reading = read(document);
        EXPECT_EQ(reading.root, nullptr);
        EXPECT_FALSE(reading.old_style_text().empty());
    }
    auto const reading = read(sound + '\n');
    EXPECT_EQ(reading.text(), "Unexpected character b at line 1");
    EXPECT_TRUE(reading.old_style_text() == "Conversion of string failed." ||
                reading.old_style_text() == "Expected ';' or '=' after key at line 1")
        << reading.old_style_text();
}

TEST(BinaryReading, SurvivesTruncation) {
    auto const root = dictionary();
    CFDictionarySetValue(root.get(), CFSTR("Type"), CFSTR("value"));
    auto const sound = binary(root.get());
    for (std::size_t length = 1; length < sound.size(); ++length) {
        auto const reading = read(sound.substr(0, length));
        if (length <= 8) {
            EXPECT_EQ(notation(reading.root.get()), fmt::format("\"{}\"", sound.substr(0, length)));
            EXPECT_EQ(reading.format, kCFPropertyListOpenStepFormat);
        } else {
            EXPECT_EQ(reading.root, nullptr) << length;
        }
    }
}

TEST(BinaryReading, SurvivesFlippedBits) {
    auto const root = dictionary();
    CFDictionarySetValue(root.get(), CFSTR("Type"), CFSTR("value"));
    CFDictionarySetValue(root.get(), CFSTR("List"), nested(2, data_of("x")).get());
    auto const sound = binary(root.get());
    int read_ones = 0;
    int refused_ones = 0;
    for (std::size_t bit = 0; bit < sound.size() * 8; ++bit) {
        auto document = sound;
        document[bit / 8] = static_cast<char>(document[bit / 8] ^ (1 << bit % 8));
        auto const reading = read(document);
        ASSERT_NE(reading.root == nullptr, reading.error == nullptr) << bit;
        ++(reading.root == nullptr ? refused_ones : read_ones);
    }
    EXPECT_GT(read_ones, 0);
    EXPECT_GT(refused_ones, read_ones);
}

std::string nested_arrays(std::size_t depth) {
    std::string document = "bplist00";
    std::string table;
    for (std::size_t level = 0; level < depth; ++level) {
        table += big_endian(document.size(), 4);
        document += level + 1 == depth ? "\xa0" : "\xa1";
        document += level + 1 == depth ? "" : big_endian(level + 1, 4);
    }
    auto const table_offset = document.size();
    return document + table + std::string(6, '\0') + "\x04\x04" + big_endian(depth) +
           big_endian(0) + big_endian(table_offset);
}

TEST(BinaryReading, LimitsTheDepth) {
    EXPECT_NE(read(nested_arrays(513)).root, nullptr);
    EXPECT_EQ(read(nested_arrays(514)).root, nullptr);
    EXPECT_EQ(read(nested_arrays(100'000)).root, nullptr);
}

// The root refers to all levels, the innermost first, so that each one is near when it is read.
TEST(BinaryReading, LimitsTheDepthOfObjectsThatItKnowsAlready) {
    auto const chain = [](unsigned depth) {
        std::string root = fmt::format("af11{}", hexadecimal(big_endian(depth, 2)));
        std::vector<std::string> levels{"a0"};
        for (unsigned level = 1; level < depth; ++level) {
            levels.push_back(fmt::format("a1{}", hexadecimal(big_endian(level, 2))));
        }
        for (unsigned level = 1; level <= depth; ++level) {
            root += hexadecimal(big_endian(level, 2));
        }
        std::string document = "bplist00";
        std::string table = big_endian(document.size(), 4);
        document += from_hexadecimal(root);
        for (auto const & level : levels) {
            table += big_endian(document.size(), 4);
            document += from_hexadecimal(level);
        }
        auto const table_offset = document.size();
        return document + table + std::string(6, '\0') + "\x04\x02" + big_endian(depth + 1) +
               big_endian(0) + big_endian(table_offset);
    };
    EXPECT_NE(read(chain(512)).root, nullptr);
    EXPECT_EQ(read(chain(513)).root, nullptr);
}

// Objects that overlap could stand for far more than the document holds.
TEST(BinaryReading, LimitsWhatOverlappingObjectsStandFor) {
    constexpr std::size_t objects = 20'000;
    auto const marker = from_hexadecimal("5f12") + big_endian(100'000, 4);
    std::string document =
        std::string{"bplist00"} + from_hexadecimal("af12") + big_endian(objects, 4);
    for (std::size_t object = 1; object <= objects; ++object) {
        document += big_endian(object, 4);
    }
    std::string table = big_endian(8, 4);
    for (std::size_t object = 0; object < objects; ++object) {
        table += big_endian(document.size(), 4);
        document += marker;
    }
    document += std::string(100'000, 'x');
    auto const table_offset = document.size();
    document += table + std::string(6, '\0') + "\x04\x04" + big_endian(objects + 1) +
                big_endian(0) + big_endian(table_offset);
    EXPECT_EQ(read(document).root, nullptr);
}

TEST(BinaryReading, ReadsAPlaceOnceHoweverManyNumbersItHas) {
    std::string document =
        std::string{"bplist00"} + from_hexadecimal("a20102") + from_hexadecimal("5161");
    auto const table_offset = document.size();
    document += from_hexadecimal("080b0b") + std::string(6, '\0') + "\x01\x01" + big_endian(3) +
                big_endian(0) + big_endian(table_offset);
    auto const reading = read(document);
    ASSERT_EQ(notation(reading.root.get()), "[\"a\", \"a\"]");
    auto const * const elements = static_cast<CFArrayRef>(reading.root.get());
    EXPECT_EQ(CFArrayGetValueAtIndex(elements, 0), CFArrayGetValueAtIndex(elements, 1));
}

TEST(BinaryReading, MakesContainersMutableButEmptyOnes) {
    for (CFOptionFlags const options : {0U, 1U, 2U, 7U}) {
        auto const reading = read(document_of({"d10102", "516b", "5176"}), options);
        auto * const root =
            const_cast<CFMutableDictionaryRef>(static_cast<CFDictionaryRef>(reading.root.get()));
        ASSERT_NE(root, nullptr);
        CFDictionarySetValue(root, CFSTR("more"), CFSTR("w"));
        EXPECT_EQ(notation(root), "{\"k\": \"v\", \"more\": \"w\"}");
    }
    auto const empty = read(document_of({"d0"}), kCFPropertyListMutableContainers);
    CFDictionarySetValue(
        const_cast<CFMutableDictionaryRef>(static_cast<CFDictionaryRef>(empty.root.get())),
        CFSTR("k"), CFSTR("v"));
    EXPECT_EQ(notation(empty.root.get()), "{\"k\": \"v\"}");
}

#ifndef _WIN32
TEST(BinaryReadingDeathTest, KeepsEmptyDictionariesAsTheyAre) {
    auto const empty = read(document_of({"d0"}));
    EXPECT_DEATH(CFDictionarySetValue(const_cast<CFMutableDictionaryRef>(
                                          static_cast<CFDictionaryRef>(empty.root.get())),
                                      CFSTR("k"), CFSTR("v")),
                 "CFDictionarySetValue: the dictionary is immutable");
}
#endif

} // namespace
