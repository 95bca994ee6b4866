#include "support/identifiers/udid.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

std::string text_of(QN::udid const & udid) {
    return udid;
}

TEST(IsUdid, AcceptsDigitsAndDashesInAnyNumberAndPlace) {
    for (auto const * text :
         {"", "-", "----", "0", "abcdefABCDEF0123456789", "-0-", "00008030-001A2B3C4D5E6F70"}) {
        EXPECT_TRUE(QN::is_udid(text)) << text;
    }
}

TEST(IsUdid, TakesHexadecimalDigitsAndDashesAndNoOtherByte) {
    for (int byte = 0; byte < 256; ++byte) {
        std::string const text{'0', static_cast<char>(byte), '-'};
        bool const allowed = (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'f') ||
                             (byte >= 'A' && byte <= 'F') || byte == '-';
        EXPECT_EQ(QN::is_udid(text), allowed) << byte;
    }
}

TEST(Udid, GetsItsDashWhereItHas24Characters) {
    EXPECT_EQ(text_of(QN::udid(std::string("00008030001A2B3C4D5E6F70"))),
              "00008030-001A2B3C4D5E6F70");
    EXPECT_EQ(text_of(QN::udid(std::string_view("00008030001A2B3C4D5E6F70"))),
              "00008030-001A2B3C4D5E6F70");
    // The length alone decides, also where there is a dash already.
    EXPECT_EQ(text_of(QN::udid(std::string_view("0000803-001A2B3C4D5E6F70"))),
              "0000803--001A2B3C4D5E6F70");
}

TEST(Udid, AnyOtherLengthPassesUnchanged) {
    for (std::string const text :
         {"", "-", "0123456789abcdef0123456789abcdef01234567", "00008030-001A2B3C4D5E6F70",
          "00008030001A2B3C4D5E6F7", "aBcD"}) {
        EXPECT_EQ(text_of(QN::udid(text)), text);
    }
}

void expect_invalid(std::string const & text, std::string const & quoted) {
    for (bool const as_view : {false, true}) {
        try {
            as_view ? QN::udid(std::string_view(text)) : QN::udid(text);
            FAIL() << text;
        } catch (std::invalid_argument const & exception) {
            EXPECT_EQ(exception.what(), "Invalid UDID '" + quoted + "'");
        }
    }
}

TEST(Udid, InvalidTextThrowsAndIsQuotedAsItWouldBeStored) {
    expect_invalid("xyz", "xyz");
    expect_invalid("0000 0000", "0000 0000");
    expect_invalid("x0008030001A2B3C4D5E6F70", "x0008030-001A2B3C4D5E6F70");
}

TEST(Udid, ComparesByteWise) {
    QN::udid const lower(std::string("ab"));
    QN::udid const upper(std::string("AB"));
    EXPECT_TRUE(lower != upper);
    EXPECT_FALSE(lower == upper);
    EXPECT_TRUE(lower == QN::udid(std::string_view("ab")));
    EXPECT_TRUE(upper < lower);
    EXPECT_FALSE(lower < upper);
    EXPECT_TRUE(QN::udid(std::string("ab")) < QN::udid(std::string("ab0")));
    EXPECT_FALSE(QN::udid(std::string("ab0")) < QN::udid(std::string("ab")));
    EXPECT_FALSE(lower < lower);
    EXPECT_TRUE(QN::udid(std::string("ab0")) < QN::udid(std::string("b")));
}

TEST(Udid, HashIsThatOfTheText) {
    std::hash<QN::udid> const hash;
    EXPECT_EQ(hash(QN::udid(std::string("ab"))), std::hash<std::string>{}("ab"));
    EXPECT_NE(hash(QN::udid(std::string("ab"))), hash(QN::udid(std::string("AB"))));
}

TEST(Udid, ConvertsToText) {
    QN::udid const udid(std::string("ab"));
    std::string_view const view = udid;
    EXPECT_EQ(view, "ab");
    static_assert(!std::is_convertible_v<std::string, QN::udid>);
}

} // namespace
