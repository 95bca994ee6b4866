#include "support/filesystem.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Paths, SurviveTheWayThereAndBack) {
    for (std::string const text :
         {"", "plain.ipsw", "with blanks and 'quotes'", "caf\xc3\xa9/\xe6\x97\xa5\xe6\x9c\xac",
          "\xf0\x9f\x93\xb1 phone.ipsw", "C:\\Users\\J\xc3\xbcrgen\\a/b", "trailing/",
          "//server/x"}) {
        EXPECT_EQ(QN::path_to_utf8(QN::path_from_utf8(text)), text);
    }
}

TEST(Paths, AreEmptyForNoText) {
    EXPECT_TRUE(QN::path_from_utf8("").empty());
    EXPECT_FALSE(QN::path_from_utf8(" ").empty());
}

TEST(Paths, HoldOneCharacterForEachLetter) {
    auto const path = QN::path_from_utf8("\xc3\xa9");
    if constexpr (sizeof(QN::filesystem::path::value_type) == 1) {
        EXPECT_EQ(path.native().size(), 2U);
    } else {
        ASSERT_EQ(path.native().size(), 1U);
        EXPECT_EQ(static_cast<unsigned>(path.native()[0]), 0xE9U);
    }
}

TEST(Paths, ThatAreNoValidTextShowWhereTheyAreNone) {
    EXPECT_EQ(QN::path_to_utf8(QN::path_from_utf8("a\xff\xfe"
                                                  "b")),
              "a\uFFFD\uFFFDb");
    EXPECT_EQ(QN::path_to_utf8(QN::path_from_utf8("a\xc3")), "a\uFFFD");
}

#ifdef _WIN32

TEST(Paths, WithHalfACharacterDoNotBecomeThoseWithout) {
    EXPECT_EQ(QN::path_to_utf8(L"a\xDC00.ipsw"), "a\uFFFD.ipsw");
    EXPECT_EQ(QN::path_to_utf8(L"a\xD800"), "a\uFFFD");
    auto const name = QN::path_to_utf8(L"a\xD800.ipsw");
    EXPECT_EQ(name.substr(0, 4), "a\uFFFD");
    EXPECT_EQ(name.substr(name.size() - 4), "ipsw");
}

#endif

} // namespace
