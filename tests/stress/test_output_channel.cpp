// Producers that race the end of the output channel.
#include "tests/stress/stress.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <sstream>

namespace {

using namespace qnrescue;
using namespace tests;

constexpr int producer_count = 8;
constexpr int round_count = 1000;
constexpr int most_lines = 500; // of a producer in a round

std::string line_of(int producer, int number) {
    return fmt::format("{} {} {}", producer, number, std::string(60, 'x'));
}

// For each producer, how many of its lines are written at least: those that print() had taken
// before quit() was called.
using counts = std::array<int, producer_count>;

counts race_quit(output_str_state & output, std::chrono::microseconds quits_after) {
    counts taken_before_quit{};
    std::atomic<bool> quitting = false;
    channel_writer writer(output);
    thread_team producers(producer_count, [&](int producer) {
        for (int number = 0; number < most_lines; ++number) {
            output.print(line_of(producer, number));
            if (!quitting) {
                taken_before_quit[static_cast<std::size_t>(producer)] = number + 1;
            }
        }
    });
    std::this_thread::sleep_for(quits_after);
    quitting = true;
    writer.finish();
    producers.join();
    return taken_before_quit;
}

// Each producer's lines are whole and come in its order, none left out before the last.
void expect_written(std::string const & text, counts const & at_least) {
    counts written{};
    for (auto const & line : lines_of(text)) {
        auto const producer = line.at(0) - '0';
        ASSERT_EQ(line, line_of(producer, written.at(static_cast<std::size_t>(producer))++));
    }
    for (std::size_t producer = 0; producer < written.size(); ++producer) {
        EXPECT_GE(written[producer], at_least[producer]);
    }
}

std::chrono::microseconds moment_of(int round) {
    return std::chrono::microseconds(round % 20 * 100);
}

TEST(Stress, ProducersRaceTheEndOfStandardOutput) {
    for (int round = 0; round < share_of(round_count); ++round) {
        captured_streams const streams;
        output_str_state output(std::nullopt);
        auto const at_least = race_quit(output, moment_of(round));
        expect_written(streams.out.text(), at_least);
    }
}

TEST(Stress, ProducersRaceTheEndOfThePipe) {
    for (int round = 0; round < share_of(round_count); ++round) {
        counts at_least{};
        auto const text = text_through_pipe(
            [&](auto const & output) { at_least = race_quit(*output, moment_of(round)); });
        expect_written(text, at_least);
    }
}

} // namespace
