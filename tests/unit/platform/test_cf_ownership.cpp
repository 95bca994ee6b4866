#include "platform/cf_ownership.hpp"

#include "platform/cf_strings.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace {

using namespace qnrescue;

TEST(CfOwner, AdoptsAndReleasesOneReference) {
    auto const string = make_cfstring("a text that is no constant");
    CFRetain(string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
    {
        auto owner = adopt(string.get());
        EXPECT_EQ(CFGetRetainCount(string.get()), 2);
        auto const other = std::move(owner);
        EXPECT_EQ(CFGetRetainCount(string.get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(CfOwner, RetainsABorrowedObject) {
    auto const string = make_cfstring("a text that is no constant");
    {
        auto const owner = retain(string.get());
        EXPECT_EQ(CFGetRetainCount(string.get()), 2);
        cf_share<CFStringRef> const shared = retain(string.get());
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it adds no reference
        auto const copy = shared;
        EXPECT_EQ(CFGetRetainCount(string.get()), 3);
    }
    EXPECT_EQ(CFGetRetainCount(string.get()), 1);
}

TEST(CfOwner, OwnsNothingForNull) {
    EXPECT_FALSE(adopt(CFStringRef{nullptr}));
    EXPECT_FALSE(retain(CFStringRef{nullptr}));
}

TEST(IsA, ComparesTypes) {
    EXPECT_TRUE(is_a(CFSTR("a"), CFStringGetTypeID()));
    EXPECT_FALSE(is_a(CFSTR("a"), CFNumberGetTypeID()));
    EXPECT_FALSE(is_a(kCFBooleanTrue, CFNumberGetTypeID()));
    EXPECT_FALSE(is_a(nullptr, CFStringGetTypeID()));
}

} // namespace
