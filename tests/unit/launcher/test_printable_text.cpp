#include "launcher/printable_text.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using launcher::printable;

TEST(printable_text, keeps_what_can_be_printed) {
    for (auto const & text : {std::string(), std::string("one\n\ttwo"), std::string(" ~"),
                              std::string("C:\\Größe\\日本\\😀"), std::string("\u00A0\uFFFD\uFFFC"),
                              std::string("\U0010FFFF")}) {
        EXPECT_EQ(text, printable(text));
    }
}

TEST(printable_text, replaces_what_cannot) {
    for (auto const & text :
         {std::string(1, '\0'), std::string("\x01"), std::string("\r"), std::string("\x1B"),
          std::string("\x1F"), std::string("\x7F"), std::string("\u0080"), std::string("\u009F"),
          std::string("\uFFFE"), std::string("\uFFFF"), std::string("\x80"), std::string("\xFF"),
          std::string("\xC0")}) {
        EXPECT_EQ("a\uFFFDb", printable("a" + text + "b"));
        EXPECT_EQ("\uFFFD", printable(text));
    }
}

TEST(printable_text, replaces_a_character_that_breaks_off) {
    EXPECT_EQ("a\uFFFD", printable("a\xF0\x9F\x98"));
}

TEST(printable_text, holds_no_surrogate) {
    auto const text = printable("a\xED\xA0\x80z");
    EXPECT_EQ('a', text.front());
    EXPECT_EQ('z', text.back());
    EXPECT_EQ(text.npos, text.find('\xED'));
}

} // namespace
