// From a device's arrival to the thread that waits for it:
//   arrival/tool      in the tool;
//   arrival/baseline  by a lock and a condition, the platform's calls, and a debug line before;
//   arrival/bare      by a lock and a condition.
#include "benchmarks/native/run.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

constexpr std::size_t hand_overs = 500;
// Long enough for the other thread to have gone to sleep.
constexpr auto settling_time = std::chrono::microseconds(300);

// A device that comes, and the tool that waits for it.
class tool_hand_over {
public:
    void wait() {
        if (!run.notifier.waitForDevice(ecid)) {
            throw std::runtime_error("the device has not arrived");
        }
    }
    void hand_over() { notify(kAMRestorableDeviceConnected); }
    void take_back() { notify(kAMRestorableDeviceDisconnected); }

private:
    void notify(AMRestorableDeviceNotificationType type) {
        qnrescue::device_notifier_state::deviceNotificationCallback(device.get(), type,
                                                                    &run.notifier);
    }

    benchmarks::notifier_run run;
    qnrescue::cf_owner<AMRestorableDeviceRef> device = tests::make_device(0xA1);
    QN::ecid const ecid{0xA1};
};

// What a notification does under the lock: nothing, or what every notification has to.
struct no_work {
    void arrive() {}
    void leave() {}
};

class notification_work {
public:
    void arrive() {
        examine("deviceNotificationCallback: Adding '00000000000000A1' (0x5581f0c3a2b0)");
        held = qnrescue::retain(device.get());
    }
    void leave() {
        examine("deviceNotificationCallback: Removing '00000000000000A1'");
        held.reset();
    }

private:
    void examine(char const * debug_line) {
        benchmark::DoNotOptimize(AMRestorableDeviceGetState(device.get()));
        benchmark::DoNotOptimize(AMRestorableDeviceGetECID(device.get()));
        lines.print_debug(debug_line);
    }

    qnrescue::cf_owner<AMRestorableDeviceRef> device = tests::make_device(0xA1);
    qnrescue::cf_owner<AMRestorableDeviceRef> held;
    benchmarks::file_owner file = benchmarks::open_null_device();
    benchmarks::file_lines lines{file};
};

template <typename Work>
class condition_hand_over {
public:
    void wait() {
        std::unique_lock lock(mutex);
        condition.wait_until(lock, clock_type::now() + std::chrono::seconds(3),
                             [this] { return arrived; });
    }
    void hand_over() {
        {
            std::lock_guard const lock(mutex);
            work.arrive();
            arrived = true;
        }
        condition.notify_all();
    }
    void take_back() {
        std::lock_guard const lock(mutex);
        work.leave();
        arrived = false;
    }

private:
    Work work;
    std::mutex mutex;
    std::condition_variable condition;
    bool arrived = false;
};

// The times in seconds, ascending.
template <typename HandOver>
std::vector<double> measure() {
    HandOver subject;
    std::binary_semaphore begin(0);
    std::binary_semaphore end(0);
    clock_type::time_point woken;
    std::jthread const waiter([&] {
        for (std::size_t i = 0; i < hand_overs; ++i) {
            begin.acquire();
            subject.wait();
            woken = clock_type::now();
            end.release();
        }
    });
    std::vector<double> seconds;
    for (std::size_t i = 0; i < hand_overs; ++i) {
        begin.release();
        std::this_thread::sleep_for(settling_time);
        auto const handed_over = clock_type::now();
        subject.hand_over();
        end.acquire();
        subject.take_back();
        seconds.push_back(std::chrono::duration<double>(woken - handed_over).count());
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds;
}

template <typename HandOver>
void hand_over(benchmark::State & state) {
    for (auto _ : state) {
        auto const seconds = measure<HandOver>();
        auto const median = seconds[seconds.size() / 2];
        state.SetIterationTime(median);
        state.counters["median"] = median;
        state.counters["p99"] = seconds[seconds.size() * 99 / 100];
    }
}

using baseline_hand_over = condition_hand_over<notification_work>;
using bare_hand_over = condition_hand_over<no_work>;

BENCHMARK(hand_over<tool_hand_over>)->Name("arrival/tool")->UseManualTime()->Iterations(1);
BENCHMARK(hand_over<baseline_hand_over>)->Name("arrival/baseline")->UseManualTime()->Iterations(1);
BENCHMARK(hand_over<bare_hand_over>)->Name("arrival/bare")->UseManualTime()->Iterations(1);

} // namespace
