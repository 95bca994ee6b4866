#include "tests/unit/simulator/CoreFoundation/property_list/property_lists.hpp"

#include <gtest/gtest.h>

using namespace std::string_view_literals;

namespace {

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

// A document of {Type: value}.
std::string small_document() {
    return document_of({"d10102", "5454797065", "5576616c7565"});
}

// Written by the plistlib of Python.
TEST(BinaryReading, ReadsWhatAnotherLibraryWrote) {
    auto const document = from_hexadecimal(
        "62706c6973743030d90102030405060708090a0b0c0d0e1f20212254627974655464617461556c61"
        "726765546c6f6e67546d616e79586e65676174697665547265616c5474727565547769646510c84f"
        "1014000102030405060708090a0b0c0d0e0f10111213140000000000000000ffffffffffffffff5f"
        "1014303132333435363738396162636465666768696aaf10100f101112131415161718191a1b1c1d"
        "1e1000100110021003100410051006100710081009100a100b100c100d100e100f13800000000000"
        "000023bfb999999999999a096700630061006600e90020d83dde00081b20252b30353e43484d4f66"
        "778ea1a3a5a7a9abadafb1b3b5b7b9bbbdbfc1cad3d4000000000000010100000000000000230000"
        "00000000000000000000000000e3");
    auto const reading = read(document);
    EXPECT_EQ(reading.format, kCFPropertyListBinaryFormat_v1_0);
    EXPECT_EQ(notation(reading.root.get()),
              "{\"byte\": 200, \"data\": <000102030405060708090a0b0c0d0e0f10111213>, "
              "\"large\": 18446744073709551615, \"long\": \"0123456789abcdefghij\", "
              "\"many\": [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15], "
              "\"negative\": -9223372036854775808, \"real\": real -0.1, \"true\": true, "
              "\"wide\": \"caf\xc3\xa9 \xf0\x9f\x98\x80\"}");
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
        {{"630061d8000062"}, "\"(unreadable)\""},
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
    auto const sound = small_document();
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
    auto const sound = small_document();
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
    auto const sound = document_of(
        {"d2 0103 0204", "5454797065", "5576616c7565", "544c697374", "a105", "a106", "4178"});
    ASSERT_EQ(read_notation(sound), "{\"List\": [[<78>]], \"Type\": \"value\"}");
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

// Objects that overlap could expand to far more than the document holds.
TEST(BinaryReading, LimitsWhatOverlappingObjectsExpandTo) {
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

CFMutableDictionaryRef root_dictionary(reading_result const & reading) {
    return const_cast<CFMutableDictionaryRef>(static_cast<CFDictionaryRef>(reading.root.get()));
}
CFMutableArrayRef root_array(reading_result const & reading) {
    return const_cast<CFMutableArrayRef>(static_cast<CFArrayRef>(reading.root.get()));
}
CFMutableSetRef root_set(reading_result const & reading) {
    return const_cast<CFMutableSetRef>(static_cast<CFSetRef>(reading.root.get()));
}

TEST(BinaryReading, MakesContainersMutableOnRequest) {
    for (CFOptionFlags const options : {1U, 2U, 7U}) {
        auto const entries = read(document_of({"d10102", "516b", "5176"}), options);
        CFDictionarySetValue(root_dictionary(entries), CFSTR("more"), CFSTR("w"));
        EXPECT_EQ(notation(entries.root.get()), "{\"k\": \"v\", \"more\": \"w\"}");
        auto const no_entries = read(document_of({"d0"}), options);
        CFDictionarySetValue(root_dictionary(no_entries), CFSTR("k"), CFSTR("v"));
        EXPECT_EQ(notation(no_entries.root.get()), "{\"k\": \"v\"}");
        auto const elements = read(document_of({"a101", "5161"}), options);
        CFArrayAppendValue(root_array(elements), CFSTR("b"));
        EXPECT_EQ(notation(elements.root.get()), "[\"a\", \"b\"]");
        auto const members = read(document_of({"c101", "5161"}), options);
        CFSetAddValue(root_set(members), CFSTR("b"));
        EXPECT_EQ(CFSetGetCount(root_set(members)), 2);
    }
}

TEST(BinaryReading, MakesContainersImmutable) {
    struct {
        std::vector<std::string_view> objects;
        std::string_view type;
    } const rows[] = {
        {{"d10102", "516b", "5176"}, "immutable dict"},
        {{"d0"}, "immutable dict"},
        {{"a101", "5161"}, "immutable"},
        {{"a0"}, "immutable"},
        {{"c101", "5161"}, "immutable set"},
        {{"c0"}, "immutable set"},
    };
    for (auto const & row : rows) {
        auto const described = description(read(document_of(row.objects)).root.get());
        EXPECT_NE(described.find(fmt::format("{{type = {}, ", row.type)), std::string::npos)
            << described;
    }
}

#ifndef _WIN32
TEST(BinaryReadingDeathTest, KeepsContainersAsTheyAre) {
    for (auto const & objects : {std::vector{"d0"sv}, {"d10102"sv, "516b"sv, "5176"sv}}) {
        auto const entries = read(document_of(objects));
        EXPECT_DEATH(CFDictionarySetValue(root_dictionary(entries), CFSTR("k"), CFSTR("v")),
                     "CFDictionarySetValue: the dictionary is immutable");
    }
    for (auto const & objects : {std::vector{"a0"sv}, {"a101"sv, "5161"sv}}) {
        auto const elements = read(document_of(objects));
        EXPECT_DEATH(CFArrayAppendValue(root_array(elements), CFSTR("v")),
                     "CFArrayAppendValue: the array is immutable");
    }
    for (auto const & objects : {std::vector{"c0"sv}, {"c101"sv, "5161"sv}}) {
        auto const members = read(document_of(objects));
        EXPECT_DEATH(CFSetAddValue(root_set(members), CFSTR("v")),
                     "CFSetAddValue: the set is immutable");
    }
}
#endif

} // namespace
