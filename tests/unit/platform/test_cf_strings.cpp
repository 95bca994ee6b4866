#include "platform/cf_strings.hpp"

#include "tests/unit/helpers/objects.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace qnrescue;

TEST(MakeString, IsTheUtf8Text) {
    for (std::string const text :
         {"", "a", "plain", "\xc3\xa9", "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e",
          "\xf0\x9f\x93\xb1\xf0\x9f\x93\xb1", "mixed \xc3\xa9\xe6\x97\xa5\xf0\x9f\x93\xb1"}) {
        EXPECT_EQ(MakeString(tests::make_string(text).get()), text);
    }
    std::string const long_text(100000, 'x');
    EXPECT_EQ(MakeString(tests::make_string(long_text).get()), long_text);
}

TEST(MakeString, HoldsNoMoreMemoryThanItsText) {
    for (auto const * const end : {"", "\xc3\xa9"}) {
        auto const text = std::string(100000, 'x') + end;
        auto const made = MakeString(tests::make_string(text).get());
        EXPECT_EQ(made, text);
        EXPECT_LT(made.capacity(), text.size() + 100);
    }
}

TEST(MakeString, EndsAtTheFirstNul) {
    EXPECT_EQ(MakeString(tests::make_string(std::string_view("ab\0cd", 5)).get()), "ab");
}

TEST(MakeString, IsEmptyForWhatCannotBeConverted) {
    EXPECT_EQ(MakeString(nullptr), "");
    auto const surrogate = tests::make_lone_surrogate();
    ASSERT_TRUE(surrogate);
    EXPECT_EQ(MakeString(surrogate.get()), "");
    EXPECT_FALSE(to_utf8(surrogate.get()));
    EXPECT_FALSE(to_utf8(nullptr));
    EXPECT_EQ(to_utf8(CFSTR("")), "");
}

TEST(MakeDescription, OfNull) {
    EXPECT_EQ(MakeDescription(nullptr), "(null)");
}

TEST(MakeDescription, IsCoreFoundations) {
    auto const error = tests::make_error(CFSTR("some domain"), 4);
    auto const description = adopt(CFCopyDescription(error.get()));
    EXPECT_EQ(MakeDescription(error.get()), MakeString(description.get()));
    EXPECT_NE(MakeDescription(error.get()).find("Code=4"), std::string::npos);
    EXPECT_NE(MakeDescription(CFSTR("a text")).find("a text"), std::string::npos);
}

} // namespace
