#include "support/identifiers/serial_number.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

TEST(SerialNumber, KeepsItsTextAsItIs) {
    for (std::string const text : {"", "C39abc", " with blanks ", "\xc3\xa9\xff", "0'\"<&"}) {
        QN::serial_number const serial(text);
        EXPECT_EQ(std::string(serial), text);
        EXPECT_EQ(std::string_view(serial), text);
    }
    std::string_view const with_nul("a\0b", 3);
    EXPECT_EQ(std::string(QN::serial_number(with_nul)), with_nul);
}

TEST(SerialNumber, NullWithALengthIsALogicError) {
    char const * volatile nowhere = nullptr;
    try {
        QN::serial_number const serial{std::string_view(nowhere, 3)};
        FAIL();
    } catch (std::logic_error const & exception) {
        EXPECT_STREQ(exception.what(), "basic_string: construction from null is not valid");
    }
    EXPECT_EQ(std::string(QN::serial_number(std::string_view())), "");
}

TEST(SerialNumber, ComparesByteWise) {
    QN::serial_number const lower("c39");
    QN::serial_number const upper("C39");
    EXPECT_TRUE(lower == QN::serial_number("c39"));
    EXPECT_FALSE(lower != QN::serial_number("c39"));
    EXPECT_TRUE(lower != upper);
    EXPECT_TRUE(upper < lower);
    EXPECT_FALSE(lower < upper);
    EXPECT_TRUE(upper < QN::serial_number("C390"));
    EXPECT_FALSE(QN::serial_number("C390") < upper);
}

TEST(SerialNumber, ComparesWithTextOnEitherSide) {
    QN::serial_number const serial("c39");
    EXPECT_TRUE(serial == std::string_view("c39"));
    EXPECT_TRUE(std::string_view("c39") == serial);
    EXPECT_FALSE(serial == std::string_view("C39"));
    EXPECT_FALSE(serial == std::string_view("c3"));
    EXPECT_FALSE(serial == std::string_view("c390"));
    EXPECT_TRUE(serial != std::string_view("C39"));
    EXPECT_TRUE(std::string_view("C39") != serial);
    EXPECT_FALSE(std::string_view("c39") != serial);
}

TEST(SerialNumber, HashIsThatOfTheText) {
    EXPECT_EQ(std::hash<QN::serial_number>{}(QN::serial_number("c39")),
              std::hash<std::string>{}("c39"));
}

} // namespace
