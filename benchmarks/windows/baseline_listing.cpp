// The least that a list of devices costs: loads the tool's DLL, starts its two threads, and makes
// the platform's calls.
#include "benchmarks/report_calls.hpp"
#include "benchmarks/windows/tool_run.hpp"
#include "platform/MobileDevice.h"
#include "platform/cf_collections.hpp"

namespace {

void ignore(AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {}

} // namespace

int main() {
    using namespace benchmarks;

    run_as_tool([](output_lines & lines) {
        begin_device_run();
        CFErrorRef failure = nullptr;
        auto const client = AMRestorableDeviceRegisterForNotifications(ignore, nullptr, &failure);
        lines.print(document_text(CFSTR("DeviceList"), qnrescue::make_mutable_array().get()));
        AMRestorableDeviceUnregisterForNotifications(client);
    });
}
