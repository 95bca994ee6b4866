// The relay of progress reports, beside the calls that no relay can do without.
#include "benchmarks/native/run.hpp"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace {

using namespace qnrescue;

constexpr int reports_a_run = 2000;

cf_owner<CFNumberRef> number(std::int32_t value) {
    return adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

// As the restore library reports a step.
cf_owner<CFMutableDictionaryRef> make_report() {
    auto report = make_mutable_dictionary();
    CFDictionarySetValue(report.get(), CFSTR("Status"), CFSTR("Restoring"));
    CFDictionarySetValue(report.get(), CFSTR("Operation"), number(13).get());
    CFDictionarySetValue(report.get(), CFSTR("Progress"), number(48).get());
    return report;
}

void relay_by_tool(benchmark::State & state) {
    auto const report = make_report();
    for (auto _ : state) {
        benchmarks::notifier_run run;
        auto const begin = std::chrono::steady_clock::now();
        for (int i = 0; i < reports_a_run; ++i) {
            device_notifier_state::restoreCallback(nullptr, report.get(), &run.notifier);
        }
        run.output.finish();
        std::chrono::duration<double> const taken = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(taken.count() / reports_a_run);
    }
}

void relay_bare(benchmark::State & state) {
    auto const report = make_report();
    CFDictionarySetValue(report.get(), CFSTR("QN_OperationName"), CFSTR("Restoring image"));
    auto const document = make_mutable_dictionary();
    CFDictionarySetValue(document.get(), CFSTR("Type"), CFSTR("RestoreStatus"));
    CFDictionarySetValue(document.get(), CFSTR("Value"), report.get());
    int const sink = benchmarks::open_null_device();
    for (auto _ : state) {
        auto const begin = std::chrono::steady_clock::now();
        for (int i = 0; i < reports_a_run; ++i) {
            auto const copy =
                adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, report.get()));
            auto const data = adopt(CFPropertyListCreateData(
                kCFAllocatorDefault, document.get(), kCFPropertyListXMLFormat_v1_0, 0, nullptr));
            if (write(sink, CFDataGetBytePtr(data.get()),
                      static_cast<std::size_t>(CFDataGetLength(data.get()))) < 0) {
                throw std::runtime_error("the null device cannot be written");
            }
        }
        std::chrono::duration<double> const taken = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(taken.count() / reports_a_run);
    }
    close(sink);
}

BENCHMARK(relay_by_tool)->Name("relay/tool")->UseManualTime()->Iterations(20);
BENCHMARK(relay_bare)->Name("relay/bare")->UseManualTime()->Iterations(20);

} // namespace
