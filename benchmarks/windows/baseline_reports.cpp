// The least that relays the reports of a restore: waits for a device, starts its restore, and for
// each report makes the platform's calls and hands over two lines between them, as the tool does.
#include "benchmarks/report_calls.hpp"
#include "benchmarks/windows/tool_run.hpp"
#include "platform/MobileDevice.h"

#include <future>

namespace {

using namespace benchmarks;

struct restore_run {
    output_lines & lines;
    std::promise<AMRestorableDeviceRef> device;
    std::promise<void> complete;
};

void take_device(AMRestorableDeviceRef device, AMRestorableDeviceNotificationType type,
                 void * context) {
    if (type == kAMRestorableDeviceConnected) {
        static_cast<restore_run *>(context)->device.set_value(device);
    }
}

void relay(AMRestorableDeviceRef, CFDictionaryRef report, void * context) {
    auto & run = *static_cast<restore_run *>(context);
    if (hand_over_report(report, run.lines)) {
        run.complete.set_value();
    }
}

} // namespace

int main() {
    run_as_tool([](output_lines & lines) {
        begin_device_run();
        restore_run run{lines, {}, {}};
        CFErrorRef failure = nullptr;
        auto const client = AMRestorableDeviceRegisterForNotifications(take_device, &run, &failure);
        auto const options = qnrescue::adopt(AMRestoreCreateDefaultOptions(kCFAllocatorDefault));
        AMRestorableDeviceRestore(run.device.get_future().get(), options.get(), relay, &run);
        run.complete.get_future().wait();
        AMRestorableDeviceUnregisterForNotifications(client);
    });
}
