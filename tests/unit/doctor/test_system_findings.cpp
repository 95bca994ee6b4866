#include "doctor/system_findings.hpp"

#include "tests/unit/doctor/expect_finding.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using doctor::code_page_finding;
using doctor::service_findings;
using doctor::temporary_folder_finding;
using doctor::verdict;
using doctor::version_finding;
using tests::expect_finding;

TEST(system_findings, of_the_version_of_windows) {
    expect_finding(version_finding({10, 0, 18362}), "windows-version", verdict::ok,
                   "Windows 10.0, build 18362");
    expect_finding(version_finding({10, 0, 18361}), "windows-version", verdict::warning,
                   "Windows 10.0, build 18361");
    expect_finding(version_finding({11, 1, 1}), "windows-version", verdict::ok,
                   "Windows 11.1, build 1");
    expect_finding(version_finding({6, 3, 9600}), "windows-version", verdict::problem,
                   "Windows 6.3, build 9600");
}

TEST(system_findings, of_code_pages) {
    expect_finding(code_page_finding({65001, 437}), "code-page", verdict::ok,
                   "The program's code page is 65001, that of the console is 437");
    expect_finding(code_page_finding({1252, 0}), "code-page", verdict::warning,
                   "The program's code page is 1252, that of the console is unknown, as there is "
                   "no console");
}

TEST(system_findings, of_the_temporary_folder) {
    expect_finding(temporary_folder_finding({"C:\\Temp", ""}), "temporary-folder", verdict::ok,
                   "The temporary folder \"C:\\Temp\" can be written");
    expect_finding(temporary_folder_finding({"C:\\Temp", "Access denied"}), "temporary-folder",
                   verdict::problem,
                   "The temporary folder \"C:\\Temp\" cannot be written: Access denied");
}

TEST(system_findings, of_services_that_attach_devices) {
    auto const findings = service_findings({{"Spooler", "Print Spooler", 4},
                                            {"AMDS", "Apple Mobile Device Service", 4},
                                            {"USBMUXD-2", "Multiplexer", 1},
                                            {"AppleMobileDeviceService", "x", 2}});
    ASSERT_EQ(3U, findings.size());
    expect_finding(findings[0], "device-service", verdict::ok,
                   "The service \"AMDS\" (Apple Mobile Device Service) is running");
    expect_finding(findings[1], "device-service", verdict::warning,
                   "The service \"USBMUXD-2\" (Multiplexer) is stopped");
    EXPECT_EQ("As an administrator, run: sc start \"USBMUXD-2\"", findings[1].what_to_do);
    expect_finding(findings[2], "device-service", verdict::warning,
                   "The service \"AppleMobileDeviceService\" (x) is starting");
}

TEST(system_findings, of_states_of_services) {
    std::vector<std::string> const states{
        "in an unknown state", "stopped",        "starting", "stopping",           "running",
        "continuing",          "about to pause", "paused",   "in an unknown state"};
    for (unsigned long state = 0; state < states.size(); ++state) {
        auto const findings = service_findings({{"usbmuxd", "U", state}});
        ASSERT_EQ(1U, findings.size());
        EXPECT_EQ("The service \"usbmuxd\" (U) is " + states[state], findings[0].text);
    }
}

TEST(system_findings, of_no_service) {
    auto const findings = service_findings({{"Spooler", "Print Spooler", 4}});
    ASSERT_EQ(1U, findings.size());
    expect_finding(findings[0], "device-service", verdict::warning,
                   "There is no service \"Apple Mobile Device Service\"");
}

} // namespace
