// What recording adds to a call and to a report:
//   call/plain, report/plain        of a library that does nothing;
//   call/recorded, report/recorded  through the recorder, whose thread waits with the file
//   meanwhile;
//   report/recorded_late            the same in a long session, while another thread makes the text
//   of the file over and over;
//   recording/REPORTS               what the file's thread does to write a session of so many.
#include "benchmarks/report_calls.hpp"
#include "recorder/functions.hpp"
#include "recorder/make_scenario.hpp"
#include "recorder/process_session.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include <unistd.h>

namespace {

using namespace qnrescue;

constexpr int calls_a_session = 2000;
constexpr int reports_of_a_long_session = 30'000;

// A session whose file is among the temporary files, and is removed with it.
class recorded_session {
public:
    recorded_session() {
        setenv(variable, file.c_str(), 1);
        recorder::end_process_session();
        if (recorder::process_session() == nullptr) {
            throw std::runtime_error("nothing is recorded");
        }
    }
    recorded_session(recorded_session const &) = delete;
    recorded_session & operator=(recorded_session const &) = delete;
    ~recorded_session() {
        recorder::end_process_session();
        unsetenv(variable);
        std::error_code ignored;
        std::filesystem::remove(file, ignored);
    }

private:
    static constexpr auto variable = "MOBILEDEVICE_RECORDER_FILE";
    std::filesystem::path const file = std::filesystem::temp_directory_path() /
                                       ("recorded_calls." + std::to_string(getpid()) + ".plist");
};

// Asks a device for its state.
template <auto GetState>
void call(benchmark::State & state) {
    recorded_session const session;
    auto const device = tests::make_device(1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetState(device.get()));
    }
}

// A restore whose steps are reported to somebody who does nothing.
class started_restore {
public:
    explicit started_restore(decltype(AMRestorableDeviceRestore) & restore) {
        tests::fake_device_library().on_restore = [this](auto callback, void * of_callback) {
            report_to = callback;
            context = of_callback;
        };
        restore(
            device.get(), step.get(), [](AMRestorableDeviceRef, CFDictionaryRef, void *) {},
            nullptr);
        tests::fake_device_library() = {};
    }

    void report() const { report_to(device.get(), step.get(), context); }

private:
    qnrescue::cf_owner<AMRestorableDeviceRef> const device = tests::make_device(1);
    qnrescue::cf_owner<CFMutableDictionaryRef> const step = benchmarks::make_report();
    AMRestorableDeviceProgressCallback report_to = nullptr;
    void * context = nullptr;
};

// Reports a step.
template <auto Restore>
void report(benchmark::State & state) {
    recorded_session const session;
    started_restore const restore{*Restore};
    for (auto _ : state) {
        restore.report();
    }
}

std::string text_of_recording() {
    return recorder::write_property_list(
        recorder::make_scenario(recorder::process_session()->copy(), false));
}

void report_late(benchmark::State & state) {
    recorded_session const session;
    started_restore const restore{recorded_AMRestorableDeviceRestore};
    for (int count = 0; count < reports_of_a_long_session; ++count) {
        restore.report();
    }
    std::jthread const reader{[](std::stop_token const & end) {
        while (!end.stop_requested()) {
            benchmark::DoNotOptimize(text_of_recording());
        }
    }};
    for (auto _ : state) {
        restore.report();
    }
}

void make_recording(benchmark::State & state) {
    recorded_session const session;
    started_restore const restore{recorded_AMRestorableDeviceRestore};
    for (auto count = state.range(0); count > 0; --count) {
        restore.report();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(text_of_recording());
    }
}

BENCHMARK(call<AMRestorableDeviceGetState>)->Name("call/plain")->Iterations(calls_a_session);
BENCHMARK(call<recorded_AMRestorableDeviceGetState>)
    ->Name("call/recorded")
    ->Iterations(calls_a_session);
BENCHMARK(report<AMRestorableDeviceRestore>)->Name("report/plain")->Iterations(calls_a_session);
BENCHMARK(report<recorded_AMRestorableDeviceRestore>)
    ->Name("report/recorded")
    ->Iterations(calls_a_session);
BENCHMARK(report_late)->Name("report/recorded_late")->Iterations(calls_a_session);
BENCHMARK(make_recording)
    ->Name("recording")
    ->Arg(reports_of_a_long_session / 10)
    ->Arg(reports_of_a_long_session)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace
