#include "platform/cf_strings.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace qnrescue;

TEST(MakeString, IsTheUtf8Text) {
    for (std::string const text :
         {"", "a", "plain", "\xc3\xa9", "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e",
          "\xf0\x9f\x93\xb1\xf0\x9f\x93\xb1", "mixed \xc3\xa9\xe6\x97\xa5\xf0\x9f\x93\xb1"}) {
        EXPECT_EQ(MakeString(make_cfstring(text).get()), text);
    }
    std::string const long_text(100000, 'x');
    EXPECT_EQ(MakeString(make_cfstring(long_text).get()), long_text);
}

TEST(MakeString, HoldsNoMoreMemoryThanItsText) {
    for (auto const * const end : {"", "\xc3\xa9"}) {
        auto const text = std::string(100000, 'x') + end;
        auto const made = MakeString(make_cfstring(text).get());
        EXPECT_EQ(made, text);
        EXPECT_LT(made.capacity(), text.size() + 100);
    }
}

TEST(MakeString, EndsAtTheFirstNul) {
    EXPECT_EQ(MakeString(make_cfstring(std::string_view("ab\0cd", 5)).get()), "ab");
}

TEST(MakeString, IsEmptyForWhatCannotBeConverted) {
    EXPECT_EQ(MakeString(nullptr), "");
    UniChar const lone[] = {0xD800};
    auto const surrogate =
        adopt(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(lone),
                                      sizeof lone, kCFStringEncodingUTF16, false));
    ASSERT_TRUE(surrogate);
    EXPECT_EQ(MakeString(surrogate.get()), "");
    EXPECT_FALSE(to_utf8(surrogate.get()));
    EXPECT_FALSE(to_utf8(nullptr));
    EXPECT_EQ(to_utf8(CFSTR("")), "");
}

TEST(MakeCfString, TakesOnlyUtf8) {
    auto const text = make_cfstring("\xc3\xa9");
    ASSERT_TRUE(text);
    EXPECT_EQ(CFStringGetLength(text.get()), 1);
    EXPECT_FALSE(make_cfstring("\xc3"));
}

TEST(MakeDescription, OfNull) {
    EXPECT_EQ(MakeDescription(nullptr), "(null)");
}

TEST(MakeDescription, IsCoreFoundations) {
    auto const error = adopt(CFErrorCreate(kCFAllocatorDefault, CFSTR("some domain"), 4, nullptr));
    auto const description = adopt(CFCopyDescription(error.get()));
    EXPECT_EQ(MakeDescription(error.get()), MakeString(description.get()));
    EXPECT_NE(MakeDescription(error.get()).find("Code=4"), std::string::npos);
    EXPECT_NE(MakeDescription(CFSTR("a text")).find("a text"), std::string::npos);
}

} // namespace
