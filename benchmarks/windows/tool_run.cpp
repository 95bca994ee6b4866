#include "benchmarks/windows/tool_run.hpp"

#include "platform/MobileDevice.h"

#include <boost/filesystem/operations.hpp>

namespace benchmarks {

void begin_device_run() {
    boost::filesystem::unique_path("qnrescue.%%%%%%");
    AMDeviceNotificationRef subscription = nullptr;
    AMDeviceNotificationSubscribe([](AMDeviceNotificationCallbackInfo *, void *) {}, 0, 1, nullptr,
                                  &subscription);
    AMDeviceNotificationUnsubscribe(subscription);
}

} // namespace benchmarks
