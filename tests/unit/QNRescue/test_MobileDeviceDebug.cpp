#include "QNRescue/MobileDeviceDebug.hpp"

#include "QNRescue/qnrescue.h"
#include "platform/cf_strings.hpp"
#include "tests/unit/helpers/assertion_text.hpp"
#include "tests/unit/helpers/objects.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include <fmt/format.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

using namespace qnrescue;
using tests::output_capture;
using strings = std::vector<std::string>;

// The texts themselves have tests beside their tables.
strings expected_dump(std::string const & header, CFStringRef (*copy)(int), int count) {
    strings lines{header};
    for (int code = 0; code < count; ++code) {
        lines.push_back(fmt::format("case {}: return copyString(CFSTR(\"{}\"));", code,
                                    MakeString(adopt(copy(code)).get())));
    }
    lines.emplace_back();
    return lines;
}

TEST(DebugDump, OfErrors) {
    output_capture capture;
    print_imp_AMRLocalizedCopyStringForAMRError(capture.state());
    auto const lines = capture.debug_lines();
    EXPECT_EQ(lines, expected_dump("==== AMRLocalizedCopyStringForAMRError ====",
                                   AMRLocalizedCopyStringForAMRError, 10000));
    EXPECT_EQ(lines.at(2), "case 1: return copyString(CFSTR(\"Bad argument\"));");
    EXPECT_EQ(capture.out(), "");
}

TEST(DebugDump, OfOperations) {
    output_capture capture;
    print_imp_AMRLocalizedCopyStringForAMROperation(capture.state());
    auto const lines = capture.debug_lines();
    EXPECT_EQ(lines, expected_dump("==== AMRLocalizedCopyStringForAMROperation ====",
                                   AMRLocalizedCopyStringForAMROperation, 1000));
    EXPECT_EQ(lines.at(3), "case 2: return copyString(CFSTR(\"DFU download\"));");
    EXPECT_EQ(capture.out(), "");
}

TEST(DebugDump, ShowsNothingWithoutDebugOutput) {
    output_capture capture(false);
    print_imp_AMRLocalizedCopyStringForAMRError(capture.state());
    print_imp_AMRLocalizedCopyStringForAMROperation(capture.state());
    EXPECT_EQ(capture.debug_lines(), strings{});
    EXPECT_EQ(capture.out(), "");
}

// What some other library might say.
CFStringRef copy_strange_text(int code) {
    switch (code) {
    case 0:
        return static_cast<CFStringRef>(CFRetain(CFSTR("Unrecognized error")));
    case 1:
        return static_cast<CFStringRef>(CFRetain(CFSTR("Unrecognized error 1 and more")));
    case 2:
        return nullptr;
    case 3:
        return static_cast<CFStringRef>(CFRetain(CFSTR("Not an Unrecognized error")));
    case 4:
        return static_cast<CFStringRef>(CFRetain(CFSTR("with \"quotes\" and \\")));
    case 5:
        return static_cast<CFStringRef>(CFRetain(CFSTR("second fall-back")));
    case 6:
        return static_cast<CFStringRef>(CFRetain(CFSTR("unrecognized error")));
    default:
        return static_cast<CFStringRef>(CFRetain(CFSTR("")));
    }
}

TEST(DebugDump, LeavesOutTextsThatBeginWithAFallBack) {
    constexpr std::array fall_backs{"Unrecognized error", "second fall-back"};
    output_capture capture;
    print_dump(*capture.state(), {"header", copy_strange_text, 8, fall_backs});
    EXPECT_EQ(capture.debug_lines(),
              (strings{"header", "case 3: return copyString(CFSTR(\"Not an Unrecognized error\"));",
                       "case 4: return copyString(CFSTR(\"with \"quotes\" and \\\"));",
                       "case 6: return copyString(CFSTR(\"unrecognized error\"));",
                       "case 7: return copyString(CFSTR(\"\"));", ""}));
}

CFStringRef counted_text = nullptr;

TEST(DebugDump, ReleasesEachText) {
    auto const text = tests::make_string("a text that is no constant");
    counted_text = text.get();
    auto const copy = [](int) { return static_cast<CFStringRef>(CFRetain(counted_text)); };
    constexpr std::array skipping{"a text"};
    constexpr std::array printing{"no such text"};
    output_capture capture;
    print_dump(*capture.state(), {"header", copy, 100, skipping});
    EXPECT_EQ(CFGetRetainCount(text.get()), 1);
    print_dump(*capture.state(), {"header", copy, 100, printing});
    EXPECT_EQ(CFGetRetainCount(text.get()), 1);
    EXPECT_EQ(capture.debug_lines().size(), 104U);
}

TEST(DebugDump, NeedsAnOutput) {
    auto const line_for_errors = tests::expect_assertion(
        "QNRescue/MobileDeviceDebug:LINE:  "
        "print_imp_AMRLocalizedCopyStringForAMRError Assertion output failed.",
        [] { print_imp_AMRLocalizedCopyStringForAMRError(nullptr); });
    auto const line_for_operations = tests::expect_assertion(
        "QNRescue/MobileDeviceDebug:LINE:  "
        "print_imp_AMRLocalizedCopyStringForAMROperation Assertion output failed.",
        [] { print_imp_AMRLocalizedCopyStringForAMROperation(nullptr); });
    EXPECT_NE(line_for_errors, line_for_operations) << "each names the line of its function";
}

} // namespace
