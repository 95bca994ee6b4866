#include "doctor/usb_findings.hpp"

#include "tests/unit/doctor/expect_finding.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using doctor::usb_findings;
using doctor::verdict;
using tests::expect_finding;

TEST(usb_findings, of_devices_that_can_be_restored) {
    for (auto const & [product, mode] : std::vector<std::pair<std::string, std::string>>{
             {"1227", "in DFU mode"},
             {"1280", "in Recovery mode"},
             {"1281", "in Recovery mode"},
             {"1283", "in Recovery mode"},
             {"1290", "in ordinary or restore mode"},
             {"12AF", "in ordinary or restore mode"}}) {
        auto const findings =
            usb_findings({{"USB\\VID_05AC&PID_" + product + "\\SECRET", "A phone", "driver", 0}});
        ASSERT_EQ(1U, findings.size());
        expect_finding(findings[0], "usb-device", verdict::ok,
                       "A device " + mode + " (05AC:" + product + ", \"A phone\"), driver: driver");
    }
}

TEST(usb_findings, of_other_devices) {
    for (std::string const instance :
         {"USB\\VID_05AC&PID_1226\\x", "USB\\VID_05AC&PID_1284\\x", "USB\\VID_05AC&PID_12B0\\x",
          "USB\\VID_046D&PID_1227\\x", "USB\\ROOT_HUB30\\x", "USB\\VID_05AC&PID_12",
          "USB\\VID_05AC&PID_128\\x", "USB\\VID_05AC&PID_", ""}) {
        auto const findings = usb_findings({{instance, "", "driver", 28}});
        ASSERT_EQ(1U, findings.size());
        expect_finding(findings[0], "usb-device", verdict::warning,
                       "No device that can be restored is attached over USB");
    }
}

TEST(usb_findings, of_drivers_that_do_not_work) {
    std::string const instance = "USB\\VID_05AC&PID_1281\\x";
    auto const findings = usb_findings({{instance, "One", "", 0},
                                        {instance, "Two", "", 28},
                                        {instance, "Three", "driver", 10},
                                        {instance, "Four", "driver", 0},
                                        {"USB\\VID_05AC&PID_12A8\\x", "Five", "", 28}});
    ASSERT_EQ(5U, findings.size());
    std::string const device = "A device in Recovery mode (05AC:1281, ";
    expect_finding(findings[0], "usb-device", verdict::problem, device + "\"One\"), driver: none");
    expect_finding(findings[1], "usb-device", verdict::problem,
                   device + "\"Two\"), driver: none, problem code 28");
    expect_finding(findings[2], "usb-device", verdict::problem,
                   device + "\"Three\"), driver: driver, problem code 10");
    expect_finding(findings[3], "usb-device", verdict::ok, device + "\"Four\"), driver: driver");
    // A restore does not start in this mode.
    expect_finding(findings[4], "usb-device", verdict::warning,
                   "A device in ordinary or restore mode (05AC:12A8, \"Five\"), driver: none, "
                   "problem code 28");
}

TEST(usb_findings, do_not_depend_on_the_case_of_letters) {
    auto const findings = usb_findings({{"usb\\Vid_05ac&Pid_12ab\\x", "One", "driver", 0}});
    ASSERT_EQ(1U, findings.size());
    EXPECT_EQ(verdict::ok, findings[0].word) << findings[0].text;
}

} // namespace
