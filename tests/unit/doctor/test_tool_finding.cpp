#include "doctor/tool_finding.hpp"

#include "tests/unit/doctor/expect_finding.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using doctor::tool_finding;
using doctor::verdict;
using tests::expect_finding;

std::string const printed = "qnrescue.exe --list-devices ended with status ";
std::string const before_list = "<dict>\n\t<key>Value</key>\n\t<array>\n";

TEST(tool_finding, of_a_list) {
    auto const list = before_list + "\t\t<string>1</string>\n\t</array>\n</dict>\n";
    expect_finding(tool_finding({"", 0, list}), "device-list", verdict::ok,
                   printed + "0 and printed:\n" + list);
}

TEST(tool_finding, of_an_empty_list) {
    std::string const list = "<dict>\n\t<key>Value</key>\n\t<array/>\n</dict>\n";
    expect_finding(tool_finding({"", 0, list}), "device-list", verdict::warning,
                   printed + "0 and printed:\n" + list);
}

TEST(tool_finding, of_an_error) {
    expect_finding(tool_finding({"", 5, before_list}), "device-list", verdict::problem,
                   printed + "5 and printed:\n" + before_list);
}

TEST(tool_finding, of_a_crash) {
    expect_finding(tool_finding({"", 0xC0000005, "half"}), "device-list", verdict::problem,
                   "qnrescue.exe --list-devices crashed with status 0xc0000005 and printed:\nhalf");
}

TEST(tool_finding, of_a_run_without_an_end) {
    expect_finding(tool_finding({"it is missing", 0, "half"}), "device-list", verdict::problem,
                   "qnrescue.exe --list-devices did not run: it is missing\nhalf");
}

} // namespace
