#include "QNRescue/restore_report.hpp"

#include "tests/unit/helpers/objects.hpp"

#include <fmt/format.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace qnrescue;
using tests::equal;
using tests::make_dictionary;
using tests::make_number;

cf_owner<CFDictionaryRef> report(std::string const & entries) {
    return tests::plist_dictionary("<dict>" + entries + "</dict>");
}

// --- Reading

TEST(RestoreReport, HasStatusOperationAndProgress) {
    auto const read = read_report(report("<key>Status</key><string>caf\xc3\xa9</string>"
                                         "<key>Operation</key><integer>-13</integer>"
                                         "<key>Progress</key><integer>42</integer>"
                                         "<key>Extra</key><true/>")
                                      .get());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->status, "caf\xc3\xa9");
    EXPECT_EQ(read->operation, operation_type{-13});
    EXPECT_EQ(read->progress, 42);
}

TEST(RestoreReport, MayHaveAnEmptyStatusAndWholeNumbersAsReals) {
    auto const read = read_report(report("<key>Status</key><string/>"
                                         "<key>Operation</key><real>9</real>"
                                         "<key>Progress</key><real>100</real>")
                                      .get());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->status, "");
    EXPECT_EQ(read->operation, operation_type{9});
    EXPECT_EQ(read->progress, 100);
}

TEST(RestoreReport, ProgressHas64Bits) {
    for (auto const progress :
         {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        auto const operation = make_number(0);
        auto const number = make_number(progress);
        auto const read = read_report(make_dictionary({{CFSTR("Status"), CFSTR("s")},
                                                       {CFSTR("Operation"), operation.get()},
                                                       {CFSTR("Progress"), number.get()}})
                                          .get());
        ASSERT_TRUE(read);
        EXPECT_EQ(read->progress, progress);
    }
}

// Returns a report that is valid but for the value of this key; without one, the key is missing.
cf_owner<CFDictionaryRef> report_with(std::string_view key, std::string_view value) {
    constexpr std::pair<std::string_view, std::string_view> valid[] = {
        {"Status", "<string>s</string>"},
        {"Operation", "<integer>0</integer>"},
        {"Progress", "<integer>100</integer>"},
    };
    std::string entries;
    for (auto const & [name, valid_value] : valid) {
        if (name != key) {
            entries += fmt::format("<key>{}</key>{}", name, valid_value);
        } else if (!value.empty()) {
            entries += fmt::format("<key>{}</key>{}", name, value);
        }
    }
    return report(entries);
}

TEST(RestoreReport, WithoutOneOfTheThreeIsInvalid) {
    EXPECT_FALSE(read_report(report("").get()));
    for (auto const * key : {"Status", "Operation", "Progress"}) {
        EXPECT_FALSE(read_report(report_with(key, "").get())) << key;
    }
}

TEST(RestoreReport, WithAValueThatDoesNotConvertIsInvalid) {
    struct row {
        char const * key;
        std::vector<char const *> values;
    };
    row const rows[] = {
        {"Status", {"<integer>1</integer>", "<true/>", "<array/>", "<dict/>", "<data>eA==</data>"}},
        {"Operation", {"<string>0</string>", "<false/>", "<array/>", "<data>MA==</data>"}},
        {"Progress", {"<string>100</string>", "<true/>"}},
        // Lossy: beyond the bits of the field, and halves
        {"Operation",
         {"<integer>2147483648</integer>", "<integer>-2147483649</integer>",
          "<integer>4294967296</integer>", "<real>0.5</real>"}},
        {"Progress", {"<real>1e30</real>", "<real>100.5</real>"}},
    };
    for (auto const & [key, values] : rows) {
        for (auto const * value : values) {
            EXPECT_FALSE(read_report(report_with(key, value).get())) << key << ": " << value;
        }
    }
}

TEST(RestoreReport, WithAStatusThatIsNoUtf8IsInvalid) {
    auto const surrogate = tests::make_lone_surrogate();
    auto const operation = make_number(0);
    auto const progress = make_number(100);
    EXPECT_FALSE(read_report(make_dictionary({{CFSTR("Status"), surrogate.get()},
                                              {CFSTR("Operation"), operation.get()},
                                              {CFSTR("Progress"), progress.get()}})
                                 .get()));
}

// --- Completion

restore_report with(int operation, std::int64_t progress, std::string const & status = "s") {
    return {status, operation_type{operation}, progress};
}

TEST(RestoreReport, CompletesARestoreWithNoOperationAtHundred) {
    EXPECT_TRUE(completes_restore(with(0, 100)));
    EXPECT_TRUE(completes_restore(with(0, 100, "Failed"))); // the status does not decide
    EXPECT_FALSE(completes_restore(with(13, 100, "Successful")));
    for (std::int64_t const progress : {0LL, 99LL, 101LL, -100LL, 4294967396LL}) { // 2^32 + 100
        EXPECT_FALSE(completes_restore(with(0, progress))) << progress;
    }
    for (int const operation : {1, -1, 9, 13, 213}) {
        EXPECT_FALSE(completes_restore(with(operation, 100))) << operation;
    }
}

TEST(RestoreReport, OfBootingCompletesTheEntryIntoRestoreMode) {
    for (std::int64_t const progress : {0, 31, 100, -1}) {
        EXPECT_TRUE(
            completes_restore_mode_entry(with(9, progress), command_kind::enter_restore_mode));
        EXPECT_FALSE(completes_restore_mode_entry(with(9, progress), command_kind::restore));
    }
    for (int const operation : {0, 8, 10, -9, 204}) { // 204 has the same text
        EXPECT_FALSE(
            completes_restore_mode_entry(with(operation, 100), command_kind::enter_restore_mode))
            << operation;
    }
}

// --- Printing

TEST(RestoreReport, IsPrintedWithTheNameOfItsOperation) {
    struct row {
        int operation;
        char const * name;
    };
    for (auto const & [operation, name] : {row{13, "Restoring image"}, row{150, "Unknown"}}) {
        std::string const entries = "<key>Extra</key><array><true/></array>";
        auto const original = report(entries);
        EXPECT_TRUE(equal(
            printable_report(original.get(), operation_type{operation}).get(),
            report(entries + "<key>QN_OperationName</key><string>" + name + "</string>").get()));
        EXPECT_TRUE(equal(original.get(), report(entries).get())); // stays as it was
        EXPECT_EQ(CFGetRetainCount(original.get()), 1);
    }
}

TEST(RestoreReport, OfNoOperationGetsNoName) {
    auto const original = report("<key>Extra</key><true/>");
    EXPECT_TRUE(equal(printable_report(original.get(), operation_type{0}).get(), original.get()));
}

TEST(RestoreReport, LosesANameThatIsNotOfItsOperation) {
    auto const original = report("<key>QN_OperationName</key><string>other</string>");
    EXPECT_TRUE(equal(printable_report(original.get(), operation_type{2}).get(),
                      report("<key>QN_OperationName</key><string>DFU download</string>").get()));
}

TEST(RestoreReport, LosesWhatXmlCannotHold) {
    auto const error = tests::make_error(CFSTR("d"), 7, CFSTR("text"));
    auto const set = tests::make_set({CFSTR("x")});
    auto const number = make_number(2);
    auto const original = make_dictionary({{CFSTR("Status"), CFSTR("Failed")},
                                           {CFSTR("Error"), error.get()},
                                           {CFSTR("Set"), set.get()},
                                           {CFSTR("Null"), kCFNull},
                                           {number.get(), CFSTR("number key")}});
    EXPECT_TRUE(
        equal(printable_report(original.get(), operation_type{0}).get(),
              report("<key>Status</key><string>Failed</string><key>Error</key><dict><key>Domain"
                     "</key><string>d</string><key>Code</key><integer>7</integer>"
                     "<key>Description</key><string>text</string></dict>")
                  .get()));
}

} // namespace
