#include "QNRescue/run_program_main.hpp"

#include "QNRescue/error_domain.hpp"
#include "QNRescue/start_options.hpp"
#include "tests/unit/QNRescue/notifier_devices.hpp"
#include "tests/unit/helpers/fake_clock.hpp"
#include "tests/unit/helpers/output_capture.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <vector>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;
using strings = std::vector<std::string>;

constexpr auto some_ecid = "00000000000000A1";
constexpr auto unknown_ecid = "0000000000ABCDEF";

// What a command line leads to.
struct program_run {
    explicit program_run(std::vector<std::string> const & arguments,
                         wait_clock & clock = steady_wait_clock())
        : output(false) {
        std::vector<char const *> argv{"qnrescue"};
        for (auto const & argument : arguments) {
            argv.push_back(argument.c_str());
        }
        auto const count = static_cast<int>(argv.size());
        argv.push_back(nullptr);
        auto const [options, table, error] = parse_arguments(count, argv.data());
        EXPECT_FALSE(error);
        std::ostringstream stream;
        stream << table;
        help = stream.str();
        status = runProgramMain(options, table, output.state(), clock);
        EXPECT_EQ(output.state().use_count(), 1);
    }

    output_capture output;
    std::string help;
    int status;
};

void expect_error(std::vector<std::string> const & arguments, int code, std::string const & reason,
                  wait_clock & clock = steady_wait_clock()) {
    SCOPED_TRACE(::testing::PrintToString(arguments));
    call_trace const trace;
    program_run run(arguments, clock);
    EXPECT_EQ(run.status, code);
    if (code == 2 || code == 3) {
        EXPECT_EQ(trace.calls("AMRestorableDevice"), std::vector<std::string>());
    }
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "InternalError");
    auto const expected = CreateDomainError(static_cast<Error>(code), reason);
    EXPECT_TRUE(equal(documents[0].value.get(), DictionaryFromError(expected.get()).get()))
        << run.output.out();
}

TEST(RunProgramMain, NeedsACommand) {
    expect_error({}, 3, "Invalid command option");
    expect_error({"--no-cleanup", "--detect-timeout", "0"}, 3, "Invalid command option");
    expect_error({"--ecid", some_ecid}, 3, "Invalid command option");
    expect_error({"--enter-restore-mode", "--ecid", some_ecid}, 3, "Invalid command option");
    expect_error({"--enter-restore-mode"}, 3, "Invalid command option");
}

TEST(RunProgramMain, HelpIsPrintedAsADebugLine) {
    program_run run({"--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output.out(), "");
    EXPECT_EQ(run.output.streams.err.text(), run.help + '\n');
}

TEST(RunProgramMain, HelpComesBeforeEverythingElse) {
    call_trace const trace;
    program_run run({"--help", "--debug-dump", "--list-devices", "--ecid", "zz", "--erase",
                     "--restore-timeout", "5", "--restore", "", "--amr-logfile", "no folder/log"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output.out(), "");
    EXPECT_EQ(run.output.streams.err.text(), run.help + '\n');
    EXPECT_EQ(trace.calls("AM"), strings{});
}

TEST(RunProgramMain, DebugDumpComesBeforeTheCommands) {
    call_trace const trace;
    program_run run({"--debug-dump", "--list-devices", "--ecid", "zz"});
    EXPECT_EQ(run.status, 0);
    auto const lines = run.output.debug_lines();
    ASSERT_EQ(lines.size(), 1000U + 10000U + 4U);
    EXPECT_EQ(lines[0], "==== AMRLocalizedCopyStringForAMROperation ====");
    EXPECT_EQ(lines[1001], "");
    EXPECT_EQ(lines[1002], "==== AMRLocalizedCopyStringForAMRError ====");
    EXPECT_EQ(lines.back(), "");
    EXPECT_EQ(run.output.out(), "");
    EXPECT_EQ(trace.calls("AM"), strings{});
}

TEST(RunProgramMain, EcidsAreCheckedBeforeTheRules) {
    for (std::string const ecid : {"zz", "", "0x000000000000A1", "00000000000000A", "A1"}) {
        expect_error({"--ecid", ecid, "--list-devices"}, 2, "Invalid ecid");
        expect_error({"--ecid", ecid, "--erase"}, 2, "Invalid ecid");
        expect_error({"--ecid", ecid}, 2, "Invalid ecid");
    }
}

TEST(RunProgramMain, EraseGoesWithRestoreAlone) {
    auto const reason = "Option --erase only compatible with --restore";
    expect_error({"--erase"}, 3, reason);
    expect_error({"--erase", "--list-devices"}, 3, reason);
    expect_error({"--erase", "--device-info", "--ecid", some_ecid}, 3, reason);
    expect_error({"--erase", "--restore-plist", "o.plist", "--ecid", some_ecid}, 3, reason);
    expect_error({"--erase", "--restore-timeout", "5"}, 3, reason);
}

TEST(RunProgramMain, RestoreTimeoutGoesWithRestoreAlone) {
    auto const reason = "Option --restore-timeout only compatible with --restore";
    expect_error({"--restore-timeout", "5"}, 3, reason);
    expect_error({"--restore-timeout", "0", "--device-info", "--ecid", some_ecid}, 3, reason);
    expect_error({"--restore-timeout", "600", "--restore-plist", "o.plist", "--ecid", some_ecid}, 3,
                 reason);
}

TEST(RunProgramMain, ListDevicesTakesNoEcid) {
    expect_error({"--list-devices", "--ecid", some_ecid}, 3,
                 "Option --list-devices not compatible with --ecid");
}

TEST(RunProgramMain, TheOtherCommandsRequireAnEcid) {
    expect_error({"--device-info"}, 3, "Option --device-info requires --ecid");
    expect_error({"--exit-recovery"}, 3, "Option --exit-recovery requires --ecid");
    expect_error({"--no-exit-recovery"}, 3, "Option --no-exit-recovery requires --ecid");
    expect_error({"--restore", "x.ipsw"}, 3, "Option --restore requires --ecid");
    expect_error({"--restore-plist", "o.plist"}, 3, "Option --restore-plist requires --ecid");
    // This is found out before anything else about the command.
    expect_error({"--restore", ""}, 3, "Option --restore requires --ecid");
    expect_error({"--restore", "x.ipsw", "--enter-restore-mode"}, 3,
                 "Option --restore requires --ecid");
    expect_error({"--restore-plist", "no such file"}, 3, "Option --restore-plist requires --ecid");
}

TEST(RunProgramMain, ARestoreNeedsAPath) {
    expect_error({"--restore", "", "--ecid", some_ecid}, 3, "Missing restore IPSW path");
    expect_error({"--restore", "", "--ecid", some_ecid, "--erase", "--restore-timeout", "600",
                  "--enter-restore-mode"},
                 3, "Missing restore IPSW path");
}

TEST(RunProgramMain, TheFirstCommandOfTheTableWins) {
    // Each of these fails by the rule of the first of its commands.
    expect_error({"--device-info", "--exit-recovery"}, 3, "Option --device-info requires --ecid");
    expect_error({"--no-exit-recovery", "--exit-recovery"}, 3,
                 "Option --exit-recovery requires --ecid");
    expect_error({"--restore", "x", "--no-exit-recovery"}, 3,
                 "Option --no-exit-recovery requires --ecid");
    expect_error({"--restore-plist", "o", "--restore", "x"}, 3, "Option --restore requires --ecid");
    program_run run({"--device-info", "--list-devices", "--detect-timeout", "0"});
    EXPECT_EQ(run.status, 0);
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "DeviceList");
}

TEST(RunProgramMain, DetectTimeoutIsInSeconds) {
    fake_clock clock;
    expect_error({"--device-info", "--ecid", unknown_ecid, "--detect-timeout", "4000"}, 4,
                 "Failed to find device with ecid 0000000000ABCDEF after 4000 seconds", clock);
    EXPECT_EQ(clock.passed(), 4000s);
}

TEST(RunProgramMain, EcidsMayBeWrittenInEitherCase) {
    for (auto const * ecid : {"00000000000000a1", "00000000000000A1"}) {
        program_run run({"--device-info", "--ecid", ecid});
        EXPECT_EQ(run.status, 0);
        EXPECT_NE(run.output.out().find("<string>00000000000000A1</string>"), std::string::npos);
    }
}

// Lets devices take their time, but that of a restore pass at once.
class clock_of_a_silent_restore final : public wait_clock {
public:
    time_point now() const override { return steady_wait_clock().now() + passed; }
    void sleep_until(time_point end) override { steady_wait_clock().sleep_until(end - passed); }
    void wait_until(std::condition_variable & condition, std::unique_lock<std::mutex> & lock,
                    time_point end) override {
        steady_wait_clock().wait_until(condition, lock, end - passed);
    }
    bool wait_until(std::future<void> const & /*future*/, time_point end) override {
        passed += end - now();
        return false;
    }

private:
    std::chrono::nanoseconds passed{0};
};

TEST(RunProgramMain, ARestoreMayHaveATimeout) {
    expect_error({"--restore", "x.ipsw", "--restore-timeout", "600", "--erase", "--ecid",
                  unknown_ecid, "--detect-timeout", "0"},
                 4, "Failed to find device with ecid 0000000000ABCDEF after 0 seconds");

    clock_of_a_silent_restore clock;
    program_run run({"--restore", "x.ipsw", "--restore-timeout", "600", "--ecid", some_ecid},
                    clock);
    EXPECT_EQ(run.status, 0); // the device never reports, and that is printed only
    auto const documents = run.output.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_NE(run.output.out().find("Aborting, restore did not complete in 600 seconds"),
              std::string::npos);
}

TEST(RunProgramMain, RestoresToTheEnd) {
    program_run run(
        {"--restore", "x.ipsw", "--ecid", "00000000000000D1", "--restore-timeout", "4294967295"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output.documents().size(), 3U);
    EXPECT_EQ(run.output.streams.err.text(), "");
}

TEST(RunProgramMain, ErasesOnlyWhereThatIsAskedFor) {
    strings arguments{"--restore", "x.ipsw", "--ecid", "00000000000000D1"};
    EXPECT_EQ(program_run(arguments).status, 0);
    EXPECT_NE(last_restore_options().find("<string>Update</string>"), std::string::npos);
    EXPECT_EQ(last_restore_options().find("<string>Erase</string>"), std::string::npos);
    arguments.push_back("--erase");
    EXPECT_EQ(program_run(arguments).status, 0);
    EXPECT_NE(last_restore_options().find("<string>Erase</string>"), std::string::npos);
}

// A file of restore options.
struct options_file {
    explicit options_file(std::string_view bytes) { write_file(path(), bytes); }

    QN::filesystem::path path() const {
        return folder.path() / QN::path_from_utf8("options \xc3\xa9.plist");
    }
    std::string text() const { return QN::path_to_utf8(path()); }

    temporary_folder folder;
};

constexpr auto some_options =
    "<plist><dict><key>RestoreBundlePath</key><string>x</string></dict></plist>";

TEST(RunProgramMain, RestoresWithTheOptionsOfAFile) {
    using namespace std::string_view_literals;
    constexpr auto binary_options = "bplist00"
                                    "\xd1\x01\x02"          // object 0: {object 1: object 2}
                                    "\x51\x61"              // object 1: "a"
                                    "\x09"                  // object 2: true
                                    "\x08\x0b\x0d"          // where they are
                                    "\0\0\0\0\0\0\1\1"      // in offsets and references of a byte
                                    "\0\0\0\0\0\0\0\x03"    // how many they are
                                    "\0\0\0\0\0\0\0\0"      // the root among them
                                    "\0\0\0\0\0\0\0\x0e"sv; // where the offsets are
    for (auto const & bytes : {std::string_view(some_options), binary_options}) {
        options_file const file(bytes);
        program_run run({"--restore-plist", file.text(), "--ecid", "00000000000000D1"});
        EXPECT_EQ(run.status, 0) << run.output.out();
        EXPECT_EQ(run.output.documents().size(), 3U);
    }
}

TEST(RunProgramMain, SaysWhyAFileHoldsNoOptions) {
    options_file const file("");
    expect_error({"--restore-plist", file.text(), "--ecid", some_ecid}, 8,
                 "Cannot open file '" + file.text() + "' - Empty file");
}

TEST(RunProgramMain, EntersRestoreMode) {
    options_file const file(some_options);
    for (strings const & command :
         {strings{"--restore", "x.ipsw"}, strings{"--restore-plist", file.text()}}) {
        auto arguments = command;
        arguments.insert(arguments.end(), {"--enter-restore-mode", "--ecid", "00000000000000D2"});
        program_run run(arguments);
        EXPECT_EQ(run.status, 0) << run.output.out();
        EXPECT_EQ(run.output.documents().size(), 1U);
    }
}

TEST(RunProgramMain, EnteringRestoreModeChangesNoOtherCommand) {
    struct row {
        strings command;
        char const * document;
    };
    row const rows[] = {
        {{"--list-devices", "--detect-timeout", "0"}, "DeviceList"},
        {{"--device-info", "--ecid", some_ecid}, "DeviceInfo"},
        {{"--no-exit-recovery", "--ecid", "00000000000000B5"}, "CommandSuccess"},
    };
    for (auto [arguments, document] : rows) {
        arguments.push_back("--enter-restore-mode");
        program_run run(arguments);
        EXPECT_EQ(run.status, 0) << run.output.out();
        auto const documents = run.output.documents();
        ASSERT_EQ(documents.size(), 1U);
        EXPECT_EQ(documents[0].type, document);
    }
}

TEST(RunProgramMain, ReturnsTheCodeOfWhatTheCommandThrows) {
    expect_error({"--exit-recovery", "--ecid", "00000000000000A2"}, 5,
                 "Device in state DFU not valid for exit-recovery");
    expect_error({"--no-exit-recovery", "--ecid", "00000000000000B1"}, 6,
                 "SetAutoBoot command failed (Bad argument)");
}

TEST(RunProgramMain, DebugSwitchesDebugLinesOn) {
    program_run run({"--debug", "--list-devices", "--detect-timeout", "0"});
    auto const lines = run.output.debug_lines();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0], "device_notifier_state: initializing");
    EXPECT_EQ(lines[1], "waitForCompletion: AMRestorableDeviceRegisterForNotifications()");
    // Notifications may still be ignored after it.
    EXPECT_EQ(std::ranges::count(
                  lines, "waitForCompletion: AMRestorableDeviceUnregisterForNotifications()"),
              1);

    program_run quiet({"--list-devices", "--detect-timeout", "0"});
    EXPECT_EQ(quiet.output.debug_lines(), strings{});
}

TEST(RunProgramMain, PassesTheLogFileToTheLibrary) {
    temporary_folder const folder;
    auto const log = QN::path_to_utf8(folder.path() / QN::path_from_utf8("log \xc3\xa9.txt"));
    call_trace const trace;
    program_run run({"--amr-logfile", log});
    EXPECT_EQ(run.status, 3);
    auto const calls = trace.calls("AMRestoreEnableFileLogging");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_TRUE(calls[0].ends_with(" -> 0"));
    EXPECT_EQ(read_file(QN::path_from_utf8(log)), "qnrescue --amr-logfile " + log + "\n");
}

TEST(RunProgramMain, PassesAnEmptyNameOfALogToTheLibrary) {
    call_trace const trace;
    program_run run({"--amr-logfile", ""});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(trace.calls("AMRestoreEnableFileLogging").size(), 1U);
}

} // namespace
