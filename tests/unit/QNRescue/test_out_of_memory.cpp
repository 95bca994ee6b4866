// What becomes of the tool where memory runs out. Functions of the error domain are the end of the
// process then; any other throws std::bad_alloc or reports it, and leaves all as it was.
#include "platform/cf_strings.hpp"
#include "tests/unit/QNRescue/allocation_failure.hpp"
#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include "QNRescue/MobileDeviceDebug.hpp"
#include "QNRescue/device_info.hpp"
#include "QNRescue/restore_options_file.hpp"
#include "QNRescue/run_program_main.hpp"
#include "QNRescue/sanitize_for_xml.hpp"
#include "QNRescue/start_options.hpp"

#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>
#include <vector>

namespace {

using namespace qnrescue;
using namespace tests;

constexpr std::uint64_t device = 0xA1;

[[maybe_unused]] bool const playing = play_scenario(fmt::format(
    "<dict><key>TimeScale</key><integer>0</integer><key>Devices</key><array>"
    "<dict><key>ECID</key><string>A1</string>"
    "<key>SerialNumber</key><string>a serial number that is no short text</string>"
    "<key>ProductString</key><string>a product whose name is no short text</string></dict>"
    "<dict><key>ECID</key><string>D1</string>{}</dict></array></dict>",
    completes_at_once));

// Fails each allocation and prints the figures of this test.
trial_counts count_trials(std::function<bool(trial & run)> const & function) {
    auto const counts = fail_each_allocation(function);
    fmt::print("{}: {} allocations: {} completed, {} threw, {} ended, {} wrong\n",
               testing::UnitTest::GetInstance()->current_test_info()->name(), counts.all(),
               counts.completed, counts.threw, counts.ended, counts.wrong);
    EXPECT_EQ(counts.wrong, 0U);
    EXPECT_GT(counts.all(), 0U);
    return counts;
}

void expect_no_end(trial_counts const & counts) {
    EXPECT_EQ(counts.ended, 0U);
}

bool is_out_of_memory(CFErrorRef error) {
    return CFErrorGetCode(error) == static_cast<CFIndex>(Error::unknown) &&
           MakeString(adopt(CFErrorCopyFailureReason(error)).get()) == "std::bad_alloc";
}

// --- The command line

using arguments = std::vector<char const *>;
using parsed = decltype(parse_arguments(0, nullptr));

parsed parse(arguments & line) {
    return parse_arguments(static_cast<int>(line.size()), line.data());
}

auto values(start_options const & options) {
    return std::tie(options.list_devices, options.ecid, options.detect_timeout, options.restore,
                    options.restore_timeout, options.erase, options.amr_logfile,
                    options.output_pipe);
}

TEST(Memory, ArgumentsThatAreRight) {
    arguments line{"qnrescue",
                   "--restore",
                   "a rather long path to a restore bundle.ipsw",
                   "--erase",
                   "--ecid",
                   "00000000000000A1",
                   "--debug",
                   "--restore-timeout",
                   "600"};
    auto const wanted = parse(line);
    auto const counts = count_trials([&](trial & run) {
        std::optional<parsed> result;
        if (!run.completes([&] { result.emplace(parse(line)); })) {
            return true;
        }
        auto const & [options, table, error] = *result;
        return error ? is_out_of_memory(error.get())
                     : values(options) == values(std::get<0>(wanted));
    });
    EXPECT_EQ(counts.completed, counts.all());
}

TEST(Memory, ArgumentsThatAreWrong) {
    for (auto line : {arguments{"qnrescue", "--an-option-that-there-is-not"},
                      arguments{"qnrescue", "--ecid", "1", "--ecid", "2"},
                      arguments{"qnrescue", "--detect-timeout", "soon"},
                      arguments{"qnrescue", "--list-devices", "--restore"}}) {
        count_trials([&](trial & run) {
            std::optional<parsed> result;
            bool const done = run.completes([&] { result.emplace(parse(line)); });
            return !done || std::get<2>(*result) != nullptr;
        });
    }
}

TEST(Memory, FirstLineOfTheLog) {
    auto const counts = count_trials([&](trial & run) {
        temporary_folder const folder;
        auto const path = (folder.path() / "a log file.txt").string();
        arguments line{"qnrescue", "--list-devices", "--amr-logfile", path.c_str()};
        std::optional<parsed> result;
        run.completes([&] { result.emplace(parse(line)); });
        auto const text = read_file(folder.path() / "a log file.txt");
        return text.empty() || text == "qnrescue --list-devices --amr-logfile " + path + "\n";
    });
    EXPECT_EQ(counts.completed, counts.all());
}

// --- Output

TEST(Memory, DocumentsArePrintedOrNot) {
    count_trials([](trial & run) {
        auto const value = plist("<dict><key>a</key><array><integer>1</integer></array></dict>");
        output_capture output;
        run.completes([&] { output.state()->print_value(CFSTR("Type"), value.get()); });
        output.state()->print_value(CFSTR("Next"), kCFBooleanTrue);
        auto const documents = output.documents(); // throws where one is not whole
        return documents.size() == (run.completed() ? 2U : 1U) && documents.back().type == "Next";
    });
}

TEST(Memory, ErrorsArePrintedOrNot) {
    count_trials([](trial & run) {
        auto const error = CreateDomainError(Error::bad_state, "the reason why it is so");
        output_capture output;
        run.completes([&] { output.state()->print_formatted_error(error.get()); });
        return output.documents().size() == (run.completed() ? 1U : 0U);
    });
}

TEST(Memory, DebugLines) {
    expect_no_end(count_trials([](trial & run) {
        output_capture output;
        run.completes([&] { output.state()->print_debug("a line that is no short text at all"); });
        return output.debug_lines().size() == (run.completed() ? 1U : 0U);
    }));
}

TEST(Memory, Dumps) {
    count_trials([](trial & run) {
        constexpr int code_count = 4;
        auto dump = operation_dump;
        dump.code_count = code_count;
        output_capture output;
        run.completes([&] { print_dump(*output.state(), dump); });
        constexpr std::size_t lines = code_count + 2; // a header, and an empty line at the end
        auto const printed = output.debug_lines().size();
        return run.completed() ? printed == lines : printed < lines;
    });
}

// --- Values

cf_owner<CFTypeRef> report_with_everything() {
    auto const error = CreateDomainError(Error::bad_state, "the reason why it is so");
    auto const list = plist("<array><string>a</string><dict><key>b</key><true/></dict></array>");
    return make_dictionary({{CFSTR("Status"), CFSTR("Restoring")},
                            {CFSTR("Error"), error.get()},
                            {CFSTR("List"), list.get()}});
}

TEST(Memory, SanitizedValues) {
    expect_no_end(count_trials([](trial & run) {
        auto const value = report_with_everything();
        auto const wanted = sanitize_for_xml(value.get(), on_error::skip);
        cf_owner<CFTypeRef> result;
        run.completes([&] { result = sanitize_for_xml(value.get(), on_error::skip); });
        return run.completed() ? equal(result.get(), wanted.get()) : result == nullptr;
    }));
}

TEST(Memory, DeviceProperties) {
    expect_no_end(count_trials([](trial & run) {
        auto const subject = device_with(device);
        QN::ecid const ecid(device);
        cf_owner<CFDictionaryRef> result;
        run.completes([&] { result = make_cftype(read_device_info(subject, ecid)); });
        return run.completed() ? CFDictionaryGetCount(result.get()) == 9 : result == nullptr;
    }));
}

TEST(Memory, ListsOfDevices) {
    std::vector<QN::ecid> const ecids{QN::ecid(1), QN::ecid(2)};
    auto const counts = fail_each_allocation([&](trial & run) {
        cf_owner<CFArrayRef> result;
        run.completes([&] { result = make_cftype(ecids); });
        return CFArrayGetCount(result.get()) == 2;
    });
    EXPECT_EQ(counts.all(), 0U);
}

// --- The notifier and its callbacks

TEST(Memory, Notifiers) {
    expect_no_end(count_trials([](trial & run) {
        output_capture output;
        temporary_folder const folder;
        std::optional<device_notifier_state> notifier;
        auto const log_file = folder.path() / "log.txt";
        run.completes([&] { notifier.emplace(output.state(), log_file, std::nullopt); });
        return run.completed() == notifier.has_value();
    }));
}

TEST(Memory, NotifiersThatCannotRemoveTheirScratchFolder) {
    expect_no_end(count_trials([](trial & run) {
        output_capture output;
        QN::filesystem::path const scratch = std::string(1000, 'x'); // too long a name
        auto notifier =
            std::make_shared<device_notifier_state>(output.state(), std::nullopt, scratch);
        run.completes([&] { notifier.reset(); });
        return run.completed();
    }));
}

// The table after a callback that may have thrown holds this device or none; later ones work.
bool consistent(notifier_run & run, AMRestorableDeviceRef subject) {
    for (auto const & [ecid, entry] : run.notifier.devices) {
        if (entry.get() != subject) {
            return false;
        }
    }
    run.notify(subject);
    bool const added = run.notifier.devices.size() == 1;
    run.notify(subject, kAMRestorableDeviceDisconnected);
    return added && run.notifier.devices.empty();
}

TEST(Memory, DevicesThatConnect) {
    expect_no_end(count_trials([](trial & attempt) {
        auto const subject = device_with(device);
        notifier_run run;
        attempt.completes([&] { run.notify(subject); });
        bool const there = run.notifier.devices.size() == 1;
        return (there || !attempt.completed()) && consistent(run, subject);
    }));
}

TEST(Memory, DevicesThatConnectAgain) {
    expect_no_end(count_trials([](trial & attempt) {
        auto const subject = device_with(device);
        notifier_run run;
        run.notify(subject);
        attempt.completes([&] { run.notify(subject); });
        return run.notifier.devices.size() == 1 && consistent(run, subject);
    }));
}

TEST(Memory, DevicesThatDisconnect) {
    expect_no_end(count_trials([](trial & attempt) {
        auto const subject = device_with(device);
        notifier_run run;
        run.notify(subject);
        attempt.completes([&] { run.notify(subject, kAMRestorableDeviceDisconnected); });
        bool const gone = run.notifier.devices.empty();
        return (gone || !attempt.completed()) && consistent(run, subject);
    }));
}

TEST(Memory, Reports) {
    count_trials([](trial & attempt) {
        auto const status =
            plist("<dict><key>Status</key><string>Restoring, and more than that</string>"
                  "<key>Operation</key><integer>5</integer>"
                  "<key>Progress</key><integer>10</integer></dict>");
        auto const dictionary = static_cast<CFDictionaryRef>(status.get());
        notifier_run run;
        attempt.completes([&] { run.report(dictionary); });
        run.report(dictionary);
        auto const documents = run.output.documents().size();
        return documents == (attempt.completed() ? 2U : 1U);
    });
}

// --- Restore options

TEST(Memory, DefaultRestoreOptions) {
    expect_no_end(count_trials([](trial & attempt) {
        notifier_run run;
        QN::filesystem::path const bundle("a rather long path to a restore bundle.ipsw");
        attempt.completes([&] { run.notifier.CreateDefaultRestoreOptions(bundle, true); });
        return attempt.completed() == (run.notifier.restoreOptions != nullptr);
    }));
}

TEST(Memory, RestoreOptionsFiles) {
    count_trials([](trial & attempt) {
        temporary_folder const folder;
        auto const path = folder.path() / "options.plist";
        write_file(path, "<plist><dict><key>a</key><string>b</string></dict></plist>");
        cf_owner<CFDictionaryRef> options;
        tool_error error{0, ""};
        attempt.completes([&] { error = error_of([&] { options = read_restore_options(path); }); });
        return !attempt.completed() || (error.code == 8) == (options == nullptr);
    });
}

// What is read and what is refused: the rest of the memory is CoreFoundation's.
TEST(Memory, RestoreOptionsFilesAreHeldOnce) {
    constexpr std::size_t size = 16 << 20; // bytes
    constexpr std::size_t slack = 64 << 10;
    temporary_folder const folder;
    auto const path = folder.path() / "options.plist";
    for (auto const & content :
         {"<plist><dict><key>k</key><data>" + std::string(size, 'A') + "</data></dict></plist>",
          std::string(size, '%')}) {
        write_file(path, content);
        auto const before = allocated_bytes();
        error_of([&] { read_restore_options(path); });
        auto const allocated = allocated_bytes() - before;
        fmt::print("{} bytes for a file of {} bytes\n", allocated, content.size());
        EXPECT_GE(allocated, content.size());
        EXPECT_LT(allocated, content.size() + slack);
    }
}

// --- Whole runs

struct program_run {
    std::optional<int> status; // none where it threw
    std::vector<std::string> types;
};

program_run run_program(trial & attempt, arguments line) {
    line.insert(line.begin(), "qnrescue");
    auto const [options, table, error] = parse(line);
    output_capture output;
    program_run result;
    attempt.completes([&] { result.status = runProgramMain(options, table, output.state()); });
    for (auto const & document : output.documents()) {
        result.types.push_back(document.type);
    }
    return result;
}

// A run prints its documents and ends with 0, or has the status of an unknown error and at most one
// document of it; it throws nothing.
void expect_all_or_error(arguments const & line, std::vector<std::string> const & documents) {
    count_trials([&](trial & attempt) {
        auto const run = run_program(attempt, line);
        auto const errors = std::ranges::count(run.types, "InternalError");
        return run.status == 0 ? run.types == documents : run.status == 1 && errors <= 1;
    });
}

TEST(Memory, RunsThatListDevices) {
    expect_all_or_error({"--list-devices", "--detect-timeout", "0"}, {"DeviceList"});
}

TEST(Memory, RunsThatReadADevice) {
    expect_all_or_error({"--device-info", "--ecid", "00000000000000A1"}, {"DeviceInfo"});
}

TEST(Memory, RunsThatCommandADevice) {
    expect_all_or_error({"--exit-recovery", "--ecid", "00000000000000A1"}, {"CommandSuccess"});
}

TEST(Memory, RunsThatRestore) {
    expect_all_or_error({"--restore", "x.ipsw", "--ecid", "00000000000000D1"}, {"RestoreStatus"});
}

TEST(Memory, RunsThatPrintHelp) {
    expect_all_or_error({"--help"}, {});
}

} // namespace
