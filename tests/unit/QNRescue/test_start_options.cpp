#include "QNRescue/start_options.hpp"

#include "QNRescue/error_domain.hpp"
#include "platform/cf_strings.hpp"
#include "tests/unit/helpers/objects.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/resource.h>

#include <csignal>
#endif
#include <algorithm>
#include <sstream>
#include <vector>

namespace {

using namespace qnrescue;

struct parsed {
    start_options options;
    boost::program_options::options_description table;
    error_owner error;

    int code() const { return GetCode(error.get()); }
    std::string reason() const { return tests::said_by(error).reason; }
};

parsed parse(std::vector<char const *> arguments) {
    arguments.insert(arguments.begin(), "qnrescue");
    auto const count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    auto [options, table, error] = parse_arguments(count, arguments.data());
    return {std::move(options), std::move(table), std::move(error)};
}

void expect_nothing_set(start_options const & options) {
    EXPECT_FALSE(options.debug);
    EXPECT_FALSE(options.debug_dump);
    EXPECT_FALSE(options.help);
    EXPECT_FALSE(options.no_cleanup);
    EXPECT_FALSE(options.amr_logfile);
    EXPECT_FALSE(options.detect_timeout);
    EXPECT_FALSE(options.ecid);
    EXPECT_FALSE(options.list_devices);
    EXPECT_FALSE(options.device_info);
    EXPECT_FALSE(options.exit_recovery);
    EXPECT_FALSE(options.no_exit_recovery);
    EXPECT_FALSE(options.restore);
    EXPECT_FALSE(options.restore_timeout);
    EXPECT_FALSE(options.erase);
    EXPECT_FALSE(options.restore_plist);
    EXPECT_FALSE(options.enter_restore_mode);
    EXPECT_FALSE(options.output_pipe);
}

TEST(StartOptions, StartEmpty) {
    expect_nothing_set(start_options());
}

TEST(StartOptions, OfNoArguments) {
    auto const result = parse({});
    EXPECT_FALSE(result.error);
    expect_nothing_set(result.options);
}

TEST(StartOptions, OfNoProgramNameEither) {
    char const * none[] = {nullptr};
    char const * beyond[] = {"qnrescue", "--debug", nullptr};
    for (auto const & [count, arguments] :
         {std::pair(0, none), std::pair(0, beyond), std::pair(-1, beyond),
          std::pair(0, static_cast<char const **>(nullptr)),
          std::pair(2, static_cast<char const **>(nullptr))}) {
        auto const [options, table, error] = parse_arguments(count, arguments);
        EXPECT_EQ(tests::said_by(error),
                  (tests::tool_error{3, "The command line has no program name"}));
        EXPECT_EQ(table.options().size(), 17U);
        expect_nothing_set(options);
    }
}

TEST(StartOptions, SwitchesSetTheirOwnField) {
    struct row {
        char const * option;
        bool start_options::*field;
    };
    constexpr row rows[] = {
        {"--debug", &start_options::debug},
        {"--debug-dump", &start_options::debug_dump},
        {"--help", &start_options::help},
        {"--no-cleanup", &start_options::no_cleanup},
        {"--list-devices", &start_options::list_devices},
        {"--device-info", &start_options::device_info},
        {"--exit-recovery", &start_options::exit_recovery},
        {"--no-exit-recovery", &start_options::no_exit_recovery},
        {"--erase", &start_options::erase},
        {"--enter-restore-mode", &start_options::enter_restore_mode},
    };
    for (auto const & [option, field] : rows) {
        auto result = parse({option});
        EXPECT_FALSE(result.error) << option;
        EXPECT_TRUE(result.options.*field) << option;
        result.options.*field = false;
        expect_nothing_set(result.options);
    }
}

TEST(StartOptions, TextsAreKeptAsTyped) {
    tests::temporary_working_folder const for_logs;
    struct row {
        char const * option;
        std::optional<std::string> start_options::*field;
    };
    constexpr row rows[] = {
        {"--amr-logfile", &start_options::amr_logfile},
        {"--ecid", &start_options::ecid},
        {"--restore", &start_options::restore},
        {"--restore-plist", &start_options::restore_plist},
    };
    for (auto const & [option, field] : rows) {
        for (auto const * text : {"x", "no hex", "C:\\a b\\\xc3\xa9\xf0\x9f\x93\xb1.ipsw", "a=b",
                                  " padded ", "'quoted'"}) {
            auto result = parse({option, text});
            EXPECT_FALSE(result.error) << option;
            EXPECT_EQ(result.options.*field, text) << option;
            (result.options.*field).reset();
            expect_nothing_set(result.options);
        }
    }
}

TEST(StartOptions, TextsMayBeEmpty) {
    EXPECT_EQ(parse({"--restore", ""}).options.restore, "");
    EXPECT_EQ(parse({"--restore", ""}).code(), 0);
}

TEST(StartOptions, SecondsAreUnsigned) {
    auto const result = parse({"--detect-timeout", "0", "--restore-timeout", "4294967295"});
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.options.detect_timeout, 0U);
    EXPECT_EQ(result.options.restore_timeout, 4294967295U);
    EXPECT_EQ(parse({"--detect-timeout", "4294967296"}).code(), 2);
    EXPECT_EQ(parse({"--restore-timeout", "4294967296"}).code(), 2);
    EXPECT_EQ(parse({"--restore-timeout", "18446744073709551617"}).code(), 2);
    EXPECT_EQ(parse({"--detect-timeout", "+3"}).options.detect_timeout, 3U);
    EXPECT_EQ(parse({"--detect-timeout", "007"}).options.detect_timeout, 7U);
}

TEST(StartOptions, NegativeSecondsWrapAround) {
    EXPECT_EQ(parse({"--detect-timeout", "-1"}).options.detect_timeout, 4294967295U);
    EXPECT_EQ(parse({"--restore-timeout=-4294967295"}).options.restore_timeout, 1U);
    EXPECT_EQ(parse({"--detect-timeout", "-4294967296"}).code(), 2);
}

TEST(StartOptions, ThePipeIsASignedNumber) {
    EXPECT_EQ(parse({"--output-pipe", "1234"}).options.output_pipe, 1234);
    EXPECT_EQ(parse({"--output-pipe=-5"}).options.output_pipe, -5);
    EXPECT_EQ(parse({"--output-pipe", "2147483647"}).options.output_pipe, 2147483647);
    EXPECT_EQ(parse({"--output-pipe", "-2147483648"}).options.output_pipe, -2147483647 - 1);
    EXPECT_EQ(parse({"--output-pipe", "2147483648"}).code(), 2);
    EXPECT_EQ(parse({"--output-pipe", "-2147483649"}).code(), 2);
    EXPECT_EQ(parse({"--output-pipe", "4294967296"}).code(), 2);
}

TEST(StartOptions, AllAtOnce) {
    tests::temporary_working_folder const for_the_log;
    auto const result =
        parse({"--debug", "--no-cleanup", "--amr-logfile", "log", "--ecid=ab", "--detect-timeout=5",
               "--restore", "x.ipsw", "--restore-timeout", "6", "--erase", "--restore-plist",
               "o.plist", "--enter-restore-mode", "--output-pipe", "7", "--list-devices"});
    EXPECT_FALSE(result.error);
    EXPECT_TRUE(result.options.debug && result.options.no_cleanup && result.options.erase &&
                result.options.enter_restore_mode && result.options.list_devices);
    EXPECT_EQ(result.options.amr_logfile, "log");
    EXPECT_EQ(result.options.ecid, "ab");
    EXPECT_EQ(result.options.detect_timeout, 5U);
    EXPECT_EQ(result.options.restore, "x.ipsw");
    EXPECT_EQ(result.options.restore_timeout, 6U);
    EXPECT_EQ(result.options.restore_plist, "o.plist");
    EXPECT_EQ(result.options.output_pipe, 7);
}

constexpr char const * switches[] = {
    "--debug",        "--debug-dump",        "--help",          "--no-cleanup",
    "--list-devices", "--device-info",       "--exit-recovery", "--no-exit-recovery",
    "--erase",        "--enter-restore-mode"};
constexpr char const * options_with_a_text[] = {"--amr-logfile", "--ecid", "--restore",
                                                "--restore-plist"};
constexpr char const * numbers[] = {"--detect-timeout", "--restore-timeout", "--output-pipe"};

void expect_refused(std::vector<char const *> const & arguments, int code,
                    std::string const & reason) {
    auto const result = parse(arguments);
    EXPECT_EQ(tests::said_by(result.error), (tests::tool_error{code, reason}));
}

TEST(StartOptions, AnOptionGivenTwice) {
    auto const reason = [](std::string const & option) {
        return "Option '" + option + "' may only be specified once";
    };
    for (auto const * option : switches) {
        expect_refused({option, option}, 3, reason(option));
    }
    for (auto const * option : options_with_a_text) {
        expect_refused({option, "a", option, "b"}, 3, reason(option));
    }
    for (auto const * option : numbers) {
        expect_refused({option, "1", option, "2"}, 3, reason(option));
    }
    expect_refused({"--ecid", "a", "--ec", "b"}, 3, reason("--ecid")); // once by a shorter name
}

TEST(StartOptions, AnUnknownOption) {
    auto const result = parse({"--frobnicate"});
    EXPECT_EQ(result.code(), 3);
    EXPECT_EQ(result.reason(), "unrecognised option '--frobnicate'");
    EXPECT_EQ(parse({"-h"}).code(), 3);
}

TEST(StartOptions, AValueOfTheWrongKind) {
    for (std::string const option : numbers) {
        for (std::string const value : {"abc", " ", "1 ", " 1", "1.5", "1e3", "5s", "0x10", "12a",
                                        "\xc3\xbc", "\xef\xbc\x91", "99999999999999999999"}) {
            expect_refused({option.c_str(), value.c_str()}, 2,
                           "the argument ('" + value + "') for option '" + option + "' is invalid");
        }
        expect_refused({option.c_str(), ""}, 2,
                       "the argument for option '" + option + "' is invalid");
    }
}

TEST(StartOptions, AMissingValue) {
    auto const expect_missing = [](std::string const & option) {
        expect_refused({option.c_str()}, 1,
                       "the required argument for option '" + option + "' is missing");
    };
    std::ranges::for_each(options_with_a_text, expect_missing);
    std::ranges::for_each(numbers, expect_missing);
    expect_refused({"--ecid", "a", "--restore"}, 1,
                   "the required argument for option '--restore' is missing");
    expect_refused(
        {"--restore=", "--ecid", "a"}, 1,
        "the argument for option '--restore' should follow immediately after the equal sign");
}

TEST(StartOptions, AValueThatLooksLikeAnOption) {
    auto const result = parse({"--restore", "--ecid", "a"});
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.options.restore, "--ecid");
    EXPECT_FALSE(result.options.ecid);
}

TEST(StartOptions, ASwitchTakesNoValue) {
    expect_refused({"--help=yes"}, 1, "option '--help' does not take any arguments");
}

TEST(StartOptions, WordsThatBelongToNoOptionAreIgnored) {
    auto result = parse({"list-devices", "", "--debug", "surplus", "漢字"});
    EXPECT_EQ(result.code(), 0);
    EXPECT_TRUE(result.options.debug);
    result.options.debug = false;
    expect_nothing_set(result.options);
    expect_nothing_set(parse({"--", "--list-devices"}).options);
}

TEST(StartOptions, NamesMayBeShortenedToWhatIsUnique) {
    EXPECT_TRUE(parse({"--li"}).options.list_devices);
    EXPECT_TRUE(parse({"--dev"}).options.device_info);
    EXPECT_TRUE(parse({"--no-e"}).options.no_exit_recovery);
    EXPECT_EQ(parse({"--ec", "a"}).options.ecid, "a");
    struct row {
        std::string name;
        std::string candidates;
    };
    row const rows[] = {
        {"--re", "'--restore', '--restore-plist', and '--restore-timeout'"},
        {"--restore-", "'--restore-plist', and '--restore-timeout'"},
        {"--deb", "'--debug', and '--debug-dump'"},
        {"--no", "'--no-cleanup', and '--no-exit-recovery'"},
    };
    for (auto const & [name, candidates] : rows) {
        expect_refused({name.c_str(), "x"}, 1,
                       "option '" + name + "' is ambiguous and matches " + candidates);
    }
}

TEST(StartOptions, ErrorsAreTheTools) {
    auto const result = parse({"--frobnicate"});
    EXPECT_EQ(MakeString(CFErrorGetDomain(result.error.get())), "qnrescue");
    EXPECT_EQ(MakeString(adopt(CFErrorCopyDescription(result.error.get())).get()), "Bad command");
    EXPECT_EQ(CFGetRetainCount(result.error.get()), 1);
}

TEST(StartOptions, ValuesAreNotStoredOnceAnErrorIsFound) {
    // The values of options are stored last, after the whole line has been read.
    auto const result = parse({"--ecid", "ab", "--output-pipe", "5", "--frobnicate"});
    EXPECT_EQ(result.code(), 3);
    EXPECT_FALSE(result.options.output_pipe);
    EXPECT_FALSE(result.options.ecid);

    auto const misfit = parse({"--ecid", "ab", "--detect-timeout", "soon"});
    EXPECT_EQ(misfit.code(), 2);
    EXPECT_FALSE(misfit.options.ecid);
}

TEST(StartOptions, TheLogBeginsWithTheCommandLine) {
    tests::temporary_folder const folder;
    auto const log = folder.path() / QN::path_from_utf8("log \xc3\xa9.txt");
    auto const text = QN::path_to_utf8(log);
    EXPECT_FALSE(parse({"--amr-logfile", text.c_str(), "--restore", "a b.ipsw", "--debug"}).error);
    EXPECT_EQ(tests::read_file(log),
              "qnrescue --amr-logfile " + text + " --restore a b.ipsw --debug\n");
}

TEST(StartOptions, ALogThatExistsIsLeftAsItIs) {
    tests::temporary_folder const folder;
    auto const log = folder.path() / "log.txt";
    auto const text = QN::path_to_utf8(log);
    for (std::string const content : {"", "what is there"}) {
        tests::write_file(log, content);
        auto const result = parse({"--amr-logfile", text.c_str()});
        EXPECT_FALSE(result.error);
        EXPECT_EQ(result.options.amr_logfile, text);
        EXPECT_EQ(tests::read_file(log), content);
    }
}

TEST(StartOptions, ALogThatCannotBeMadeIsNoError) {
    tests::temporary_folder const folder;
    auto const text = QN::path_to_utf8(folder.path() / "no folder" / "log.txt");
    auto const result = parse({"--amr-logfile", text.c_str()});
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.options.amr_logfile, text);
    EXPECT_FALSE(parse({"--amr-logfile", ""}).error);
}

#ifndef _WIN32

// As where the disk is full.
class no_room_for_files {
public:
    no_room_for_files() {
        getrlimit(RLIMIT_FSIZE, &limit);
        auto const none = rlimit{0, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
    }
    ~no_room_for_files() {
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, handler);
    }
    no_room_for_files(no_room_for_files const &) = delete;
    no_room_for_files & operator=(no_room_for_files const &) = delete;

private:
    void (*const handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
};

TEST(StartOptions, ALogThatCannotBeWrittenIsNoError) {
    tests::temporary_folder const folder;
    auto const log = folder.path() / "log.txt";
    auto const text = QN::path_to_utf8(log);
    {
        no_room_for_files const full;
        EXPECT_FALSE(parse({"--amr-logfile", text.c_str()}).error);
    }
    EXPECT_EQ(QN::filesystem::file_size(log), 0U);
}

#endif

TEST(StartOptions, NoLogIsMadeOfACommandLineThatCannotBeParsed) {
    tests::temporary_folder const folder;
    auto const log = folder.path() / "log.txt";
    auto const text = QN::path_to_utf8(log);
    EXPECT_TRUE(parse({"--amr-logfile", text.c_str(), "--frobnicate"}).error);
    EXPECT_FALSE(QN::filesystem::exists(log));
}

TEST(StartOptions, NoLogIsMadeWithoutAProgramName) {
    tests::temporary_folder const folder;
    auto const log = folder.path() / "log.txt";
    auto const text = QN::path_to_utf8(log);
    char const * arguments[] = {nullptr, "--amr-logfile", text.c_str(), nullptr};
    auto const [options, table, error] = parse_arguments(3, arguments);
    EXPECT_FALSE(error);
    EXPECT_EQ(options.amr_logfile, text);
    EXPECT_FALSE(QN::filesystem::exists(log));
}

TEST(StartOptions, TheTableListsEveryOptionInItsOrder) {
    struct row {
        char const * name;
        char const * description;
        bool takes_value;
    };
    constexpr row rows[] = {
        {"debug", "Enable debugging output", false},
        {"debug-dump", "Dump mobiledevice implementations (debugging)", false},
        {"help", "Print this description", false},
        {"no-cleanup", "Disable auto temp file cleanup on exit", false},
        {"amr-logfile", "Specify logfile for AMRestore", true},
        {"ecid", "Device to perform operation on", true},
        {"detect-timeout", "How many seconds to wait for the selected device to be detected", true},
        {"list-devices", "List all detected Apple devices", false},
        {"device-info", "Output properties of specified Apple device", false},
        {"exit-recovery", "Attempt to reboot a recovery device into booted mode", false},
        {"no-exit-recovery", "Set a device to stay in recovery mode when it reboots", false},
        {"restore", "Start a device restore with specified IPSW bundle", true},
        {"restore-timeout", "How many seconds to wait for a restore to complete before aborting",
         true},
        {"erase", "Use with --restore to force the device to be erased during the restore", false},
        {"restore-plist", "Start a device restore with options read from a plist file", true},
        {"enter-restore-mode", "Attempt to put a recovery mode device into restore mode", false},
        {"output-pipe", "Send formatted output to a specific pipe", true},
    };
    auto const result = parse({});
    auto const & options = result.table.options();
    ASSERT_EQ(options.size(), std::size(rows));
    for (std::size_t i = 0; i < options.size(); ++i) {
        EXPECT_EQ(options[i]->long_name(), rows[i].name);
        EXPECT_EQ(options[i]->description(), rows[i].description);
        EXPECT_EQ(options[i]->semantic()->max_tokens(), rows[i].takes_value ? 1U : 0U);
        // Without a short name the name for display is the long one.
        EXPECT_EQ(options[i]->format_name(), std::string("--") + rows[i].name);
    }
}

TEST(StartOptions, TheTablePrintsAsHelp) {
    std::ostringstream stream;
    stream << parse({}).table;
    auto const text = stream.str();
    EXPECT_TRUE(text.starts_with("Program options:\n  --debug ")) << text;
    EXPECT_NE(text.find("\n  --output-pipe arg "), std::string::npos) << text;
    EXPECT_TRUE(text.ends_with(" Send formatted output to a specific pipe\n")) << text;
}

TEST(StartOptions, TheTableIsThereAfterAnErrorToo) {
    EXPECT_EQ(parse({"--frobnicate"}).table.options().size(), 17U);
}

// Boost would look for them in its own texts of errors for ever.
TEST(StartOptions, TextsLikeBoostsPlaceholdersAreTakenAsTheyAre) {
    for (std::string const name :
         {"%canonical_option%", "%value%", "%prefix%", "%option%", "%original_token%", "%", "%%",
          "\xc3\xa9%value%%value%\xe6\xbc\xa2"}) {
        auto const option = "--x" + name;
        auto const unknown = parse({option.c_str()});
        EXPECT_EQ(unknown.code(), 3);
        EXPECT_EQ(unknown.reason(), "unrecognised option '" + option + "'");

        auto const no_number = parse({"--detect-timeout", name.c_str()});
        EXPECT_EQ(no_number.code(), 2);
        EXPECT_EQ(no_number.reason(),
                  "the argument ('" + name + "') for option '--detect-timeout' is invalid");

        auto const text = parse({"--restore", name.c_str()});
        EXPECT_EQ(text.code(), 0);
        EXPECT_EQ(text.options.restore, name);
    }
    EXPECT_EQ(parse({"--ecid", "%\xff%\xff\xff"}).options.ecid, "%\xff%\xff\xff");
}

} // namespace
