// Deeply nested values, on a thread with a small stack.
#include "QNRescue/qnrescue.h"
#include "QNRescue/sanitize_for_xml.hpp"
#include "tests/unit/helpers/objects.hpp"
#include "tests/unit/helpers/output_capture.hpp"
#include "tests/unit/helpers/small_stack.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace {

using namespace qnrescue;
using tests::make_array;
using tests::make_dictionary;
using tests::make_set;
using tests::run_on_small_stack;

// Were each level of the tool's own work to take a frame, even the smallest would overflow the
// stack. That the value can be released at all is the simulator's doing: the real library releases
// recursively, and ends a stack of 1 MiB between 2,000 and 3,000 levels.
constexpr int deepest = 100'000;

// Arrays and dictionaries in turn around the value.
cf_owner<CFTypeRef> nest(cf_owner<CFTypeRef> value, int levels) {
    for (int level = 0; level < levels; ++level) {
        if (level % 2 == 0) {
            value = make_array({value.get()});
        } else {
            value = make_dictionary({{CFSTR("nested"), value.get()}});
        }
    }
    return value;
}

bool is_valid_xml(CFTypeRef value) {
    return CFPropertyListValidateForSerialization(value, kCFPropertyListXMLFormat_v1_0);
}

TEST(DeepNesting, IsValidAtAnyDepth) {
    auto const valid = nest(tests::make_string("innermost"), deepest);
    auto const invalid = nest(retain(kCFNull), deepest);
    run_on_small_stack([&] {
        EXPECT_TRUE(is_valid_xml(valid.get()));
        EXPECT_FALSE(is_valid_xml(invalid.get()));
    });
}

TEST(DeepNesting, OfSetsIsValidAtAnyDepth) {
    cf_owner<CFTypeRef> value = tests::make_string("innermost");
    for (int level = 0; level < deepest; ++level) {
        value = make_set({value.get()});
    }
    run_on_small_stack([&] {
        EXPECT_TRUE(
            CFPropertyListValidateForSerialization(value.get(), kCFPropertyListBinaryFormat_v1_0));
        EXPECT_FALSE(is_valid_xml(value.get()));
    });
}

TEST(DeepNesting, IsConvertedAtAnyDepth) {
    auto const innermost = tests::make_string("innermost");
    auto const value = nest(retain(static_cast<CFTypeRef>(innermost.get())), deepest);
    auto const before = CFGetRetainCount(innermost.get());
    run_on_small_stack([&] {
        auto const converted = sanitize_for_xml(value.get(), on_error::raise);
        EXPECT_NE(converted.get(), value.get());
        EXPECT_TRUE(is_valid_xml(converted.get()));
        EXPECT_EQ(CFGetRetainCount(innermost.get()), before + 1);
    });
    EXPECT_EQ(CFGetRetainCount(innermost.get()), before);
}

TEST(DeepNesting, IsConvertedByEveryMode) {
    auto const value = nest(retain(kCFNull), deepest);
    run_on_small_stack([&] {
        EXPECT_TRUE(is_valid_xml(sanitize_for_xml(value.get(), on_error::skip).get()));
        EXPECT_THROW(sanitize_for_xml(value.get(), on_error::raise), std::runtime_error);
        EXPECT_FALSE(sanitize_for_xml(value.get(), static_cast<on_error>(2)));
    });
}

// Deeper than any document that can be read; its indentation makes the text grow with the square.
TEST(DeepNesting, IsPrinted) {
    constexpr int levels = 1'000;
    auto const value = nest(tests::make_string("innermost"), levels);
    tests::output_capture output;
    run_on_small_stack([&] { output.state()->print_value(CFSTR("Deep"), value.get()); });
    EXPECT_NE(output.out().find("<string>innermost</string>"), std::string::npos);
}

} // namespace
