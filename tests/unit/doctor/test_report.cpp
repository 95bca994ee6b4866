#include "doctor/report.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using doctor::finding;
using doctor::verdict;

finding const good{"windows-version", verdict::ok, "Windows 10.0"};
finding const doubtful{"usb-device", verdict::warning, "No device", "Attach one"};
finding const bad{"library-load", verdict::problem, "one\ntwo\n", "do this\nand that"};

TEST(doctor_report, of_one_finding) {
    EXPECT_EQ("ok       Windows 10.0\n"
              "         See docs/troubleshooting.md#windows-version\n",
              text_of(good));
    EXPECT_EQ("warning  No device\n"
              "         Attach one\n"
              "         See docs/troubleshooting.md#usb-device\n",
              text_of(doubtful));
    EXPECT_EQ("problem  one\n"
              "         two\n"
              "         do this\n"
              "         and that\n"
              "         See docs/troubleshooting.md#library-load\n",
              text_of(bad));
}

TEST(doctor_report, is_printable) {
    EXPECT_EQ("ok       a\uFFFDb\n         See docs/troubleshooting.md#code-page\n",
              doctor::text_of({"code-page", verdict::ok,
                               "a\x1B"
                               "b"}));
}

TEST(doctor_report, only_problems_keep_a_restore_from_starting) {
    std::vector const fair{good, doubtful};
    EXPECT_TRUE(restore_could_start(fair));
    EXPECT_EQ(0, exit_status(fair));
    EXPECT_EQ("\nA restore could start: problems: 0, warnings: 1.\n", summary_of(fair));
    std::vector const poor{good, bad, doubtful, bad};
    EXPECT_FALSE(restore_could_start(poor));
    EXPECT_EQ(1, exit_status(poor));
    EXPECT_EQ("\nA restore cannot start: problems: 2, warnings: 1.\n", summary_of(poor));
}

TEST(doctor_report, as_json) {
    std::vector const findings{
        good, finding{"library-load", verdict::problem, "\"C:\\a\"\n\tb\x01\xFF", "Grüße"}};
    auto const document = doctor::json_of(findings);
    EXPECT_TRUE(document.starts_with("{\n  \"version\": \"")) << document;
    EXPECT_EQ("  \"restore_could_start\": false,\n"
              "  \"findings\": [\n"
              "    {\n"
              "      \"id\": \"windows-version\",\n"
              "      \"word\": \"ok\",\n"
              "      \"text\": \"Windows 10.0\",\n"
              "      \"what_to_do\": \"\",\n"
              "      \"see\": \"docs/troubleshooting.md#windows-version\"\n"
              "    },\n"
              "    {\n"
              "      \"id\": \"library-load\",\n"
              "      \"word\": \"problem\",\n"
              "      \"text\": \"\\\"C:\\\\a\\\"\\n\\tb\uFFFD\uFFFD\",\n"
              "      \"what_to_do\": \"Grüße\",\n"
              "      \"see\": \"docs/troubleshooting.md#library-load\"\n"
              "    }\n"
              "  ]\n"
              "}\n",
              document.substr(document.find("  \"restore_could_start\"")));
}

} // namespace
