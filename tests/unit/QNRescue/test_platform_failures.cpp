// What the tool makes of a platform library that fails.
#include "QNRescue/error_domain.hpp"
#include "platform/cf_strings.hpp"
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include "QNRescue/qnrescue.h"
#include "QNRescue/run_program_main.hpp"
#include "QNRescue/start_options.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace qnrescue;
using namespace tests;
using strings = std::vector<std::string>;

// 2^32 + 3 would be 3 if it were cut to 32 bits.
[[maybe_unused]] bool const playing = play_scenario(
    "<dict><key>Failures</key><dict>"
    "<key>RegisterForNotifications</key><dict><key>Domain</key><string>foreign</string>"
    "<key>Code</key><integer>4294967299</integer>"
    "<key>Description</key><string>what happened</string>"
    "<key>FailureReason</key><string>why it happened</string></dict>"
    "<key>EnableFileLogging</key><integer>14</integer>"
    "<key>CreateDefaultOptions</key><true/></dict></dict>");

void expect_registration_error(document const & printed) {
    EXPECT_EQ(printed.type, "InternalError");
    EXPECT_TRUE(equal(printed.value.get(),
                      plist("<dict><key>Domain</key><string>foreign</string>"
                            "<key>Code</key><integer>4294967299</integer>"
                            "<key>Description</key><string>what happened</string>"
                            "<key>FailureReason</key><string>why it happened</string></dict>")
                          .get()));
}

TEST(PlatformFailures, ARegistrationErrorIsPrintedAndThrown) {
    for (auto const kind : {command_kind::list_devices, command_kind::device_info}) {
        call_trace const trace;
        notifier_run run;
        run.notifier.operation = kind;
        run.notifier.detectTimeout = std::chrono::hours(1);
        EXPECT_EQ(error_of([&] { run.notifier.waitForCompletion(); }),
                  (tool_error{4294967299, "why it happened"}));
        EXPECT_FALSE(run.notifier.inTeardown);
        auto const documents = run.output.documents();
        ASSERT_EQ(documents.size(), 1U);
        expect_registration_error(documents[0]);
        EXPECT_EQ(run.output.debug_lines().back(),
                  "waitForCompletion: AMRestorableDeviceRegisterForNotifications()");
        EXPECT_EQ(trace.calls("AMRestorableDeviceUnregister"), strings{});
    }
}

TEST(PlatformFailures, ThrownErrorsHaveOneOwner) {
    CFErrorRef failure = nullptr;
    AMRestorableDeviceRegisterForNotifications(device_notifier_state::deviceNotificationCallback,
                                               nullptr, &failure);
    auto const error = adopt(failure); // the library returns the same one each time
    auto const references = CFGetRetainCount(error.get());
    notifier_run run;
    try {
        run.notifier.waitForCompletion();
        FAIL();
    } catch (error_owner const & thrown) {
        run.output.finish();
        EXPECT_EQ(thrown.get(), error.get());
        EXPECT_EQ(CFGetRetainCount(error.get()), references + 1);
    }
    EXPECT_EQ(CFGetRetainCount(error.get()), references);
}

TEST(PlatformFailures, NoDefaultOptions) {
    auto const earlier = make_dictionary({{CFSTR("a"), CFSTR("b")}});
    notifier_run run;
    run.notifier.restoreOptions = retain(earlier.get());
    try {
        run.notifier.CreateDefaultRestoreOptions("x.ipsw", false);
        FAIL();
    } catch (std::runtime_error const & exception) {
        EXPECT_STREQ(exception.what(), "AMRestoreCreateDefaultOptions failed");
    }
    EXPECT_EQ(run.notifier.restoreOptions.get(), earlier.get());
}

TEST(PlatformFailures, NoFileLogging) {
    output_capture output;
    device_notifier_state const notifier(output.state(), QN::filesystem::path("log.txt"),
                                         std::nullopt);
    auto const lines = output.debug_lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[1], "device_notifier_state: AMRestoreEnableFileLogging(log.txt)");
    auto const text = adopt(AMRLocalizedCopyStringForAMRError(14));
    EXPECT_EQ(lines[2], "device_notifier_state: AMRestoreEnableFileLogging failed (14: " +
                            MakeDescription(text.get()) + ")");
}

int run_program(start_options const & options, output_capture & output) {
    return runProgramMain(options, boost::program_options::options_description(), output.state());
}

TEST(PlatformFailures, TheDispatcherPrintsARegistrationErrorAgain) {
    start_options options;
    options.list_devices = true;
    output_capture output;
    EXPECT_EQ(run_program(options, output), 1);
    auto const documents = output.documents();
    ASSERT_EQ(documents.size(), 2U);
    expect_registration_error(documents[0]);
    expect_registration_error(documents[1]);
}

TEST(PlatformFailures, TheDispatcherMakesAnUnknownErrorOfOtherExceptions) {
    start_options options;
    options.restore = "x.ipsw";
    options.ecid = "00000000000000A1";
    output_capture output;
    EXPECT_EQ(run_program(options, output), 1);
    auto const documents = output.documents();
    ASSERT_EQ(documents.size(), 1U);
    auto const expected = CreateDomainError(Error::unknown, "AMRestoreCreateDefaultOptions failed");
    EXPECT_TRUE(equal(documents[0].value.get(), DictionaryFromError(expected.get()).get()));
}

TEST(PlatformFailures, AMissingPathIsFoundOutBeforeTheOptionsAreMade) {
    start_options options;
    options.restore = "";
    options.ecid = "00000000000000A1";
    output_capture output;
    EXPECT_EQ(run_program(options, output), 3);
    auto const documents = output.documents();
    ASSERT_EQ(documents.size(), 1U);
    auto const expected = CreateDomainError(Error::bad_command, "Missing restore IPSW path");
    EXPECT_TRUE(equal(documents[0].value.get(), DictionaryFromError(expected.get()).get()));
}

} // namespace
