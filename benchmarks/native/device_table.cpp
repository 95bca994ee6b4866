// The device table: what a notification, a look-up and a list cost with few and with many devices.
#include "benchmarks/native/run.hpp"
#include "tests/fake_device_library/fake_device_library.hpp"

#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using qnrescue::device_notifier_state;

void require(bool attached) {
    if (!attached) {
        throw std::runtime_error("a device is missing in the table");
    }
}

// Makes devices with scattered ECIDs in no order; the same ones in every run.
std::vector<qnrescue::cf_owner<AMRestorableDeviceRef>> make_devices(std::size_t count) {
    std::mt19937_64 ecids;
    std::vector<qnrescue::cf_owner<AMRestorableDeviceRef>> devices;
    while (devices.size() < count) {
        devices.push_back(tests::make_device(ecids()));
    }
    return devices;
}

// A run to which this many devices are attached.
class attached_devices {
public:
    explicit attached_devices(benchmark::State const & state)
        : devices(make_devices(static_cast<std::size_t>(state.range(0)))) {
        for (auto const & device : devices) {
            notify(device, kAMRestorableDeviceConnected);
        }
    }

    void notify(qnrescue::cf_owner<AMRestorableDeviceRef> const & device,
                AMRestorableDeviceNotificationType type) {
        device_notifier_state::deviceNotificationCallback(device.get(), type, &run.notifier);
    }

    qnrescue::cf_owner<AMRestorableDeviceRef> const & next() {
        at = at + 1 == devices.size() ? 0 : at + 1;
        return devices[at];
    }

    std::vector<qnrescue::cf_owner<AMRestorableDeviceRef>> const devices;
    benchmarks::notifier_run run;

private:
    std::size_t at = 0;
};

// A device leaves and comes back.
void notification(benchmark::State & state) {
    attached_devices attached(state);
    for (auto _ : state) {
        auto const & device = attached.next();
        attached.notify(device, kAMRestorableDeviceDisconnected);
        attached.notify(device, kAMRestorableDeviceConnected);
    }
    state.SetItemsProcessed(2 * state.iterations());
    require(attached.run.notifier.devices.size() == attached.devices.size());
}

// The devices are looked up in the order of their arrival.
void look_up(benchmark::State & state) {
    attached_devices attached(state);
    std::vector<QN::ecid> ecids;
    for (auto const & device : attached.devices) {
        ecids.emplace_back(AMRestorableDeviceGetECID(device.get()));
    }
    std::size_t at = 0;
    for (auto _ : state) {
        require(attached.run.notifier.waitForDevice(ecids[at]) != nullptr);
        at = at + 1 == ecids.size() ? 0 : at + 1;
    }
}

void list(benchmark::State & state) {
    attached_devices attached(state);
    auto & notifier = attached.run.notifier;
    notifier.operation = qnrescue::command_kind::list_devices;
    notifier.detectTimeout = std::chrono::seconds(0);
    for (auto _ : state) {
        notifier.waitForCompletion();
    }
}

BENCHMARK(notification)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(look_up)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(list)->RangeMultiplier(4)->Range(16, 65536)->Unit(benchmark::kMicrosecond);

} // namespace
