#include "tests/unit/helpers/output_capture.hpp"

#include "QNRescue/start_options.hpp"
#include "tests/unit/helpers/overlapped_pipe.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/system/system_error.hpp>

#include <fmt/format.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <iostream>
#include <optional>
#include <streambuf>
#include <utility>

namespace {

using namespace qnrescue;
using tests::captured_streams;
using tests::lines_of;
using tests::output_capture;
using tests::overlapped_pipe;
using tests::slow_reader;
using strings = std::vector<std::string>;

// Lets a channel write what it has queued, on this thread.
void write_all(output_str_state & state) {
    state.quit();
    state.loop();
}

TEST(OutputChannel, EachEntryEndsWithOneLineFeed) {
    output_capture capture;
    capture.state()->print("first");
    capture.state()->print("");
    capture.state()->print("two\nlines\n");
    capture.state()->print_debug("debug");
    capture.state()->print_debug("");
    EXPECT_EQ(capture.out(), "first\n\ntwo\nlines\n\n");
    EXPECT_EQ(capture.streams.err.text(), "debug\n\n");
}

TEST(OutputChannel, PassesBytesThroughUnchanged) {
    output_capture capture;
    std::string text;
    for (int byte = 0; byte < 256; ++byte) {
        text += static_cast<char>(byte);
    }
    capture.state()->print(text);
    capture.state()->print_debug(text);
    EXPECT_EQ(capture.out(), text + '\n');
    EXPECT_EQ(capture.streams.err.text(), text + '\n');
}

TEST(OutputChannel, DebugLinesAreDroppedUnlessSwitchedOn) {
    output_capture capture(false);
    capture.state()->print_debug("debug");
    capture.state()->print("normal");
    EXPECT_EQ(capture.out(), "normal\n");
    EXPECT_EQ(capture.streams.err.text(), "");
}

TEST(OutputChannel, DroppedDebugLinesAreGoneForGood) {
    output_capture capture(false);
    capture.state()->print_debug("dropped");
    capture.state()->print("handled");
    ASSERT_TRUE(capture.streams.out.wait_for("handled"));
    capture.state()->set_debug(true);
    capture.state()->print_debug("written");
    EXPECT_EQ(capture.debug_lines(), strings{"written"});
}

TEST(OutputChannel, DebugIsLookedAtWhenALineIsWritten) {
    captured_streams streams;
    output_str_state state(std::nullopt);
    state.print_debug("queued before");
    state.set_debug(true);
    write_all(state);
    EXPECT_EQ(streams.err.text(), "queued before\n");
}

TEST(OutputChannel, QuitWritesAllThatIsQueued) {
    captured_streams streams;
    output_str_state state(std::nullopt);
    for (int i = 0; i < 1000; ++i) {
        state.print(std::to_string(i));
    }
    write_all(state);
    auto const lines = lines_of(streams.out.text());
    ASSERT_EQ(lines.size(), 1000U);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i], std::to_string(i));
    }
}

TEST(OutputChannel, ABatchIsFlushedOnce) {
    captured_streams streams;
    output_str_state state(std::nullopt);
    for (int i = 0; i < 1000; ++i) {
        state.print("line");
        state.print_debug("line");
    }
    state.set_debug(true);
    write_all(state);
    EXPECT_EQ(streams.out.flush_count(), 1);
    EXPECT_EQ(streams.err.flush_count(), 1);
}

// Notes its name for each flush.
class flush_recorder : public std::streambuf {
public:
    flush_recorder(std::string stream, strings & log)
        : name(std::move(stream))
        , flushed(log) {}

protected:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    int sync() override {
        flushed.push_back(name);
        return 0;
    }

private:
    std::string const name;
    strings & flushed;
};

TEST(OutputChannel, FlushesStandardOutputBeforeStandardError) {
    captured_streams const streams;
    strings flushed;
    flush_recorder out("out", flushed);
    flush_recorder err("err", flushed);
    std::cout.rdbuf(&out);
    std::cerr.rdbuf(&err);
    output_str_state state(std::nullopt);
    state.set_debug(true);
    state.print_debug("debug");
    state.print("normal");
    write_all(state);
    EXPECT_EQ(flushed, (strings{"out", "err"}));
}

TEST(OutputChannel, DoesNotMindStreamsThatHaveFailed) {
    captured_streams streams;
    output_str_state state(std::nullopt);
    state.set_debug(true);
    std::cout.setstate(std::ios::badbit);
    state.print("normal");
    state.print_debug("debug");
    EXPECT_NO_THROW(write_all(state));
    std::cout.clear();
    EXPECT_EQ(streams.out.text(), "");
    EXPECT_EQ(streams.err.text(), "debug\n");
}

TEST(OutputChannel, ProducersWaitForTheBatchThatIsWritten) {
    captured_streams const streams;
    slow_reader reader;
    std::cout.rdbuf(&reader);
    output_str_state state(std::nullopt);
    state.print("held up");
    auto writing = std::async(std::launch::async, [&] { state.loop(); });
    reader.reached.get_future().wait();
    auto printing = std::async(std::launch::async, [&] { state.print("next"); });
    EXPECT_EQ(printing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    reader.let_go.set_value();
    EXPECT_EQ(printing.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    state.quit();
    writing.wait();
}

TEST(OutputChannel, WhatIsWrittenIsFlushedWhileTheRunGoesOn) {
    output_capture capture;
    capture.state()->print("document");
    ASSERT_TRUE(capture.streams.out.wait_for("document\n"));
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (capture.streams.out.flush_count() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_GE(capture.streams.out.flush_count(), 1);
}

TEST(OutputChannel, QuitWithNothingQueuedWritesNothing) {
    captured_streams streams;
    output_str_state state(std::nullopt);
    write_all(state);
    EXPECT_EQ(streams.out.text(), "");
    EXPECT_EQ(streams.err.text(), "");
}

TEST(OutputChannel, QuitWakesAWriterThatWaits) {
    captured_streams const streams;
    output_str_state state(std::nullopt);
    auto writing = std::async(std::launch::async, [&] { state.loop(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(writing.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    state.quit();
    EXPECT_EQ(writing.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

TEST(OutputChannel, LinesAfterTheLoopAreNotWritten) {
    output_capture capture;
    capture.state()->print("before");
    capture.finish();
    capture.state()->print("after");
    capture.state()->print_debug("after");
    EXPECT_EQ(capture.out(), "before\n");
    EXPECT_EQ(capture.streams.err.text(), "");
}

// --- Many threads

constexpr int producer_count = 8;
constexpr int lines_per_producer = 500;

std::string line_of(int producer, int number) {
    return fmt::format("{} {} {}", producer, number, std::string(40, 'x'));
}

void expect_whole_and_in_order(strings const & lines) {
    std::vector<int> next(producer_count, 0);
    for (auto const & line : lines) {
        auto const producer = static_cast<std::size_t>(line.at(0) - '0');
        ASSERT_LT(producer, next.size()) << line;
        ASSERT_EQ(line, line_of(static_cast<int>(producer), next[producer]));
        ++next[producer];
    }
    EXPECT_EQ(next, std::vector<int>(producer_count, lines_per_producer));
}

TEST(OutputChannel, ManyProducersKeepTheirOrder) {
    output_capture capture;
    std::vector<std::thread> producers;
    for (int producer = 0; producer < producer_count; ++producer) {
        producers.emplace_back([&capture, producer] {
            for (int number = 0; number < lines_per_producer; ++number) {
                capture.state()->print(line_of(producer, number));
                capture.state()->print_debug(line_of(producer, number));
            }
        });
    }
    for (auto & producer : producers) {
        producer.join();
    }
    expect_whole_and_in_order(lines_of(capture.out()));
    expect_whole_and_in_order(capture.debug_lines());
}

// --- The pipe

// A channel into a pipe, as the option makes it.
struct piped_channel {
    explicit piped_channel(std::int32_t number)
        : state(make_output_state(context.get_executor(), options_for(number))) {}

    static start_options options_for(std::int32_t number) {
        start_options options;
        options.output_pipe = number;
        return options;
    }

    captured_streams streams;
    boost::asio::io_context context;
    std::shared_ptr<output_str_state> state;
};

TEST(OutputPipe, TakesNormalLinesAndStandardErrorDebugLines) {
    overlapped_pipe pipe;
    piped_channel channel(pipe.writing_end());
    channel.state->set_debug(true);
    channel.state->print("first");
    channel.state->print_debug("debug");
    channel.state->print("");
    channel.state->print("two\nlines");
    pipe.start_reading();
    write_all(*channel.state);
    channel.state.reset();
    EXPECT_EQ(pipe.read_to_end(), "first\n\ntwo\nlines\n");
    EXPECT_EQ(channel.streams.out.text(), "");
    EXPECT_EQ(channel.streams.err.text(), "debug\n");
}

TEST(OutputPipe, TakesLongEntriesWhole) {
    overlapped_pipe pipe;
    piped_channel channel(pipe.writing_end());
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += std::to_string(i) + ' ';
    }
    channel.state->print(text);
    channel.state->print("end");
    pipe.start_reading();
    write_all(*channel.state);
    channel.state.reset();
    EXPECT_EQ(pipe.read_to_end(), text + "\nend\n");
}

TEST(OutputPipe, IsClosedWithTheChannel) {
    overlapped_pipe pipe;
    piped_channel channel(pipe.writing_end());
    auto reading = std::async(std::launch::async, [&] { return pipe.read_to_end(); });
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    channel.state.reset();
    ASSERT_EQ(reading.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(reading.get(), "");
}

void expect_failing_write(output_str_state & state) {
    try {
        write_all(state);
        FAIL();
    } catch (boost::system::system_error const & exception) {
        std::string const text = exception.what();
        EXPECT_TRUE(text.starts_with("write: ")) << text;
        EXPECT_EQ(text.find(".hpp"), std::string::npos) << text;
        EXPECT_EQ(text.find(".ipp"), std::string::npos) << text;
    }
}

TEST(OutputPipe, ThatIsBrokenThrowsFromTheLoop) {
    overlapped_pipe pipe;
    piped_channel channel(pipe.writing_end());
    pipe.close_reading_end();
    channel.state->print("text");
    expect_failing_write(*channel.state);
    EXPECT_EQ(channel.streams.out.text(), "");
}

TEST(OutputPipe, ThatIsBrokenTakesNoDebugLineOfTheBatchWithIt) {
    overlapped_pipe pipe;
    piped_channel channel(pipe.writing_end());
    pipe.close_reading_end();
    channel.state->set_debug(true);
    channel.state->print_debug("before");
    channel.state->print("text");
    channel.state->print_debug("after");
    channel.state->print("more text");
    channel.state->print_debug("last");
    expect_failing_write(*channel.state);
    EXPECT_EQ(channel.streams.err.text(), "before\nafter\nlast\n");
    EXPECT_EQ(channel.streams.err.flush_count(), 1);
    EXPECT_EQ(channel.streams.out.text(), "");
}

TEST(OutputPipe, ThatIsBrokenWritesNoDebugLineThatIsSwitchedOff) {
    overlapped_pipe pipe;
    piped_channel channel(pipe.writing_end());
    pipe.close_reading_end();
    channel.state->print("text");
    channel.state->print_debug("after");
    expect_failing_write(*channel.state);
    EXPECT_EQ(channel.streams.err.text(), "");
}

TEST(OutputPipe, ThatIsNoHandleShowsAtTheFirstNormalLineOnly) {
    piped_channel channel(99999);
    channel.state->set_debug(true);
    channel.state->print_debug("debug");
    channel.state->quit();
    EXPECT_NO_THROW(channel.state->loop());
    EXPECT_EQ(channel.streams.err.text(), "debug\n");
    channel.state->print("text");
    expect_failing_write(*channel.state);
    EXPECT_EQ(channel.streams.out.text(), "");
}

TEST(OutputPipe, MayHaveANegativeNumber) {
    piped_channel channel(-5);
    channel.state->print("text");
    expect_failing_write(*channel.state);
}

TEST(OutputPipe, IsNotThereWithoutTheOption) {
    captured_streams streams;
    boost::asio::io_context context;
    auto const state = make_output_state(context.get_executor(), start_options());
    state->print("text");
    write_all(*state);
    EXPECT_EQ(streams.out.text(), "text\n");
}

} // namespace
