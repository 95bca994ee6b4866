// What recording adds to a call and to a report:
//   call/plain, report/plain        of a library that does nothing;
//   call/recorded, report/recorded  through the recorder, whose thread waits with the file
//   meanwhile.
#include "benchmarks/report_calls.hpp"
#include "recorder/functions.hpp"
#include "recorder/process_session.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace {

using namespace qnrescue;

constexpr int calls_a_session = 2000;

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

// Reports a step to somebody who does nothing.
template <auto Restore>
void report(benchmark::State & state) {
    recorded_session const session;
    auto const device = tests::make_device(1);
    auto const step = benchmarks::make_report();
    AMRestorableDeviceProgressCallback report_to = nullptr;
    void * context = nullptr;
    tests::fake_device_library().on_restore = [&](auto callback, void * of_callback) {
        report_to = callback;
        context = of_callback;
    };
    Restore(
        device.get(), step.get(), [](AMRestorableDeviceRef, CFDictionaryRef, void *) {}, nullptr);
    for (auto _ : state) {
        report_to(device.get(), step.get(), context);
    }
    tests::fake_device_library() = {};
}

BENCHMARK(call<AMRestorableDeviceGetState>)->Name("call/plain")->Iterations(calls_a_session);
BENCHMARK(call<recorded_AMRestorableDeviceGetState>)
    ->Name("call/recorded")
    ->Iterations(calls_a_session);
BENCHMARK(report<AMRestorableDeviceRestore>)->Name("report/plain")->Iterations(calls_a_session);
BENCHMARK(report<recorded_AMRestorableDeviceRestore>)
    ->Name("report/recorded")
    ->Iterations(calls_a_session);

} // namespace
