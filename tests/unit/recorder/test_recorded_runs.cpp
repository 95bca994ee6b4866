// Whole runs of the tool on made-up scenarios are recorded, played and recorded again, in the time
// of the test. QNRESCUE_RECORDER_SCENARIOS says how many, QNRESCUE_RECORDER_FIRST with which seed
// the first is made up.
#include "QNRescue/run_program_main.hpp"
#include "QNRescue/start_options.hpp"
#include "QNRescue/wait_clock.hpp"
#include "recorder/process_session.hpp"
#include "simulator/MobileDevice/simulator.hpp"
#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/output_capture.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/recorder/made_up_session.hpp"
#include "tests/unit/simulator/MobileDevice/manual_clock.hpp"
#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

// Lets the simulator's time pass while the tool waits. The tool takes a moment to wake.
class tool_clock final : public qnrescue::wait_clock {
public:
    time_point now() const override { return test_clock().now(); }

    void sleep_until(time_point end) override {
        while (now() < end) {
            test_clock().step(end);
        }
    }

    void wait_until(std::condition_variable & /*condition*/, std::unique_lock<std::mutex> & lock,
                    time_point end) override {
        lock.unlock();
        test_clock().step(end);
        wake(end);
        lock.lock();
    }

    bool wait_until(std::future<void> const & future, time_point end) override {
        auto const is_ready = [&] { return future.wait_for(0s) == std::future_status::ready; };
        while (!is_ready() && now() < end) {
            test_clock().step(end);
        }
        wake(end);
        return is_ready();
    }

private:
    void wake(time_point end) {
        test_clock().pass(
            std::max<time_point::duration>(0s, std::min<time_point::duration>(1ms, end - now())));
    }
};

// Seconds by which a time of the replay may differ: what happens before the tool waits for it
// spares it a moment.
constexpr double tolerance = 0.005;

// What leaves a run of the tool.
struct tool_run {
    int status;
    std::string documents;
    std::string calls;
    std::string options;
    std::string recording;
};

// Returns the text without the names of scratch folders: a random one, and the number of a restore.
std::string without_scratch(std::string text) {
    constexpr std::string_view folder = "/PRB/";
    for (auto at = text.find(folder); at != std::string::npos; at = text.find(folder, at)) {
        auto const begin = text.rfind('/', at - 1);
        auto const end = text.find_first_not_of("0123456789", at + folder.size());
        text.replace(begin, end - begin, "/scratch");
        at = begin;
    }
    return text;
}

// Returns the documents, without the addresses in descriptions of objects.
std::string without_addresses(std::string documents) {
    for (std::size_t at = 0; (at = documents.find("0x", at)) != std::string::npos; ++at) {
        auto const end = documents.find_first_not_of("0123456789abcdef", at + 2);
        documents.replace(at, end - at, "address");
    }
    return documents;
}

// Returns the calls, without the devices whose state was asked for: the tool asks some for nothing
// else, so that a recording cannot know their ECIDs.
std::string comparable(std::vector<std::string> const & calls) {
    std::string result;
    for (auto const & call : calls) {
        bool const gets_state = call.starts_with("AMRestorableDeviceGetState");
        result += (gets_state ? call.substr(call.find("->")) : call) + '\n';
    }
    return result;
}

// A recording, and the times in it.
struct taken_apart {
    std::string timeless;
    std::vector<double> times;
};

taken_apart take_apart(std::string const & recording) {
    taken_apart result;
    constexpr std::string_view key = "After</key>";
    constexpr std::string_view tag = "<real>";
    std::size_t done = 0;
    for (auto at = recording.find(key); at != std::string::npos; at = recording.find(key, done)) {
        at = recording.find(tag, at) + tag.size();
        result.timeless.append(recording, done, at - done);
        done = recording.find('<', at);
        result.times.push_back(std::stod(recording.substr(at, done - at)));
    }
    result.timeless.append(recording, done);
    return result;
}

// Returns where two texts differ; an empty text where they do not.
std::string difference(std::string const & one, std::string const & other) {
    if (one == other) {
        return "";
    }
    auto const [ours, theirs] = std::ranges::mismatch(one, other);
    auto const around = [&](std::string const & text, auto at) {
        constexpr std::ptrdiff_t context = 400;
        return std::string{at - std::min(context, at - text.begin()),
                           at + std::min(context, text.end() - at)};
    };
    return fmt::format("one:\n{}\nother:\n{}", around(one, ours), around(other, theirs));
}

class RecordedRuns : public testing::Test {
protected:
    RecordedRuns() {
        recorder::set_session_clock([] { return test_clock().now(); });
        tests::set_environment("MOBILEDEVICE_RECORDER_IDENTITIES", "keep");
    }

    ~RecordedRuns() override {
        for (auto const variable : {"FILE", "IDENTITIES"}) {
            tests::set_environment(std::string{"MOBILEDEVICE_RECORDER_"} + variable, "");
        }
        tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", "");
        recorder::set_session_clock(recorder::clock::now);
    }

    // Runs the tool; records the run in this file of the folder, if there is one.
    tool_run run(std::vector<std::string> const & arguments, std::string const & scenario,
                 std::string const & recording) {
        auto const trace = "trace " + recording;
        tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", folder.write(trace, ""));
        tests::set_environment("MOBILEDEVICE_RECORDER_FILE",
                               recording.empty() ? "" : folder.utf8(recording));
        mobile_device::simulator::replace(std::make_unique<mobile_device::simulator>(
            mobile_device::parse_scenario(
                {reinterpret_cast<std::uint8_t const *>(scenario.data()), scenario.size()}),
            test_clock()));
        tests::output_capture output{false};
        auto const status = run_program(arguments, output);
        auto documents = without_addresses(output.out());
        mobile_device::simulator::replace(nullptr);
        recorder::end_process_session();
        return {status, std::move(documents),
                without_scratch(comparable(tests::read_lines(folder / trace))),
                without_scratch(tests::read_file(folder / (trace + ".options.plist"))),
                recording.empty() ? "" : tests::read_file(folder / recording)};
    }

    static int run_program(std::vector<std::string> const & arguments,
                           tests::output_capture & output) {
        std::vector<char const *> argv{"qnrescue"};
        for (auto const & argument : arguments) {
            argv.push_back(argument.c_str());
        }
        auto const [options, table, error] =
            qnrescue::parse_arguments(static_cast<int>(argv.size()), argv.data());
        EXPECT_FALSE(error);
        return qnrescue::runProgramMain(options, table, output.state());
    }

    void expect_round_trip(tests::made_up_session const & made) {
        auto const scenario = property_list::document(made.scenario);
        auto const plain = run(made.arguments, scenario, "");
        auto const first = run(made.arguments, scenario, "first");
        auto const second = run(made.arguments, first.recording, "second");
        expect_same(plain, first);
        expect_same(first, second);
        EXPECT_EQ(first.recording.find("<key>Unplayable"), std::string::npos);
        auto const recorded = take_apart(without_scratch(first.recording));
        auto const again = take_apart(without_scratch(second.recording));
        EXPECT_EQ(difference(recorded.timeless, again.timeless), "");
        ASSERT_EQ(recorded.times.size(), again.times.size());
        double largest = 0;
        for (std::size_t index = 0; index < recorded.times.size(); ++index) {
            largest = std::max(largest, std::abs(recorded.times[index] - again.times[index]));
        }
        EXPECT_LT(largest, tolerance);
        ++statuses[first.status];
        calls.insert(first.recording.size());
    }

    static void expect_same(tool_run const & one, tool_run const & other) {
        EXPECT_EQ(one.status, other.status);
        EXPECT_EQ(difference(one.documents, other.documents), "");
        EXPECT_EQ(difference(one.calls, other.calls), "");
        EXPECT_EQ(difference(one.options, other.options), "");
    }

    tests::temporary_folder folder;
    std::map<int, int> statuses;
    std::set<std::size_t> calls;
};

std::uint64_t number_of(std::string const & variable, std::uint64_t otherwise) {
    auto const value = tests::environment_variable(variable);
    return value.empty() ? otherwise : std::stoull(value);
}

TEST_F(RecordedRuns, AreTheSameWhenTheyArePlayed) {
    auto const first = number_of("QNRESCUE_RECORDER_FIRST", 0);
    auto const count = number_of("QNRESCUE_RECORDER_SCENARIOS", 100);
    for (auto seed = first; seed < first + count && !HasFailure(); ++seed) {
        auto const made = tests::make_up_session(seed, folder.utf8(""));
        SCOPED_TRACE(
            fmt::format("seed {}: {}\n{}", seed, fmt::join(made.arguments, " "), made.scenario));
        expect_round_trip(made);
    }
    // They are not all the same: successes and failures of several kinds.
    EXPECT_GT(statuses[0], 0);
    EXPECT_GE(statuses.size(), 4U);
    EXPECT_GT(calls.size(), count / 2);
}

} // namespace

// The tool's clock is that of the test.
qnrescue::wait_clock & qnrescue::steady_wait_clock() {
    static tool_clock clock;
    return clock;
}
