#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <vector>

namespace {

TEST(Set, KeepsTheFirstOfEqualMembers) {
    auto const first = string("member");
    auto const second = string("member");
    auto set = adopt(CFSetCreateMutable(nullptr, 0, &kCFTypeSetCallBacks));
    CFSetAddValue(set.get(), first.get());
    CFSetAddValue(set.get(), second.get());
    EXPECT_EQ(CFSetGetCount(set.get()), 1);
    EXPECT_EQ(CFGetRetainCount(first.get()), 2);
    EXPECT_EQ(CFGetRetainCount(second.get()), 1);
    set.reset();
    EXPECT_EQ(CFGetRetainCount(first.get()), 1);
}

cf_owner<CFMutableSetRef> set_of(std::initializer_list<void const *> members) {
    auto set = adopt(CFSetCreateMutable(nullptr, 0, &kCFTypeSetCallBacks));
    for (auto const * const member : members) {
        CFSetAddValue(set.get(), member);
    }
    return set;
}

TEST(Set, GivesItsMembersAndEqualsByThem) {
    auto const one = set_of({CFSTR("a"), CFSTR("b"), CFSTR("c"), CFSTR("a")});
    auto const other = set_of({CFSTR("c"), CFSTR("b"), CFSTR("a")});
    EXPECT_EQ(CFSetGetCount(one.get()), 3);
    EXPECT_TRUE(CFEqual(one.get(), other.get()));
    EXPECT_EQ(CFHash(one.get()), CFHash(other.get()));
    std::vector<void const *> members(3);
    CFSetGetValues(one.get(), members.data());
    std::vector<void const *> applied;
    CFSetApplyFunction(
        one.get(),
        [](void const * member, void * context) {
            static_cast<std::vector<void const *> *>(context)->push_back(member);
        },
        &applied);
    EXPECT_EQ(members, applied);
    EXPECT_TRUE(std::ranges::is_permutation(
        members, std::initializer_list<void const *>{CFSTR("a"), CFSTR("b"), CFSTR("c")}));
}

TEST(Set, DescribesItself) {
    EXPECT_EQ(description(set_of({CFSTR("x")}).get()),
              "<CFBasicHash PTR [PTR]>{type = mutable set, count = 1,\nentries =>\n"
              "\t0 : <CFString PTR [PTR]>{contents = \"x\"}\n}\n");
}

} // namespace
