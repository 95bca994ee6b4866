#include "QNRescue/qnrescue.h"

#include "platform/cf_ownership.hpp"
#include "platform/cf_strings.hpp"
#include "tests/unit/QNRescue/expected_restore_texts.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <span>
#include <string>

namespace {

using tests::expected_text;

std::string operation_text(int code) {
    auto const text = qnrescue::adopt(AMRLocalizedCopyStringForAMROperation(code));
    return qnrescue::to_utf8(text.get()).value_or("null");
}

std::string error_text(int code) {
    auto const text = qnrescue::adopt(AMRLocalizedCopyStringForAMRError(code));
    return qnrescue::to_utf8(text.get()).value_or("null");
}

void expect_table(std::string (*look_up)(int), std::span<expected_text const> expected) {
    std::map<int, std::string> table;
    for (auto const & [code, text] : expected) {
        table[code] = text;
    }
    for (int code = -10; code <= 10000; ++code) {
        auto const row = table.find(code);
        EXPECT_EQ(look_up(code), row == table.end() ? "Unknown" : row->second) << code;
    }
}

TEST(RestoreTexts, OfOperations) {
    static_assert(std::size(tests::expected_operation_texts) == 86);
    expect_table(operation_text, tests::expected_operation_texts);
}

TEST(RestoreTexts, OfErrors) {
    static_assert(std::size(tests::expected_error_texts) == 155);
    expect_table(error_text, tests::expected_error_texts);
}

TEST(RestoreTexts, OfCodesAtTheEndsOfTheRange) {
    for (int const code : {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_EQ(operation_text(code), "Unknown");
        EXPECT_EQ(error_text(code), "Unknown");
    }
}

TEST(RestoreTexts, ThatAreEasilyMistaken) {
    for (int const code : {0, 1, 65, 210, 214, -1}) {
        EXPECT_EQ(operation_text(code), "Unknown") << code;
    }
    EXPECT_EQ(operation_text(213), "Regenerating dyld shared cache");
    EXPECT_EQ(operation_text(208), "Waiting, position %d");
    for (int const code : {0, -1, 65, 1022, 1099, 1106, 2016, 2100, 3001, 3019, 3500}) {
        EXPECT_EQ(error_text(code), "Unknown") << code;
    }
    EXPECT_EQ(error_text(3600), "HTTP internal server error");
    EXPECT_EQ(error_text(2102), "Not enough space to install recovery OS ");
}

} // namespace
