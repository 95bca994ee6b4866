#include "doctor/tool_finding.hpp"

#include "tests/unit/doctor/expect_finding.hpp"

#include <fmt/format.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using doctor::tool_finding;
using doctor::verdict;
using tests::expect_finding;

std::string const printed = "qnrescue.exe --list-devices ended with status ";
std::string const before_list = "<dict>\n\t<key>Value</key>\n\t<array>\n";
std::string const document =
    before_list + "\t\t<string>1</string>\n\t</array>\n</dict>\n</plist>\n";

TEST(tool_finding, of_a_list) {
    expect_finding(tool_finding({"", 0, document}), "device-list", verdict::ok,
                   printed + "0 and printed:\n" + document);
}

TEST(tool_finding, of_an_empty_list) {
    std::string const list = "<dict>\n\t<key>Value</key>\n\t<array/>\n</dict>\n</plist>\n";
    expect_finding(tool_finding({"", 0, list}), "device-list", verdict::warning,
                   printed + "0 and printed:\n" + list);
}

TEST(tool_finding, of_an_error) {
    expect_finding(tool_finding({"", 5, document}), "device-list", verdict::problem,
                   printed + "5 and printed:\n" + document);
}

TEST(tool_finding, of_a_tool_that_breaks_down) {
    for (unsigned long const status : {0xC0000005UL, 0x80000000UL}) {
        doctor::tool_run const crash{"", status, document};
        EXPECT_TRUE(has_broken_down(crash));
        expect_finding(tool_finding(crash), "device-list", verdict::problem,
                       fmt::format("qnrescue.exe --list-devices broke off with status {:#x} and "
                                   "printed:\n{}",
                                   status, document));
    }
    doctor::tool_run const ended_by_a_library{"", 0, "half"};
    EXPECT_TRUE(has_broken_down(ended_by_a_library));
    expect_finding(tool_finding(ended_by_a_library), "device-list", verdict::problem,
                   "qnrescue.exe --list-devices broke off with status 0x0 and printed:\nhalf");
    doctor::tool_run const halted{"was still running after 1 ms", 1, document};
    EXPECT_TRUE(has_broken_down(halted));
    expect_finding(tool_finding(halted), "device-list", verdict::problem,
                   "qnrescue.exe --list-devices was still running after 1 ms and printed:\n" +
                       document);
}

TEST(tool_finding, of_a_tool_that_does_not_start) {
    doctor::tool_run const missing{"it is missing", 0, "", false};
    EXPECT_FALSE(has_broken_down(missing));
    expect_finding(tool_finding(missing), "device-list", verdict::problem,
                   "qnrescue.exe --list-devices did not run: it is missing");
}

TEST(tool_finding, of_a_tool_that_does_not_break_down) {
    for (unsigned long const status : {0UL, 1UL, 0x7FFFFFFFUL}) {
        EXPECT_FALSE(doctor::has_broken_down({"", status, document}));
    }
}

} // namespace
