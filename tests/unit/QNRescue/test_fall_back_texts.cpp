// What the tool makes of the texts of other restore libraries. The look-ups of this program take
// the place of the tool's.
#include "QNRescue/MobileDeviceDebug.hpp"
#include "QNRescue/qnrescue.h"
#include "QNRescue/restore_vocabulary.hpp"
#include "tests/unit/helpers/objects.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace qnrescue;
using tests::output_capture;

// The text of every code; null for none.
cf_owner<CFStringRef> said;

} // namespace

CFStringRef AMRLocalizedCopyStringForAMROperation(int /*code*/) {
    return retain(said.get()).release();
}

CFStringRef AMRLocalizedCopyStringForAMRError(int /*code*/) {
    return retain(said.get()).release();
}

namespace {

std::size_t lines_of(text_dump const & dump) {
    output_capture capture;
    print_dump(*capture.state(), dump);
    return capture.debug_lines().size();
}

struct row {
    std::string text;
    char const * error;
    char const * operation;
    bool error_is_dumped;
    bool operation_is_dumped;
};

TEST(FallBackTexts, StandForNoText) {
    row const rows[] = {
        {"Unknown", "Unknown error 5", "Unknown operation 5", true, true},
        {"Unrecognized error", "Unknown error 5", "Unrecognized error", false, true},
        {"Unrecognized server error", "Unknown error 5", "Unrecognized server error", false, true},
        {"Unrecognized operation", "Unrecognized operation", "Unknown operation 5", true, false},
        {"Unrecognized error 5", "Unrecognized error 5", "Unrecognized error 5", false, true},
        {"Unrecognized", "Unrecognized", "Unrecognized", true, true},
    };
    constexpr std::size_t header_and_end = 2;
    for (auto const & row : rows) {
        SCOPED_TRACE(row.text);
        said = tests::make_string(row.text);
        EXPECT_EQ(fmt::format("{}", static_cast<AMRError>(5)), row.error);
        EXPECT_EQ(fmt::format("{}", operation_type{5}), row.operation);
        EXPECT_EQ(lines_of(error_dump), header_and_end + (row.error_is_dumped ? 10000 : 0));
        EXPECT_EQ(lines_of(operation_dump), header_and_end + (row.operation_is_dumped ? 1000 : 0));
        EXPECT_EQ(CFGetRetainCount(said.get()), 1);
    }
}

TEST(FallBackTexts, AreNotNeededWhereThereIsNoTextAtAll) {
    said = nullptr;
    EXPECT_EQ(fmt::format("{}", static_cast<AMRError>(5)), "Unknown error 5");
    EXPECT_EQ(fmt::format("{}", operation_type{5}), "Unknown operation 5");
}

} // namespace
