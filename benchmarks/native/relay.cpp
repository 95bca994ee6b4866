// The relay of progress reports:
//   relay/tool      by the tool;
//   relay/baseline  the same calls of the platform, and the same queue and writer;
//   relay/least     one copy, one serialisation and one write.
#include "benchmarks/native/run.hpp"
#include "benchmarks/report_calls.hpp"
#include "platform/cf_collections.hpp"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>

namespace {

using namespace qnrescue;
using benchmarks::file_owner;

constexpr int reports_a_run = 2000;

class tool_relay {
public:
    tool_relay(CFDictionaryRef report, file_owner const & sink)
        : run(sink)
        , step(report) {}

    void relay() { device_notifier_state::restoreCallback(nullptr, step, &run.notifier); }
    void finish() { run.output.finish(); }

private:
    benchmarks::notifier_run run;
    CFDictionaryRef step;
};

class baseline_relay {
public:
    baseline_relay(CFDictionaryRef report, file_owner const & sink)
        : lines(sink)
        , step(report) {}

    void relay() { benchmarks::hand_over_report(step, lines); }
    void finish() { lines.finish(); }

private:
    benchmarks::file_lines lines;
    CFDictionaryRef step;
};

class least_relay {
public:
    least_relay(CFDictionaryRef report, file_owner const & sink)
        : sink_number(fileno(sink.get()))
        , step(adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, report)))
        , document(make_mutable_dictionary()) {
        CFDictionarySetValue(step.get(), CFSTR("QN_OperationName"), CFSTR("Restoring image"));
        CFDictionarySetValue(document.get(), CFSTR("Type"), CFSTR("RestoreStatus"));
        CFDictionarySetValue(document.get(), CFSTR("Value"), step.get());
    }

    void relay() {
        auto const copy = adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, step.get()));
        auto const data = adopt(CFPropertyListCreateData(
            kCFAllocatorDefault, document.get(), kCFPropertyListXMLFormat_v1_0, 0, nullptr));
        if (write(sink_number, CFDataGetBytePtr(data.get()),
                  static_cast<std::size_t>(CFDataGetLength(data.get()))) < 0) {
            throw std::runtime_error("the document cannot be written");
        }
    }
    void finish() {}

private:
    int sink_number;
    cf_owner<CFMutableDictionaryRef> step;
    cf_owner<CFMutableDictionaryRef> document;
};

template <typename Relay>
std::string output_of_three_reports() {
    auto const report = benchmarks::make_report();
    auto const sink = benchmarks::open_temporary_file();
    Relay subject(report.get(), sink);
    for (int i = 0; i < 3; ++i) {
        subject.relay();
    }
    subject.finish();
    return benchmarks::content(sink);
}

void require_same_output() {
    auto const expected = output_of_three_reports<baseline_relay>();
    if (expected.empty() || output_of_three_reports<tool_relay>() != expected) {
        throw std::runtime_error("the tool and the baseline write different documents");
    }
}

template <typename Relay>
void relay(benchmark::State & state) {
    require_same_output();
    auto const report = benchmarks::make_report();
    auto const sink = benchmarks::open_null_device();
    for (auto _ : state) {
        Relay subject(report.get(), sink);
        auto const begin = std::chrono::steady_clock::now();
        for (int i = 0; i < reports_a_run; ++i) {
            subject.relay();
        }
        subject.finish();
        std::chrono::duration<double> const taken = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(taken.count() / reports_a_run);
    }
}

BENCHMARK(relay<tool_relay>)->Name("relay/tool")->UseManualTime()->Iterations(20);
BENCHMARK(relay<baseline_relay>)->Name("relay/baseline")->UseManualTime()->Iterations(20);
BENCHMARK(relay<least_relay>)->Name("relay/least")->UseManualTime()->Iterations(20);

} // namespace
