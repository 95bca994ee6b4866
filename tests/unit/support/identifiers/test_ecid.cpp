#include "support/identifiers/ecid.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace {

std::string text_of(QN::ecid const & ecid) {
    return ecid;
}

TEST(IsEcid, AcceptsSixteenHexadecimalDigitsOfEitherCase) {
    EXPECT_TRUE(QN::is_ecid("0123456789abcdef"));
    EXPECT_TRUE(QN::is_ecid("0123456789ABCDEF"));
    EXPECT_TRUE(QN::is_ecid("0123456789aBcDeF"));
    EXPECT_TRUE(QN::is_ecid("0000000000000000"));
}

TEST(IsEcid, RejectsOtherLengthsAndCharacters) {
    for (auto const * text : {"", "0", "0123456789abcde", "0123456789abcdef0", "0123456789abcdeg",
                              "0x23456789abcdef", "0123456789abcde ", " 123456789abcdef",
                              "-123456789abcdef", "01234567-9abcdef", "00000000\u00e9000000"}) {
        EXPECT_FALSE(QN::is_ecid(text)) << text;
    }
    EXPECT_FALSE(QN::is_ecid(std::string_view("0123456789abcde\0", 16)));
}

TEST(IsEcid, TakesEachHexadecimalDigitAndNoOtherByte) {
    for (int byte = 0; byte < 256; ++byte) {
        std::string text(16, '0');
        text[7] = static_cast<char>(byte);
        bool const digit = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'f') ||
                           (byte >= 'A' && byte <= 'F');
        EXPECT_EQ(QN::is_ecid(text), digit) << byte;
    }
}

TEST(Ecid, TextOfANumberHasSixteenDigits) {
    EXPECT_EQ(text_of(QN::ecid(0)), "0000000000000000");
    EXPECT_EQ(text_of(QN::ecid(0x1A2B3C4D5E)), "0000001A2B3C4D5E");
    EXPECT_EQ(text_of(QN::ecid(0xFEDCBA9876543210)), "FEDCBA9876543210");
    EXPECT_EQ(text_of(QN::ecid(std::numeric_limits<std::uint64_t>::max())), "FFFFFFFFFFFFFFFF");
}

TEST(Ecid, TextIsRegeneratedFromTheValue) {
    QN::ecid const lower("00000000000000ff");
    QN::ecid const upper("00000000000000FF");
    QN::ecid const number(255);
    EXPECT_EQ(lower, number);
    EXPECT_EQ(upper, number);
    EXPECT_EQ(text_of(lower), text_of(number));
    EXPECT_EQ(text_of(upper), text_of(number));
}

TEST(Ecid, FoldsTheMostSignificantByteFirst) {
    EXPECT_EQ(QN::ecid("0102030405060708"), QN::ecid(0x0102030405060708));
    EXPECT_EQ(QN::ecid("ffffffffffffffff"), QN::ecid(std::numeric_limits<std::uint64_t>::max()));
}

TEST(Ecid, InvalidTextThrowsAndIsQuoted) {
    for (std::string const text : {"", "zz", "0123456789abcdeg", "0123456789abcdef0"}) {
        try {
            QN::ecid const ecid(text);
            FAIL() << text;
        } catch (std::invalid_argument const & exception) {
            EXPECT_EQ(exception.what(), "Invalid ECID '" + text + "'");
        }
    }
}

TEST(Ecid, IsComparedAsAnUnsignedNumber) {
    QN::ecid const one(1);
    QN::ecid const high(std::uint64_t{1} << 63);
    EXPECT_TRUE(one < high);
    EXPECT_FALSE(high < one);
    EXPECT_FALSE(one < one);
    EXPECT_TRUE(one != high);
    EXPECT_FALSE(one == high);
}

TEST(Ecid, TextIsNoPartOfTheComparison) {
    QN::ecid moved_from(5);
    QN::ecid const taken(std::move(moved_from));
    EXPECT_EQ(taken, QN::ecid(5));
    // NOLINTNEXTLINE(bugprone-use-after-move): what is left is defined
    EXPECT_EQ(moved_from, QN::ecid(0));
    EXPECT_NE(text_of(moved_from), text_of(QN::ecid(0)));
}

TEST(Ecid, MovingLeavesZeroAndNoText) {
    QN::ecid source(0xABC);
    QN::ecid const constructed(std::move(source));
    EXPECT_EQ(text_of(constructed), "0000000000000ABC");
    // NOLINTNEXTLINE(bugprone-use-after-move)
    EXPECT_EQ(text_of(source), "");

    QN::ecid other(0xDEF);
    QN::ecid assigned(1);
    assigned = std::move(other);
    EXPECT_EQ(text_of(assigned), "0000000000000DEF");
    // NOLINTNEXTLINE(bugprone-use-after-move)
    EXPECT_EQ(text_of(other), "");
    EXPECT_EQ(other, QN::ecid(0));
}

TEST(Ecid, CopyingLeavesTheSource) {
    QN::ecid const source(0xABC);
    QN::ecid copy(1);
    copy = source;
    EXPECT_EQ(copy, source);
    EXPECT_EQ(text_of(copy), text_of(source));
    EXPECT_EQ(text_of(source), "0000000000000ABC");
}

TEST(Ecid, ConvertsToText) {
    QN::ecid const ecid(0xABC);
    std::string_view const view = ecid;
    std::string const text = ecid;
    EXPECT_EQ(view, "0000000000000ABC");
    EXPECT_EQ(text, "0000000000000ABC");
}

TEST(Ecid, HashIsTheValue) {
    std::hash<QN::ecid> const hash;
    EXPECT_EQ(hash(QN::ecid(0)), 0U);
    EXPECT_EQ(hash(QN::ecid(4660)), 4660U);
    EXPECT_EQ(hash(QN::ecid(0xFEDCBA9876543210)), static_cast<std::size_t>(0xFEDCBA9876543210));
    EXPECT_EQ(hash(QN::ecid("00000000000000ff")), hash(QN::ecid(255)));
}

TEST(Ecid, IsAKey) {
    std::unordered_map<QN::ecid, int> table;
    table[QN::ecid(1)] = 1;
    table[QN::ecid("0000000000000001")] = 2;
    table[QN::ecid(2)] = 3;
    EXPECT_EQ(table.size(), 2U);
    EXPECT_EQ(table.at(QN::ecid(1)), 2);
}

TEST(Ecid, CannotBeMixedUpWithTextOrNumbers) {
    static_assert(!std::is_convertible_v<std::string, QN::ecid>);
    static_assert(!std::is_convertible_v<std::string_view, QN::ecid>);
    static_assert(!std::is_convertible_v<std::uint64_t, QN::ecid>);
    static_assert(std::is_copy_constructible_v<QN::ecid>);
    static_assert(std::is_nothrow_move_constructible_v<QN::ecid>);
}

TEST(EcidFormatter, PrintsTheText) {
    EXPECT_EQ(fmt::format("{}", QN::ecid(0x1A2B3C4D5E)), "0000001A2B3C4D5E");
    EXPECT_EQ(fmt::format("'{}'", QN::ecid(1)), "'0000000000000001'");
}

TEST(EcidFormatter, PrintsQuestionMarksForZero) {
    EXPECT_EQ(fmt::format("{}", QN::ecid(0)), "????????????????");
    EXPECT_EQ(fmt::format("{}", QN::ecid("0000000000000000")), "????????????????");
    EXPECT_EQ(text_of(QN::ecid(0)), "0000000000000000");

    QN::ecid moved_from(7);
    QN::ecid const taken(std::move(moved_from));
    // NOLINTNEXTLINE(bugprone-use-after-move)
    EXPECT_EQ(fmt::format("{}", moved_from), "????????????????");
}

TEST(EcidFormatter, TakesTheSpecificationOfAString) {
    EXPECT_EQ(fmt::format("{:>20}", QN::ecid(0)), "    ????????????????");
    EXPECT_EQ(fmt::format("{:>20}", QN::ecid(1)), "    0000000000000001");
    EXPECT_EQ(fmt::format("{:*^20}", QN::ecid(1)), "**0000000000000001**");
    EXPECT_EQ(fmt::format("{:<18}|", QN::ecid(0)), "????????????????  |");
    EXPECT_EQ(fmt::format("{:.4}", QN::ecid(0x1234000000000000)), "1234");
    EXPECT_EQ(fmt::format("{:.4}", QN::ecid(0)), "????");
}

} // namespace
