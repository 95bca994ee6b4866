// Many threads report on restores at once, some of which are complete just when their time is up.
#include "QNRescue/RestorableDeviceHandler.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"
#include "tests/stress/stress.hpp"
#include "tests/unit/helpers/objects.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <deque>
#include <iostream>
#include <memory>
#include <optional>

namespace {

using namespace qnrescue;
using namespace std::chrono_literals;
using namespace tests;

constexpr int reporting_threads = 4;
constexpr int report_count = 100'000;
constexpr int reports_per_restore = 20; // the last of them is the completion

bool completes(int number) {
    return number % reports_per_restore == reports_per_restore - 1;
}

// What a thread reports; its numbers have as many digits as any.
cf_owner<CFDictionaryRef> numbered_report(int thread, int number, bool complete) {
    return plist_dictionary(fmt::format(
        "<dict><key>Status</key><string>{}</string><key>Operation</key><integer>{}</integer>"
        "<key>Progress</key><integer>{}</integer><key>Thread</key><integer>{}</integer>"
        "<key>Number</key><integer>{}</integer></dict>",
        complete ? "Successful" : "Restoring", complete ? 0 : 13, complete ? 100 : 42, thread,
        number));
}

// The document of such a report, but for the two numbers.
class document_pattern {
public:
    explicit document_pattern(bool complete) {
        constexpr std::string_view thread_mark = "<integer>77</integer>";
        constexpr std::string_view number_mark = "<integer>88</integer>";
        output_capture output;
        {
            device_notifier_state notifier(output.state(), std::nullopt, std::nullopt);
            auto const report = numbered_report(77, 88, complete);
            device_notifier_state::restoreCallback(nullptr, report.get(), &notifier);
        }
        auto const text = output.out();
        auto const number_at = text.find(number_mark);
        auto const thread_at = text.find(thread_mark);
        before = text.substr(0, number_at);
        between =
            text.substr(number_at + number_mark.size(), thread_at - number_at - number_mark.size());
        after = text.substr(thread_at + thread_mark.size());
    }

    std::string document(int thread, int number) const {
        return fmt::format("{}<integer>{}</integer>{}<integer>{}</integer>{}", before, number,
                           between, thread, after);
    }

private:
    std::string before;
    std::string between;
    std::string after;
};

constexpr std::string_view end_of_document = "</plist>\n\n";

// The number in the element that follows the key.
int number_of(std::string_view document, std::string_view key) {
    auto const mark = fmt::format("<key>{}</key>\n\t\t<integer>", key);
    auto const at = document.find(mark);
    int number = -1;
    if (at != std::string_view::npos) {
        auto const digits = document.substr(at + mark.size());
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
    }
    return number;
}

// Checks each document, byte by byte: all of a thread's come, in the thread's order.
class document_check {
public:
    void operator()(std::string_view beginning) {
        auto const found = std::string(beginning) + std::string(end_of_document);
        int const thread = number_of(found, "Thread");
        if (thread < 0 || thread >= reporting_threads) {
            wrong.add(found);
            return;
        }
        int const number = next[static_cast<std::size_t>(thread)]++;
        auto const & pattern = completes(number) ? completion : step;
        if (auto const expected = pattern.document(thread, number); found != expected) {
            wrong.add(found + " instead of " + expected);
        }
    }

    void expect_all(int of_each_thread) const {
        EXPECT_EQ(wrong.all(), std::vector<std::string>());
        for (int const count : next) {
            EXPECT_EQ(count, of_each_thread);
        }
    }

private:
    document_pattern const step{false};
    document_pattern const completion{true};
    std::array<int, reporting_threads> next{};
    complaints wrong;
};

// One restore after the other, with a timeout that is short or long in turn, until told to stop.
class short_restores {
public:
    std::atomic<void *> context = nullptr; // of the latest run, which may have gone

    void go_on_until(std::atomic<bool> const & ended) {
        constexpr std::chrono::nanoseconds time_outs[] = {0s, 100us, 1ms, 10ms};
        text = text_through_pipe([&](auto const & output) {
            channel_writer const writer(*output);
            do {
                auto & notifier = runs.emplace_back();
                notifier.emplace(output, std::nullopt, std::nullopt);
                notifier->CreateDefaultRestoreOptions("x.ipsw", false);
                notifier->restoreTimeout = time_outs[count % std::size(time_outs)];
                fake_device_library().on_restore = [this](AMRestorableDeviceProgressCallback,
                                                          void * latest) { context = latest; };
                notifier->operateRestore(nullptr);
                notifier.reset();
                ++count;
            } while (!ended);
        });
    }

    // At most one timeout for each restore, and the reports of a thread in its order.
    void expect_time_outs_and_order() const {
        std::size_t time_outs = 0;
        std::array<int, reporting_threads> latest;
        latest.fill(-1);
        for (auto const & each : parse_documents(text)) {
            if (each.type == "InternalError") {
                ++time_outs;
                continue;
            }
            EXPECT_EQ(each.type, "RestoreStatus");
            auto const report = static_cast<CFDictionaryRef>(each.value.get());
            std::array<int, 2> numbers{-1, -1};
            CFNumberGetValue(
                static_cast<CFNumberRef>(CFDictionaryGetValue(report, CFSTR("Thread"))),
                kCFNumberSInt32Type, &numbers[0]);
            CFNumberGetValue(
                static_cast<CFNumberRef>(CFDictionaryGetValue(report, CFSTR("Number"))),
                kCFNumberSInt32Type, &numbers[1]);
            auto & before = latest.at(static_cast<std::size_t>(numbers[0]));
            EXPECT_LT(before, numbers[1]);
            before = numbers[1];
        }
        EXPECT_GT(time_outs, 0U);
        EXPECT_LE(time_outs, count);
        fmt::print("{} short restores, {} timed out\n", count, time_outs);
    }

private:
    // No run has the address of an earlier one, whose late reports it would take for its own.
    std::deque<std::optional<device_notifier_state>> runs;
    std::string text;
    std::size_t count = 0;
};

TEST(Stress, Reports) {
    int const count = share_of(report_count) / reporting_threads;
    document_check check;
    short_restores short_ones;
    {
        entry_watcher const documents(std::cout, end_of_document, std::ref(check));
        auto const output = std::make_shared<output_str_state>(std::nullopt);
        channel_writer writer(*output);
        device_notifier_state notifier(output, std::nullopt, std::nullopt);
        std::atomic<bool> ended = false;
        std::thread restoring([&] { short_ones.go_on_until(ended); });
        thread_team reporting(reporting_threads, [&](int thread) {
            for (int number = 0; number < count; ++number) {
                auto const report = numbered_report(thread, number, completes(number));
                device_notifier_state::restoreCallback(nullptr, report.get(), &notifier);
                if (void * const other = short_ones.context) {
                    device_notifier_state::restoreCallback(nullptr, report.get(), other);
                }
            }
        });
        reporting.join();
        ended = true;
        restoring.join();
        writer.finish();
        EXPECT_EQ(documents.rest(), "");
    }
    fmt::print("{} reports of each of {} threads\n", count, reporting_threads);
    check.expect_all(count);
    short_ones.expect_time_outs_and_order();
}

} // namespace
